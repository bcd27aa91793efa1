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
  return t < 16 ? sink.code(table, unsigned(t), bits, t) : sink.code(table, unsigned(t));
}
constexpr int kMaxDifferenceBits = 16 + 15;

// Tables of the codes of up to 8 bits whose values are not long, made for one row. What code and value take together
// stands ready, which tells without delay where the next code begins.

// By the next 8 bits; a table for each channel, though they have the same one as a rule.
class CodeTable {
 public:
  static constexpr bool kShared = false;
  static constexpr int kIndexBits = 8;
  static constexpr uint32_t kMost = AheadReader::kBits / 4;  // a refill is enough for four

  struct Entry {
    uint8_t all, code;  // bits; 0 for other codes
    QELJ_INLINE int32_t take(AheadReader& reader) const { return reader.takeBoth(code, all); }
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

// With the values, by as many bits as code and value have together most of the time: for rows that pay for it, in which
// all channels have one table.
class ValueTable {
 public:
  static constexpr bool kShared = true;
  static constexpr int kIndexBits = 11, kMost = kIndexBits;

  struct Entry {
    uint32_t all, code;  // bits; 0 for other codes
    int32_t value;
    QELJ_INLINE int32_t take(AheadReader& reader) const {
      reader.skipBoth(code, all);
      return value;
    }
  };

  // The result is whether the table lists enough: a code of l bits is as frequent as 1 in 2^l, and stands for as many of
  // the 256 beginnings.
  bool init(const QelDecodeHuffmanSpec* spec) {
    // For each 8 bits the entry of what begins with them and zeros. The value's sign is among the 8, so that its further
    // bits count up.
    uint32_t first[256], both[256], listed = 0;
    for (uint32_t i = 0; i < 256; ++i) {
      const uint32_t code = spec->lookup[i] >> 16, category = spec->lookup[i] & 0xFFFF, all = code + category;
      const bool known = (code - 1 < 7) & (category < 16) & (all <= kIndexBits);
      const uint32_t behind = i << (code & 7) & 255, ones = (1u << (category & 15)) - 1;
      const uint32_t value = behind << kMore >> ((kIndexBits - category) & 15);
      const uint32_t extended = value - (behind >> 7 ? 0 : ones);  // EXTEND, F.2.2.1
      first[i] = (extended & 0xFFFF) | code << 16;
      both[i] = known ? all : 0;
      listed += known;
    }
    using Entries = simd::Vec<uint32_t, 4 << kMore>;
    static constexpr auto kSteps = [] {  // by what is taken
      std::array<std::array<uint32_t, 1 << kMore>, kIndexBits + 1> steps{};
      for (unsigned bits = 9; bits <= kIndexBits; ++bits)
        for (unsigned i = 0; i < 1 << kMore; ++i) steps[bits][i] = i >> (kIndexBits - bits);
      return steps;
    }();
    for (size_t i = 0; i < 256; ++i) {
      std::memset(all_ + (i << kMore), int(both[i]), 1 << kMore);
      store(entries_ + (i << kMore), all<Entries>(first[i]) + load<Entries>(kSteps[both[i]].data()));
    }
    return listed >= 256 * 15 / 16;
  }
  Entry operator[](uint32_t bits) const { return {all_[bits], entries_[bits] >> 16, int16_t(entries_[bits])}; }

 private:
  static constexpr uint32_t kMore = kIndexBits - 8;
  uint32_t entries_[256 << kMore];  // code << 16 | value
  uint8_t all_[256 << kMore];       // apart, so that a load tells where the next code begins
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
template <int kChannels, class Table>
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
  const Table* tables[kChannels];
  int32_t x = 0, width;
  int channel = 0;

 private:
  // Differences to a refill, and columns at once; whether what a group leaves is enough to look up the next one's first
  // difference in front of the refill, which then takes no time of its own.
  static constexpr int kGroup = kChannels == 3 ? 3 : 4, kColumns = kGroup / kChannels;
  static constexpr bool kLooksAhead = AheadReader::kBits - kGroup * int(Table::kMost) >= Table::kIndexBits;

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
    const auto known = (*tables[Table::kShared ? 0 : c])[reader.next(Table::kIndexBits)];
    if (kLooksAhead && i == 0 && !reader.refill()) [[unlikely]]
      return stop(i);
    if (known.all != 0) [[likely]] {
      store(to, int16_t(known.take(reader)));
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

// A row with its tables, in memory of the call's.
template <int kChannels, class Table, class Make>
QELJ_INLINE QelStatus ownDecodeRowBy(const CodedSource& source, int16_t* const* dst, int32_t width,
                                     const QelDecodeHuffmanSpec* const* specs, Make&& make) {
  RowCall<kChannels, Table> row(dst, width, specs);
  make(row.tables);
  ownDecodeCall(source, row);
  return row.status;
}

template <int kChannels>
inline QelStatus ownDecodeRow(const CodedSource& source, int16_t* const* dst, int32_t width,
                              const QelDecodeHuffmanSpec* const* specs) {
  constexpr int32_t kLong = 96, kVeryLong = 768;  // differences that pay for a table of either kind
  if (!simd::kShuffles || width < kLong) {
    RowCall<kChannels, CodeTable> row(dst, width, specs);
    ownDecodeBySteps(source, row);
    return row.status;
  }
  if (width >= kVeryLong / kChannels && std::count(specs, specs + kChannels, specs[0]) == kChannels) {
    ValueTable memory;
    if (memory.init(specs[0]))
      return ownDecodeRowBy<kChannels, ValueTable>(source, dst, width, specs,
                                                   [&](auto& tables) { tables[0] = &memory; });
  }
  CodeTable memory[kChannels];
  return ownDecodeRowBy<kChannels, CodeTable>(source, dst, width, specs, [&](auto& tables) {
    for (int c = 0; c < kChannels; ++c) {
      const auto same = int(std::find(specs, specs + c, specs[c]) - specs);
      if (same == c) memory[c].init(specs[c]);
      tables[c] = &memory[same];
    }
  });
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
