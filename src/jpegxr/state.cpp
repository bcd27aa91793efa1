// The adaptive state (ITU-T T.832, 8.8): its size and initialisation, the choice of code tables, the scans,
// and the walk over a DC block.
#include "jpegxr/state.h"

#include <algorithm>

#include "frame/check.h"
#include "frame/fronts.h"
#include "jpegxr/tables.h"

namespace qelj {
namespace {

using namespace jpegxr;

// --- alphabets ---------------------------------------------------------------------------------------------

// kEncode<n>[t], kShort<n>[t] and kLong<n>[t] are what is made of Codes<n>::codes[t].
template <int n, class Make>
constexpr auto tablesOf(Make&& make) {
  std::array<decltype(make(0)), std::size(Codes<n>::codes)> all{};
  for (size_t t = 0; t < all.size(); ++t) all[t] = make(int(t));
  return all;
}
template <int n>
constexpr auto kEncode = tablesOf<n>(makeEncodeTable<n>);
template <int n>
constexpr auto kShort = tablesOf<n>(makeShortTable<n>);
template <int n>
constexpr auto kLong = tablesOf<n>(makeLongTable<n>);

// An alphabet's tables, each kind by the index of the table in use.
struct Alphabet {
  int symbols = 0, start = 0, last = 0;
  bool second = false;  // has a second discriminant
  const int32_t* codes[5] = {};
  const int32_t *deltas[5] = {}, *deltas2[5] = {};  // null: the pointer in the record stays
  const int16_t *decode[5] = {}, *decode2[5] = {};
};

enum Kind { kMoving, kMovingLong, kFixed };  // kFixed: the index moves, the tables are always the first

template <int n, Kind kind>
constexpr Alphabet alphabet() {
  constexpr int tables = int(std::size(Codes<n>::codes));
  Alphabet a;
  a.symbols = n, a.start = Codes<n>::start, a.last = tables - 1, a.second = kSteps<n> > 1;
  for (int i = 0; i < tables; ++i) {
    const auto t = size_t(kind == kFixed ? 0 : i);
    a.codes[i] = kEncode<n>[t].table.data();
    a.decode[i] = a.decode2[i] = kShort<n>[t].table.data();
    if constexpr (kind == kMovingLong) a.decode2[i] = kLong<n>[t].table.data();
    if constexpr (kSteps<n> > 0) a.deltas[i] = Codes<n>::deltas[stepBelow<n>(i)].data();
    if constexpr (kSteps<n> > 1) a.deltas2[i] = Codes<n>::deltas[stepAbove<n>(i)].data();
  }
  return a;
}

constexpr Alphabet kAlphabets[] = {alphabet<4, kFixed>(),      alphabet<5, kMoving>(), alphabet<6, kMoving>(),
                                   alphabet<7, kMovingLong>(), alphabet<8, kFixed>(),  alphabet<9, kMovingLong>(),
                                   alphabet<12, kMovingLong>()};

// --- table adaptation --------------------------------------------------------------------------------------

// The alphabet of every entry. Entries 1 to 4 (for coded-block patterns and DC values) are in neither group.
constexpr int kAlphabetOf[kEntries] = {5, 4, 8, 7, 7, 12, 6, 6, 12, 6, 6, 7, 7, 12, 6, 6, 12, 6, 6, 7, 7};
constexpr int kLowPass[] = {0, 5, 6, 7, 8, 9, 10, 11, 12};
constexpr int kHighPass[] = {13, 14, 15, 16, 17, 18, 19, 20};

constexpr int32_t kBound = 8, kLimit = 64, kNeverAbove = 0x40000000;

void ownAdaptEntry(VLCState& state, int e) {
  VLCEntry& entry = state.entry[e];
  const auto* a = std::find_if(std::begin(kAlphabets), std::end(kAlphabets),
                               [&](const Alphabet& each) { return each.symbols == entry.alphabet; });
  if (a == std::end(kAlphabets)) return;
  if (!entry.initialised) {
    entry.tableIndex = a->start;
    entry.initialised = 1;
    state.discriminant[e] = state.discriminant2[e] = 0;
  }
  const int32_t low = state.discriminant[e], high = a->second ? state.discriminant2[e] : low;
  const int32_t move = low < entry.lowerBound ? -1 : high > entry.upperBound ? 1 : 0;
  const auto settle = [&](int32_t d) { return move ? 0 : std::clamp(d, -kLimit, kLimit); };
  state.discriminant[e] = settle(low);
  state.discriminant2[e] = settle(state.discriminant2[e]);

  const int32_t t = entry.tableIndex = std::clamp(addWrap(entry.tableIndex, move), 0, a->last);
  entry.lowerBound = t == 0 ? INT32_MIN : -kBound;
  entry.upperBound = t == a->last ? kNeverAbove : kBound;
  state.codeTable[e] = a->codes[t];
  state.decodeTable[e] = a->decode[t];
  state.decodeTable2[e] = a->decode2[t];
  if (a->deltas[t]) state.deltaTable[e] = a->deltas[t];
  if (a->deltas2[t]) state.deltaTable2[e] = a->deltas2[t];
}

void ownAdapt(VLCState& state, bool highPass) {
  if (highPass)
    for (int e : kHighPass) ownAdaptEntry(state, e);
  else
    for (int e : kLowPass) ownAdaptEntry(state, e);
}

// --- scans -------------------------------------------------------------------------------------------------

// The orders of T.832 as positions, from place 0 on.
constexpr uint8_t kOrder0[kPlaces] = {0, 10, 2, 12, 5, 9, 4, 8, 1, 13, 6, 15, 14, 3, 11, 7};
constexpr uint8_t kOrder1[kPlaces] = {0, 5, 10, 12, 1, 2, 8, 4, 6, 9, 3, 14, 13, 7, 11, 15};
constexpr uint8_t kOrder2[kPlaces] = {0, 1, 4, 5, 2, 8, 6, 9, 3, 12, 10, 7, 13, 11, 14, 15};

void ownFillScan(ScanEntry* scan, const uint8_t (&order)[kPlaces]) {
  for (int k = 0; k < kPlaces; ++k) {
    scan[k].position = order[k];
    scan[k].column = kColumn[order[k]];
    scan[k].row = kRow[order[k]];
  }
}

ScanEntry* scanOf(VLCState& state, uint32_t index) {
  return index == 0 ? state.scanTable0 : index == 1 ? state.scanTable1 : state.scanTable2;
}

}  // namespace

// --- fronts ------------------------------------------------------------------------------------------------

QelStatus qeliVLCGetStateSize_JPEGXR(int32_t* stateSize) {
  if (auto s = nonNull(stateSize); s) return s;
  // As if the fields had their natural alignment, so that records can stand in an array.
  constexpr size_t unit = alignof(void*);
  *stateSize = int32_t((sizeof(VLCState) + unit - 1) / unit * unit);
  return qelStatusOk;
}

QelStatus qeliVLCInit_JPEGXR(VLCState* state) {
  if (auto s = nonNull(state); s) return s;
  for (int e = 0; e < kEntries; ++e) {
    state->discriminant[e] = 0;
    state->entry[e] = {};
    state->entry[e].alphabet = kAlphabetOf[e];
  }
  ownAdapt(*state, false);
  ownAdapt(*state, true);
  state->currentScan = state->scanTable2;
  ownFillScan(state->scanTable0, kOrder0);
  ownFillScan(state->scanTable1, kOrder1);
  ownFillScan(state->scanTable2, kOrder2);
  return qelStatusOk;
}

QelStatus qeliVLCAdapt_JPEGXR(VLCState* state, int32_t group) {
  if (auto s = check(nonNull(state), require(group == 0 || group == 1, qelStatusOutOfRange)); s) return s;
  ownAdapt(*state, group == 1);
  return qelStatusOk;
}

QelStatus qeliVLCScanReset_JPEGXR(VLCState* state, int32_t scanIndex) {
  if (auto s = check(nonNull(state), require(scanIndex >= 0 && scanIndex <= 2, qelStatusOutOfRange)); s) return s;
  ScanEntry* const scan = scanOf(*state, uint32_t(scanIndex));
  scan[0].count = INT16_MAX;  // no place gets in front of the DC
  for (int k = 1; k < kPlaces; ++k) scan[k].count = 2 * (kPlaces + 1 - k);
  return qelStatusOk;
}

QelStatus qeliVLCScanSet_JPEGXR(VLCState* state, uint32_t scanIndex) {
  if (auto s = check(nonNull(state), require(scanIndex <= 2, qelStatusOutOfRange)); s) return s;
  state->currentScan = scanOf(*state, scanIndex);
  return qelStatusOk;
}

QelStatus qeliVLCScan4x4DC_JPEGXR_32s(const int32_t* src, uint32_t modelBits, uint32_t* residual, int32_t* runLevel,
                                      int32_t* pairCount, VLCState* state) {
  if (auto s = check(nonNull(state, src, residual, runLevel, pairCount), require(modelBits <= 15, qelStatusOutOfRange));
      s)
    return s;
  ScanEntry* const scan = state->currentScan = state->scanTable2;
  int32_t levels[kPlaces];
  std::memcpy(levels, src, sizeof levels);
  const uint32_t places = modelBits ? significantPlaces<true>(scan, modelBits, 0, residual, levels)
                                    : significantPlaces<false>(scan, 0, 0, residual, levels);
  int32_t pairs = 0;
  walkSignificant(scan, places, [&](int32_t run, uint32_t position) {
    put(runLevel, 2 * pairs, run);
    put(runLevel, 2 * pairs + 1, levels[position]);
    ++pairs;
  });
  *pairCount = pairs;
  return qelStatusOk;
}

}  // namespace qelj
