// The code-block encoder (ISO/IEC 15444-1, Annexes C and D). The load runs the coding passes and notes their
// symbols with their contexts; the first call that asks for bytes runs the MQ and raw coders over the notes.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/memory.h"
#include "frame/rounding.h"
#include "jpeg2000/blockcoder/mq.h"
#include "jpeg2000/blockcoder/passes.h"

namespace qelj {
namespace {

using namespace jpeg2000;

constexpr uint32_t kEncoderMagic = 0x4c4d5344;
constexpr int32_t kMaxPasses = 3 * kMagnitudeBits - 2;

// The drop of squared error against mid-point reconstruction that a sample brings when it becomes significant
// (i: the 6 bits below the plane) or is refined (i: its bit in the plane and the 6 below), in units of 2^-13
// of the plane's square. Lossless: nothing is left below, so the value is exact instead of a mid-point.
struct Distortions {
  int16_t significance[64], refinement[128];
};
constexpr auto kDistortions = [] {
  std::array<Distortions, 2> all{};  // by "lossless"
  for (int i = 0; i < 64; ++i) {
    all[0].significance[i] = int16_t(6144 + 384 * i);
    all[1].significance[i] = int16_t(2 * (64 + i) * (64 + i));
  }
  for (int i = 0; i < 128; ++i) {
    all[0].refinement[i] = int16_t(6144 - 128 * (i <= 64 ? i : 128 - i));
    all[1].refinement[i] = int16_t(2 * (64 - i) * (64 - i));
  }
  return all;
}();

// What is known of a pass. Rate and end belong to the coder's run.
struct Pass {
  int64_t mantissa;  // distortion: mantissa * 2^exponent
  int32_t exponent;
  int32_t symbolsEnd;
  int32_t rate;
  bool raw, terminated;
};

}  // namespace
}  // namespace qelj

struct QelEncodeStateJPEG2K {
  uint32_t magic;
  int32_t style, prevByte, reserved;
  int64_t maxColumns, maxWidened;  // what the memory holds
  qelj::jpeg2000::FlagGroup* flags;
  uint32_t* samples;  // by stripe, by column, four of a column together
  uint8_t* symbols;   // context << 1 | bit
  uint8_t* output;    // behind the byte that precedes the block
  int32_t passes, segments;
  bool coded;
  int32_t outputLength, stored;
  int32_t segmentLengths[qelj::kMaxPasses];
  qelj::Pass pass[qelj::kMaxPasses];
  uint64_t* ones;  // by stripe, by group: the samples' bits in the plane that is being coded
};

namespace qelj {
namespace {

using Encoder = QelEncodeStateJPEG2K;

// Symbols of a stripe column of four samples: one a plane and sample, a sign each, and a run that is
// interrupted once; in every plane a pass ends with a segmentation symbol of four.
constexpr int64_t kSymbolsPerColumn = kStripe * kMagnitudeBits + kStripe + 2;
constexpr int64_t kSymbolsPerBlock = 4 * kMagnitudeBits;
// An MQ symbol costs 15 bits at the most; a segment's end up to five bytes.
constexpr int64_t kBytesPerSymbol = 2, kBytesPerBlock = 8 * kMaxPasses;

int64_t stripeColumns(QelSize size) { return size.width * FlagGrid::stripes(size.height); }
// With two columns more a stripe: what a block is measured by besides. Flags take the more of these the narrower a
// block is, up to two groups for three columns.
int64_t widenedColumns(QelSize size) { return (int64_t(size.width) + 2) * FlagGrid::stripes(size.height); }
constexpr int64_t kFlagBytesPerColumn = 24;
static_assert(3 * kFlagBytesPerColumn >= 2 * int64_t(sizeof(FlagGroup)));

// Notes the symbols of one pass and sums up its distortion.
template <bool Raw>
struct BlockWriter {
  const uint32_t* samples;
  const uint64_t* ones;
  FlagGrid grid;
  int32_t plane;
  const Distortions& distortions;
  uint8_t* out;
  int64_t distortion = 0;
  const uint32_t* own = nullptr;  // the samples of the group
  uint64_t bits = 0;              // and their bits

  QELJ_INLINE void emit(uint32_t context, uint32_t bit) { *out++ = uint8_t(context << 1 | bit); }
  QELJ_INLINE void group(int32_t stripe, int32_t g) {
    own = samples + kStripe * (ptrdiff_t(stripe) * grid.width + ptrdiff_t(g) * kGroup);
    bits = ones[ptrdiff_t(stripe) * grid.groups() + g];
  }
  QELJ_INLINE uint32_t sample(int p) const { return own[place::kIndex[size_t(p)]]; }
  // Bit 6 is the plane.
  QELJ_INLINE uint32_t window(uint32_t v) const { return uint32_t(uint64_t(v) << 6 >> plane); }

  QELJ_INLINE uint32_t significance(uint32_t context, int p) {
    const auto bit = uint32_t(bits >> p & 1);
    emit(context, bit);
    return bit;
  }
  QELJ_INLINE uint32_t sign(uint32_t entry, int p) {
    const uint32_t v = sample(p), negative = v >> 31;
    emit(entry & 31, negative ^ (Raw ? 0 : entry >> 7));
    distortion += distortions.significance[window(v) & 63];
    return negative;
  }
  QELJ_INLINE void refine(uint32_t context, int p) {
    const uint32_t v = sample(p);
    emit(context, v >> plane & 1);
    distortion += distortions.refinement[window(v) & 127];
  }
  QELJ_INLINE int run(int p) {
    const auto any = uint32_t(bits >> p & 15);
    const int first = std::countr_zero(any | 16);
    emit(kRunLength, any != 0);
    if (any) {
      emit(kUniform, uint32_t(first) >> 1);
      emit(kUniform, first & 1);
    }
    return first;
  }
};

enum class PassType { significance, refinement, cleanup };

// One block's road through its passes.
struct Loader {
  Encoder& e;
  FlagGrid grid;
  const SignificanceTable& table;
  int32_t lowest;
  uint8_t* symbols;

  template <PassType Type, bool Raw>
  __attribute__((noinline)) void pass(int32_t plane) {
    BlockWriter<Raw> writer{
        e.samples, e.ones, grid, plane, kDistortions[plane == lowest && e.style & qelCodeStyleLossless], symbols};
    const bool causal = e.style & qelCodeStyleCausal;
    if constexpr (Type == PassType::significance) ownSignificancePass(grid, causal, table, writer);
    if constexpr (Type == PassType::refinement) ownRefinementPass(grid, writer);
    if constexpr (Type == PassType::cleanup) {
      ownCleanupPass(grid, causal, table, writer);
      if (e.style & qelCodeStyleSymbols)
        for (uint32_t bit : {1, 0, 1, 0}) writer.emit(kUniform, bit);
    }
    symbols = writer.out;
    e.pass[e.passes++] = {writer.distortion, 2 * (plane - lowest) - 13, int32_t(symbols - e.symbols), 0, Raw, false};
  }

  // Ahead of the passes, which so know soon what they branch on. What stands behind a stripe's last column is none of
  // its samples. In a function of its own, at whose end wide registers are cleared: GCC 12 forgets it behind calls.
  __attribute__((noinline)) void gatherOnes(int32_t plane) {
    for (int32_t s = 0; s < grid.stripes(); ++s)
      for (int32_t g = 0; g < grid.groups(); ++g) {
        const uint32_t* const own = e.samples + kStripe * (ptrdiff_t(s) * grid.width + ptrdiff_t(g) * kGroup);
        uint64_t ones = 0;
        for (size_t i = 0; i < kGroup * kStripe; ++i) ones |= uint64_t(own[i] >> plane & 1) << place::kOfIndex[i];
        e.ones[ptrdiff_t(s) * grid.groups() + g] = ones;
      }
  }

  void plane(int32_t plane, bool first, bool raw) {
    gatherOnes(plane);
    if (!first) {
      raw ? pass<PassType::significance, true>(plane) : pass<PassType::significance, false>(plane);
      raw ? pass<PassType::refinement, true>(plane) : pass<PassType::refinement, false>(plane);
    }
    pass<PassType::cleanup, false>(plane);
  }
};

// Sorts the samples by stripe and column; returns all magnitudes' bits.
uint32_t sortSamples(const int32_t* src, int32_t srcStep, QelSize size, uint32_t* dst) {
  uint32_t any = 0;
  for (int32_t y = 0; y < size.height; y += kStripe) {
    const int32_t rows = std::min(kStripe, size.height - y);
    if (rows < kStripe) std::memset(dst, 0, size_t(size.width) * kStripe * 4);
    const int32_t* line[kStripe];
    for (int i = 0; i < kStripe; ++i) line[i] = row(src, srcStep, y + std::min(i, rows - 1));
    if (rows == kStripe) {
      for (int32_t x = 0; x < size.width; ++x)
        for (int i = 0; i < kStripe; ++i) {
          const auto v = uint32_t(at(line[i], x));
          dst[kStripe * ptrdiff_t(x) + i] = v;
          any |= v;
        }
    } else {
      for (int i = 0; i < rows; ++i)
        for (int32_t x = 0; x < size.width; ++x) {
          const auto v = uint32_t(at(line[i], x));
          dst[kStripe * ptrdiff_t(x) + i] = v;
          any |= v;
        }
    }
    dst += kStripe * ptrdiff_t(size.width);
  }
  return any & 0x7FFFFFFF;
}

// Where coders end: everywhere with termination on each pass, else where MQ and raw passes meet; and at the
// block's end.
void placeTerminations(Encoder& e) {
  e.segments = e.passes || e.style & qelCodeStyleTerminate ? 0 : 1;
  for (int32_t i = 0; i < e.passes; ++i) {
    e.pass[i].terminated = e.style & qelCodeStyleTerminate || i + 1 == e.passes || e.pass[i].raw != e.pass[i + 1].raw;
    e.segments += e.pass[i].terminated;
  }
}

// Codes passes from `i` up to the next termination; returns the number of the pass behind it.
template <class Coder>
int32_t codeSegment(Encoder& e, int32_t i, MqContexts& contexts, uint8_t*& end) {
  Coder coder(end);
  for (;; ++i) {
    Pass& pass = e.pass[i];
    const uint8_t* from = e.symbols + (i ? e.pass[i - 1].symbolsEnd : 0);
    const uint8_t* to = e.symbols + pass.symbolsEnd;
    if constexpr (std::is_same_v<Coder, MqEncoder>) coder.encode(from, to, contexts);
    else coder.encode(from, to);
    if (e.style & qelCodeStyleReset) contexts.reset();
    const int pending = pass.terminated ? 0 : coder.pending();
    end = pass.terminated ? coder.flush() : coder.written();
    pass.rate = int32_t(end - e.output) + pending;
    if (pending == 0)
      for (int32_t k = i; k > 0 && e.pass[k - 1].rate > e.pass[k].rate; --k) e.pass[k - 1].rate = e.pass[k].rate;
    if (pass.terminated) return i + 1;
  }
}

// Runs the coders over the whole block.
void ownCode(Encoder& e) {
  if (e.coded) return;
  MqContexts contexts;
  contexts.reset();
  uint8_t* end = e.output;
  end[-1] = uint8_t(e.prevByte);
  int32_t segment = 0;
  for (int32_t i = 0; i < e.passes;) {
    const uint8_t* start = end;
    i = e.pass[i].raw ? codeSegment<RawEncoder>(e, i, contexts, end) : codeSegment<MqEncoder>(e, i, contexts, end);
    e.segmentLengths[segment++] = int32_t(end - start);
  }
  e.outputLength = int32_t(end - e.output);
  e.coded = true;
}

QelStatus isEncoder(const Encoder* e) { return require(e->magic == kEncoderMagic, qelStatusContextMismatch); }

// The checks that the three questions about a pass or segment share.
QelStatus checkQuestion(const Encoder* state, int32_t number, const void* result, int32_t Encoder::* count) {
  if (!state) return qelStatusNullPointer;
  if (auto s = check(isEncoder(state), nonNull(result)); s) return s;  // other memory may be shorter than a state
  return require(number >= 0 && number < state->*count, qelStatusJpeg2kBadPassNumber);
}

}  // namespace

QelStatus qeliEncodeInitAlloc_JPEG2K(QelEncodeStateJPEG2K** state, QelSize size) {
  if (auto s = check(nonNull(state), area(size)); s) return s;
  *state = nullptr;
  const int64_t columns = stripeColumns(size), widened = widenedColumns(size);
  if (columns > INT32_MAX / kSymbolsPerColumn) return qelStatusNoMemory;  // from here on, no product wraps
  const int64_t symbols = columns * kSymbolsPerColumn + kSymbolsPerBlock;
  // Widest alignment first.
  const int64_t flagBytes = widened * kFlagBytesPerColumn + int64_t(sizeof(FlagGroup)),
                sampleBytes = (columns + kGroup) * kStripe * 4;  // a whole group at the end
  const int64_t onesBytes = flagBytes / int64_t(sizeof(FlagGroup)) * 8;
  const int64_t outputBytes = 1 + symbols * kBytesPerSymbol + kBytesPerBlock;
  const int64_t total = int64_t(sizeof(Encoder)) + flagBytes + onesBytes + sampleBytes + symbols + outputBytes;
  auto* memory = static_cast<uint8_t*>(total > INT32_MAX ? nullptr : ownAlloc(int32_t(total)));
  if (!memory) return qelStatusNoMemory;
  auto* e = reinterpret_cast<Encoder*>(memory);
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  e->magic = kEncoderMagic;
  e->maxColumns = columns;
  e->maxWidened = widened;
  e->flags = reinterpret_cast<FlagGroup*>(memory + sizeof(Encoder));
  e->ones = reinterpret_cast<uint64_t*>(memory + sizeof(Encoder) + flagBytes);
  e->samples = reinterpret_cast<uint32_t*>(memory + sizeof(Encoder) + flagBytes + onesBytes);
  e->symbols = memory + sizeof(Encoder) + flagBytes + onesBytes + sampleBytes;
  e->output = e->symbols + symbols + 1;
  *state = e;
  return qelStatusOk;
}

QelStatus qeliEncodeFree_JPEG2K(QelEncodeStateJPEG2K* state) {
  if (!state) return qelStatusNullPointer;
  state->magic = 0;
  ownFree(state);
  return qelStatusOk;
}

QelStatus qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, QelSize size,
                                                 QelEncodeStateJPEG2K* state, int32_t subband, int32_t magnitudeBits,
                                                 int32_t prevByte, int32_t reserved, int32_t codeStyle,
                                                 int32_t* numBitPlanes, int32_t* numPasses, int32_t* numTermPasses) {
  if (!state) return qelStatusNullPointer;
  if (auto s = check(isEncoder(state), nonNull(numBitPlanes, numPasses, numTermPasses), area(size), nonNull(src),
                     step(srcStep));
      s)
    return s;
  Encoder& e = *state;
  if (stripeColumns(size) > e.maxColumns || widenedColumns(size) > e.maxWidened) return qelStatusBadSize;

  e.style = codeStyle;
  e.prevByte = prevByte;
  e.reserved = reserved;
  e.passes = e.stored = e.outputLength = 0;
  e.coded = false;
  std::memset(e.segmentLengths, 0, sizeof e.segmentLengths);

  const int32_t planes = int32_t(std::bit_width(sortSamples(src, srcStep, size, e.samples)));
  const int32_t lowest = kMagnitudeBits - std::clamp(magnitudeBits, 0, kMagnitudeBits);
  std::memset(static_cast<void*>(e.flags), 0, size_t(FlagGrid::bytes(size.width, size.height)));
  Loader loader{e, {e.flags, size.width, size.height}, kSignificanceTables[bandTable(subband)], lowest, e.symbols};
  for (int32_t p = planes - 1; p >= lowest; --p)
    loader.plane(p, p == planes - 1, codeStyle & qelCodeStyleBypass && p < planes - kPlanesBeforeBypass);
  placeTerminations(e);

  *numBitPlanes = planes;
  *numPasses = e.passes;
  *numTermPasses = e.segments;
  return qelStatusOk;
}

QelStatus qeliEncodeStoreBits_JPEG2K_1u(uint8_t* dst, int32_t* dstLen, QelEncodeStateJPEG2K* state,
                                        int32_t* isNotFinished) {
  if (!state) return qelStatusNullPointer;
  if (auto s = check(isEncoder(state), nonNull(dst, dstLen, isNotFinished)); s) return s;
  if (auto s = length(*dstLen); s) return s;
  Encoder& e = *state;
  ownCode(e);
  const int32_t n = std::min(*dstLen, e.outputLength - e.stored);
  std::memcpy(dst, e.output + e.stored, size_t(n));
  e.stored += n;
  *dstLen = n;
  *isNotFinished = e.stored < e.outputLength;
  return qelStatusOk;
}

QelStatus qeliEncodeGetRate_JPEG2K(QelEncodeStateJPEG2K* state, int32_t passNumber, int32_t* rate) {
  if (auto s = checkQuestion(state, passNumber, rate, &Encoder::passes); s) return s;
  ownCode(*state);
  *rate = state->pass[passNumber].rate;
  return qelStatusOk;
}

QelStatus qeliEncodeGetDist_JPEG2K(QelEncodeStateJPEG2K* state, int32_t passNumber, double* dist) {
  if (auto s = checkQuestion(state, passNumber, dist, &Encoder::passes); s) return s;
  const RoundToNearest rounding;
  double sum = 0;
  for (int32_t i = 0; i <= passNumber; ++i) sum += std::ldexp(double(state->pass[i].mantissa), state->pass[i].exponent);
  *dist = sum;
  return qelStatusOk;
}

QelStatus qeliEncodeGetTermPassLen_JPEG2K(QelEncodeStateJPEG2K* state, int32_t termPassNumber, int32_t* length) {
  if (auto s = checkQuestion(state, termPassNumber, length, &Encoder::segments); s) return s;
  ownCode(*state);
  *length = state->segmentLengths[termPassNumber];
  return qelStatusOk;
}

}  // namespace qelj
