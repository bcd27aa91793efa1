// Differences of lossless JPEG to and from Huffman codes (ISO/IEC 10918-1, H.1.2.2 and H.2): single ones, and
// rows of up to four interleaved components.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/aheadreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

constexpr int kMaxChannels = 4;  // of an interleaved scan; further planes of a caller are not coded

inline QelStatus ownDecodeDifference(BitReader<true>& reader, const QelDecodeHuffmanSpec* table, int16_t* dst) {
  int32_t symbol, value = INT16_MIN;  // category 16: the one difference without value bits
  if (auto s = reader.symbol(table, symbol); s) return s;
  if (symbol < 16)
    if (auto s = reader.value(symbol, value); s) return s;
  store(dst, int16_t(value));
  return qelStatusOk;
}

template <class Sink>
inline QelStatus ownCodeDifference(Sink& sink, const QelEncodeHuffmanSpec* table, int32_t d) {
  const auto [t, bits] = ownValueCode(d);
  return t < 16 ? sink.code(table, t, bits, t) : sink.code(table, t);
}
constexpr int kMaxDifferenceBits = 16 + 15;

// Tables of the codes of up to 8 bits whose values are not long, made for one row. What code and value take together
// stands ready, which tells without delay where the next code begins.

// By the next 8 bits; a table for each channel, though they have the same one as a rule.
class CodeTable {
 public:
  static constexpr int kIndexBits = 8;
  static constexpr uint32_t kMost = AheadReader::kBits / 4;  // a refill is enough for four

  struct Entry {
    uint8_t all, code;  // bits; 0 for other codes
  };

  void init(const QelDecodeHuffmanSpec* spec) {
    for (size_t i = 0; i < 256; ++i) {
      const uint32_t code = spec->lookup[i] >> 16, category = spec->lookup[i] & 0xFFFF;
      const bool listed = code <= 8 && category < 16 && code + category <= kMost;
      entries_[i] = listed ? Entry{uint8_t(code + category), uint8_t(code)} : Entry{};
    }
  }
  Entry operator[](uint32_t bits) const { return entries_[bits]; }

 private:
  Entry entries_[256];
};

// With the values, and with those of the next difference, too, where both fit the bits of the index: for rows that pay
// for it, in which all channels have one table.
class PairTable {
 public:
  static constexpr int kIndexBits = 11;

  // Of one difference, or of two, as AheadReader::skipValues() takes them.
  struct Entry {
    uint32_t lengths, values;                      // the first value is the lower half
    uint32_t all() const { return lengths & 63; }  // bits; 0 for other codes
    int count() const { return int(lengths >> 6 & 3); }
    uint32_t mark() const { return lengths >> 8; }
  };

  // The result is whether the table lists enough: a code of l bits is as frequent as 1 in 2^l, and stands for as many
  // of the 256 beginnings.
  bool init(const QelDecodeHuffmanSpec* spec) {
    // For each 8 bits the entry of the first difference, as if there were zeros behind them. The value's sign is among
    // the 8, so that its further bits count up.
    uint64_t first[256];
    uint8_t both[256];
    uint32_t listed = 0;
    for (uint32_t i = 0; i < 256; ++i) {
      const uint32_t code = spec->lookup[i] >> 16, category = spec->lookup[i] & 0xFFFF, all = code + category;
      const bool known = (code - 1 < 7) & (category < 10) & (all <= kIndexBits);
      const uint32_t behind = i << (code & 7) & 255, ones = (1u << (category & 15)) - 1;
      const uint32_t value = behind << kMore >> ((kIndexBits - category) & 15);
      const uint32_t extended = value - (behind >> 7 ? 0 : ones);  // EXTEND, F.2.2.1
      both[i] = uint8_t(known ? all : 0);
      first[i] = known ? (uint64_t(extended) & 0xFFFF) << 32 | 8u << all << 8 | 1u << 6 | all : 0;
      listed += known;
    }
    if (listed < 256 * 15 / 16) return false;

    // Where a first one leaves w bits, 8 at most, the second one adds seconds[2^w + these bits]; 0 where it is longer.
    uint64_t seconds[512];
    for (size_t i = 0; i < 256; ++i) seconds[256 + i] = both[i] > 7 ? 0 : first[i] >> 32 << 48 | (first[i] & 0xFF);
    for (size_t i = 255; i > 0; --i)
      seconds[i] = int(seconds[2 * i] & 63) < int(std::bit_width(i)) ? seconds[2 * i] : 0;

    // The last bits of a long value.
    static constexpr auto kSteps = [] {
      std::array<std::array<uint64_t, 1 << kMore>, kIndexBits - 8 + 1> steps{};
      for (size_t bits = 0; bits < steps.size(); ++bits)
        for (size_t i = 0; i < 1 << kMore; ++i) steps[bits][i] = uint64_t(i >> (kMore - bits)) << 32;
      return steps;
    }();
    using simd::U64;
    for (size_t i = 0; i < 256; ++i) {
      const int all = both[i];
      const size_t left = (i << kMore) & ((size_t(1) << (kIndexBits - all)) - 1);
      uint64_t one = first[i];
      const uint64_t* more = kSteps[0].data();
      if (all > 8) more = kSteps[size_t(all - 8)].data();
      else if (all >= int(kMore)) more = seconds + (size_t(1) << (kIndexBits - all)) + left;
      else if (all > 0) one += seconds[(size_t(1) << (8 - all)) + (left >> kMore)];  // as far as the first 8 bits tell
      for (int j = 0; j < 1 << kMore; j += simd::kLanes<U64>)
        store(entries_ + (i << kMore) + j, load<U64>(more + j) + simd::all<U64>(one));
    }
    return true;
  }
  const Entry& operator[](uint32_t bits) const { return entries_[bits]; }

 private:
  static constexpr uint32_t kMore = kIndexBits - 8;
  Entry entries_[256 << kMore];
};

// A difference that a table doesn't list; false where that is for the defining reader.
[[gnu::noinline]] bool ownTakeUnlisted(AheadReader& reader, const QelDecodeHuffmanSpec* spec, int16_t* dst) {
  if (!reader.refill()) return false;
  auto code = reader.peek(spec);
  const bool isShort = code.length != 0;
  if (!isShort) code = reader.peekLong(spec);
  if (code.length == 0) return false;
  const bool lone = code.symbol > 15;
  if (lone) code.symbol = 0;
  const int32_t value = isShort ? reader.take(code) : reader.takeLong(code);
  store(dst, int16_t(lone ? INT16_MIN : value));
  return true;
}

// A call for a row whose channel count is known to the compiler.
template <int kChannels>
struct RowCall : DecoderCall {
  RowCall(int16_t* const* dst, int32_t width, const QelDecodeHuffmanSpec* const* specs) : width(width) {
    for (int c = 0; c < kChannels; ++c) this->dst[c] = dst[c], this->specs[c] = specs[c];
  }

  QELJ_INLINE void ahead(AheadReader& reader) {
    if (kLooksAhead && !reader.refill()) [[unlikely]]
      return;
    while (channel == 0 && width - x >= kColumns) {
      if (!columns(reader, std::make_integer_sequence<int, kColumns * kChannels>())) return;
      x += kColumns;
    }
    more = x < width;
  }

  // To the end of a column.
  void step(BitReader<true>& reader) {
    do {
      status = ownDecodeDifference(reader, specs[channel], offset(dst[channel], x));
      more = status == qelStatusOk;
    } while (more && ++channel < kChannels);
    if (!more) return;
    channel = 0;
    more = ++x < width;
  }

  int16_t* dst[kChannels];
  const QelDecodeHuffmanSpec* specs[kChannels];
  const CodeTable* tables[kChannels];
  int32_t x = 0, width;
  int channel = 0;

 private:
  // Differences to a refill, and columns at once; whether what a group leaves is enough to look up the next one's first
  // difference in front of the refill, which then takes no time of its own.
  static constexpr int kGroup = kChannels == 3 ? 3 : 4, kColumns = kGroup / kChannels;
  static constexpr bool kLooksAhead = AheadReader::kBits - kGroup * int(CodeTable::kMost) >= CodeTable::kIndexBits;

  template <int... i>
  QELJ_INLINE bool columns(AheadReader& reader, std::integer_sequence<int, i...>) {
    return (difference<i>(reader) && ...);
  }
  template <int i>
  QELJ_INLINE bool difference(AheadReader& reader) {
    constexpr int c = i % kChannels;
    int16_t* const to = offset(dst[c], x + i / kChannels);
    if (!kLooksAhead && i == 0 && !reader.refill()) [[unlikely]]
      return stop(i);
    const auto known = (*tables[c])[reader.next(CodeTable::kIndexBits)];
    if (kLooksAhead && i == 0 && !reader.refill()) [[unlikely]]
      return stop(i);
    if (known.all != 0) [[likely]] {
      store(to, int16_t(reader.takeBoth(known.code, known.all)));
      return true;
    }
    AheadReader copy = reader;  // keeps the loop's own one in registers
    const bool found = ownTakeUnlisted(copy, specs[c], to), going = found && (i == kGroup - 1 || copy.refill());
    reader = copy;
    return going || stop(i + found);
  }
  // In front of difference i.
  bool stop(int i) {
    x += i / kChannels;
    channel = i % kChannels;
    return false;
  }
};

// Stores differences that came one after another, `count` of them, as columns from dst[c][x] on. Those of a last column
// that is not complete go to the front; the result is how many columns were.
template <int kChannels>
[[gnu::noinline]] int32_t ownStoreColumns(int16_t* const* dst, int32_t x, int16_t* differences, int count) {
  using simd::I16;
  const int columns = count / kChannels;
  const int i = int(simd::coverByVectors<simd::kLanes<I16>>(0, columns, [=](ptrdiff_t at) {
    const int16_t* const from = differences + kChannels * at;
    const auto pair = [=](int n) {
      return simd::deinterleave(load<I16>(from + n), load<I16>(from + n + simd::kLanes<I16>));
    };
    const auto to = [=](int c) { return offset(dst[c], x + at); };
    if constexpr (kChannels == 1) {
      store(to(0), load<I16>(from));
    } else if constexpr (kChannels == 2) {
      const auto [c0, c1] = pair(0);
      store(to(0), c0), store(to(1), c1);
    } else if constexpr (kChannels == 3) {
      const auto [c0, c1, c2] = simd::loadTriples<I16>(from);
      store(to(0), c0), store(to(1), c1), store(to(2), c2);
    } else {
      const auto first = pair(0), second = pair(2 * simd::kLanes<I16>);
      const auto even = simd::deinterleave(first.first, second.first),
                 odd = simd::deinterleave(first.second, second.second);
      store(to(0), even.first), store(to(1), odd.first), store(to(2), even.second), store(to(3), odd.second);
    }
  }));
  for (int n = i * kChannels; n < columns * kChannels; ++n)
    store(offset(dst[n % kChannels], x + n / kChannels), differences[n]);
  std::memmove(differences, differences + columns * kChannels, size_t(count - columns * kChannels) * 2);
  return columns;
}

// A call for a long row whose channels have one table. Differences are decoded one or two at a time, whichever channels
// they belong to, and stored as columns some hundred at a time.
template <int kChannels>
struct LongRowCall : DecoderCall {
  static constexpr int kColumns = 256;

  LongRowCall(int16_t* const* dst, int32_t width, const QelDecodeHuffmanSpec* spec, const PairTable* table,
              int16_t (&differences)[kColumns * kChannels])
      : dst(dst), spec(spec), table(table), differences(differences), next(differences), width(width) {}

  QELJ_INLINE void ahead(AheadReader& reader) {
    if (!reader.refill()) [[unlikely]]
      return;
    reader.makeRoom();
    // The room for another code is made already: the last ones are decoded one by one.
    for (const int16_t* end = wanted();; storeColumns(), end = wanted()) {
      while (next < end - 2 * kGroup)
        if (!group(reader, std::make_integer_sequence<int, kGroup>())) return;
      if (width - x <= kColumns) break;
    }
    AheadReader copy = reader;
    while (next < wanted() && ownTakeUnlisted(copy, spec, next)) ++next;
    reader = copy;
    more = next < wanted();
  }

  void step(BitReader<true>& reader) {
    if (next == wanted()) storeColumns();
    status = ownDecodeDifference(reader, spec, next);
    next += status == qelStatusOk;
    more = status == qelStatusOk && (width - x > kColumns || next < wanted());
  }

  // What is left behind the call.
  QelStatus finish() {
    storeColumns();
    for (int c = 0; differences + c < next; ++c) store(offset(dst[c], x), differences[c]);
    return status;
  }

  int16_t* const* dst;
  const QelDecodeHuffmanSpec* spec;
  const PairTable* table;
  int16_t *differences, *next;  // those from column x on, and the place for the next one
  int32_t x = 0, width;

 private:
  // Look-ups to a refill, the first in front of it, which then takes no time of its own.
  static constexpr int kGroup = 4;
  static_assert(AheadReader::kBits - kGroup * PairTable::kIndexBits >= PairTable::kIndexBits);

  const int16_t* wanted() const { return differences + std::min(width - x, kColumns) * kChannels; }
  void storeColumns() {
    const int32_t columns = ownStoreColumns<kChannels>(dst, x, differences, int(next - differences));
    x += columns;
    next -= columns * kChannels;
  }
  template <int... i>
  QELJ_INLINE bool group(AheadReader& reader, std::integer_sequence<int, i...>) {
    return (look<i>(reader) && ...);
  }
  template <int i>
  QELJ_INLINE bool look(AheadReader& reader) {
    const PairTable::Entry known = (*table)[reader.next(PairTable::kIndexBits)];
    if (i == 0 && !reader.refill()) [[unlikely]]
      return false;
    if (known.all() != 0) [[likely]] {
      store(next, known.values);
      next += known.count();
      reader.skipValues(known.all(), known.mark());
      return true;
    }
    AheadReader copy = reader;  // keeps the loop's own one in registers
    const bool found = ownTakeUnlisted(copy, spec, next), going = found && copy.refill();
    if (going) copy.makeRoom();
    reader = copy;
    next += found;
    return going;
  }
};

// False where the table would list too little.
template <int kChannels>
[[gnu::noinline]] bool ownDecodeLongRow(const CodedSource& source, int16_t* const* dst, int32_t width,
                                        const QelDecodeHuffmanSpec* spec, QelStatus& status) {
  PairTable table;
  if (!table.init(spec)) return false;
  int16_t differences[LongRowCall<kChannels>::kColumns * kChannels];
  LongRowCall<kChannels> row(dst, width, spec, &table, differences);
  ownDecodeCall(source, row);
  status = row.finish();
  return true;
}

template <int kChannels>
inline QelStatus ownDecodeRow(const CodedSource& source, int16_t* const* dst, int32_t width,
                              const QelDecodeHuffmanSpec* const* specs) {
  constexpr int32_t kLong = 96, kVeryLong = 768;  // differences that pay for a table of either kind
  if (!simd::kShuffles || width < kLong) {
    RowCall<kChannels> row(dst, width, specs);
    ownDecodeBySteps(source, row);
    return row.status;
  }
  QelStatus status;
  if (width >= kVeryLong / kChannels && std::count(specs, specs + kChannels, specs[0]) == kChannels &&
      ownDecodeLongRow<kChannels>(source, dst, width, specs[0], status))
    return status;
  RowCall<kChannels> row(dst, width, specs);
  CodeTable tables[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    const auto same = int(std::find(specs, specs + c, specs[c]) - specs);
    if (same == c) tables[c].init(specs[c]);
    row.tables[c] = &tables[same];
  }
  ownDecodeCall(source, row);
  return row.status;
}

// Columns are coded in groups, so that little room in front of the destination's end is needed for the fast writer.
template <int kChannels>
inline QelStatus ownEncodeRow(const int16_t* const* src, int32_t width, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                              const QelEncodeHuffmanSpec* const* tables, QelEncodeHuffmanState* state) {
  constexpr int32_t kGroup = 64;
  for (int32_t x = 0; x < width;) {
    const int32_t end = width - x > kGroup ? x + kGroup : width;
    const QelStatus s = ownEncode<kGroup * kChannels * kMaxDifferenceBits>(dst, dstLen, dstPos, state, [=](auto& sink) {
      for (int32_t i = x; i < end; ++i)
        for (int c = 0; c < kChannels; ++c)
          if (auto failed = ownCodeDifference(sink, tables[c], at(src[c], i)); failed) return failed;
      return QelStatus(qelStatusOk);
    });
    if (s) return s;
    x = end;
  }
  return qelStatusOk;
}

constexpr int looked(int32_t channels) { return channels < kMaxChannels ? channels : kMaxChannels; }

// work(N), with the number of channels that are coded as a constant.
template <class Work>
inline QelStatus ownWithChannels(int32_t channels, Work&& work) {
  QelStatus status = qelStatusOk;
  withConstant<1, kMaxChannels>(looked(channels), [&](auto count) { status = work(count); });
  return status;
}

}  // namespace

QelStatus qeliDecodeHuffmanOne_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                             int32_t* marker, const QelDecodeHuffmanSpec* table,
                                             QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst, marker, table, state)); s) return s;
  return ownDecode({src, srcLen, srcPos, marker, state},
                   [&](BitReader<true>& reader) { return ownDecodeDifference(reader, table, dst); });
}

QelStatus qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* const* dst,
                                               int32_t width, int32_t channels, int32_t* marker,
                                               const QelDecodeHuffmanSpec* const* tables,
                                               QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst), length(width), length(channels),
                     nonNull(marker, tables, state));
      s)
    return s;
  if (auto s = check(planes(dst, looked(channels)), planes(tables, looked(channels))); s) return s;
  const CodedSource source{src, srcLen, srcPos, marker, state};
  return ownWithChannels(channels, [&](auto count) { return ownDecodeRow<count>(source, dst, width, tables); });
}

QelStatus qeliEncodeHuffmanOne_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state,
                                             int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = nonNull(src, table); s) return s;
  return ownEncode<kMaxDifferenceBits>(dst, dstLen, dstPos, state,
                                       [=](auto& sink) { return ownCodeDifference(sink, table, at(src, 0)); });
}

QelStatus qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(const int16_t* const* src, int32_t width, int32_t channels, uint8_t* dst,
                                               int32_t dstLen, int32_t* dstPos,
                                               const QelEncodeHuffmanSpec* const* tables, QelEncodeHuffmanState* state,
                                               int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = check(nonNull(src), length(width), length(channels), nonNull(tables)); s) return s;
  if (auto s = check(planes(src, looked(channels)), planes(tables, looked(channels))); s) return s;
  return ownWithChannels(
      channels, [&](auto count) { return ownEncodeRow<count>(src, width, dst, dstLen, dstPos, tables, state); });
}

}  // namespace qelj
