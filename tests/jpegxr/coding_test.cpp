#include <gtest/gtest.h>

#include <array>
#include <set>

#include "jpegxr/state.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using Bits = std::string;  // of '0' and '1'
Bits bitsOf(const uint8_t* from, const uint8_t* to, uint32_t bitBuffer, int32_t bitCount) {
  Bits bits;
  for (; from < to; ++from)
    for (int b = 7; b >= 0; --b) bits += char('0' + (*from >> b & 1));
  for (int b = 31; b > 31 - bitCount; --b) bits += char('0' + (bitBuffer >> b & 1));
  return bits;
}

// A record at an odd address, in memory that held something, and a bit position on a buffer of its own.
struct Coder {
  explicit Coder(size_t capacity = 4096) : random(0), record(random, 2208, 1, 0, 3), bytes(capacity) {
    EXPECT_EQ(qelStatusOk, qeliVLCInit_JPEGXR(&state()));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(qelStatusOk, qeliVLCScanReset_JPEGXR(&state(), i));
    rewind();
  }
  VLCState& state() { return *record.data<VLCState>(); }
  void rewind() { stream = bytes.data(), readStream = bytes.data(), bitBuffer = 0, bitCount = 0; }
  Bits bits() { return bitsOf(bytes.data(), stream, bitBuffer, bitCount); }
  // Makes the encoder's bytes readable: the held bits go out, and a margin stays behind them.
  void load(Coder& encoder) {
    std::copy(encoder.bytes.begin(), encoder.bytes.end(), bytes.begin());
    uint8_t* p = bytes.data() + (encoder.stream - encoder.bytes.data());
    for (int b = 24; b >= 0; b -= 8) *p++ = uint8_t(encoder.bitBuffer >> b);
  }
  int64_t bitsRead() const { return (readStream - bytes.data()) * 8 - bitCount; }
  int64_t bitsWritten() const { return (stream - bytes.data()) * 8 + bitCount; }
  bool sameAdaptation(Coder& other) {  // behind the pointers
    const size_t pointers = (1 + 5 * kEntries) * sizeof(void*);
    return !std::memcmp(record.data() + pointers, other.record.data() + pointers,
                        sizeof(VLCState) - pointers);
  }

  Random random;
  Guarded record;
  std::vector<uint8_t> bytes;
  uint8_t* stream;
  const uint8_t* readStream;
  uint32_t bitBuffer;
  int32_t bitCount;
};

template <class T>
using Block = std::array<T, 16>;
template <class T>
constexpr int32_t kStep = 4 * sizeof(T);

template <class T>
struct Of;
#define QELJ_CODERS(T, tag)                                                       \
  template <>                                                                     \
  struct Of<T> {                                                                  \
    static constexpr auto encode = qeliVLCEncode4x4_JPEGXR_##tag##1u_C1R;         \
    static constexpr auto encodeFlex = qeliVLCEncode4x4Flex_JPEGXR_##tag##1u_C1R; \
    static constexpr auto decode = qeliVLCDecode4x4_JPEGXR_1u##tag##_C1R;         \
    static constexpr auto encodeFixed = qeliFLCEncode4x4_JPEGXR_##tag##1u_C1R;    \
    static constexpr auto decodeFixed = qeliFLCDecode4x4_JPEGXR_1u##tag##_C1IR;   \
  };
QELJ_CODERS(int16_t, 16s)
QELJ_CODERS(int32_t, 32s)

template <class T>
int32_t encode(Coder& c, const Block<T>& block, int chroma, uint32_t modelBits, uint32_t trimBits = 0,
               uint32_t* residual = nullptr) {
  int32_t pairs = -1;
  EXPECT_EQ(qelStatusOk,
            residual ? Of<T>::encodeFlex(block.data(), kStep<T>, chroma, modelBits, trimBits, residual,
                                         &c.stream, &c.bitBuffer, &c.bitCount, &pairs, &c.state())
                     : Of<T>::encode(block.data(), kStep<T>, chroma, modelBits, &c.stream, &c.bitBuffer,
                                     &c.bitCount, &pairs, &c.state()));
  return pairs;
}
template <class T>
int32_t decode(Coder& c, Block<T>& block, int chroma, T scale) {
  int32_t count = -1;
  EXPECT_EQ(qelStatusOk, Of<T>::decode(&c.readStream, &c.bitBuffer, &c.bitCount, scale, block.data(),
                                       kStep<T>, chroma, &count, &c.state()));
  return count;
}
template <class T>
void encodeFixed(Coder& c, const Block<T>& block, const uint32_t* residual, uint32_t flexBits,
                 uint32_t trimBits, bool fromResidual) {
  EXPECT_EQ(qelStatusOk, Of<T>::encodeFixed(block.data(), kStep<T>, residual, &c.stream, &c.bitBuffer,
                                            &c.bitCount, flexBits, trimBits, fromResidual));
}
template <class T>
void decodeFixed(Coder& c, Block<T>& block, uint32_t flexBits, T scale, bool refine) {
  EXPECT_EQ(qelStatusOk, Of<T>::decodeFixed(&c.readStream, &c.bitBuffer, &c.bitCount, block.data(), kStep<T>,
                                            flexBits, scale, refine));
}

// --- state -------------------------------------------------------------------------------------------------

TEST(VlcState, Initialisation) {
  int32_t size = 0;
  ASSERT_EQ(qelStatusOk, qeliVLCGetStateSize_JPEGXR(&size));
  EXPECT_EQ(sizeof(void*) == 8 ? 2208 : 1780, size);
  Coder c;
  const VLCState& s = c.state();
  EXPECT_EQ(+s.scanTable2, +s.currentScan);
  for (int e = 0; e < kEntries; ++e) {
    const VLCEntry entry = s.entry[e];
    EXPECT_EQ(0, int(s.discriminant[e]));
    if (e >= 1 && e <= 4) {
      EXPECT_TRUE(!entry.tableIndex && !entry.initialised && !entry.upperBound && !entry.lowerBound);
      continue;
    }
    const bool two = entry.alphabet == 6 || entry.alphabet == 12;
    EXPECT_EQ(int(two), int(entry.tableIndex));
    EXPECT_EQ(8, int(entry.upperBound));
    EXPECT_EQ(two ? -8 : INT32_MIN, int(entry.lowerBound));
    EXPECT_EQ(int(entry.alphabet), s.codeTable[e][0]);
  }
  EXPECT_EQ(5, s.codeTable[0][0]);
  EXPECT_EQ((std::vector<int32_t>{5, 1, 1, 1, 2, 1, 3, 0, 4, 1, 4}),
            std::vector<int32_t>(s.codeTable[0], s.codeTable[0] + 11));
}

// Every code of every table that adaptation can reach, decoded in both ways.
TEST(VlcState, DecodeTablesInvertTheCodeTables) {
  Coder c;
  VLCState& s = c.state();
  for (const int alphabet : {5, 6, 7, 8, 9, 12})
    for (int table = 0; table < 5; ++table) {
      s.entry[5] = {alphabet, table, 1, 100, -100};
      s.discriminant[5] = s.discriminant2[5] = 0;
      qeliVLCAdapt_JPEGXR(&s, 0);
      const int32_t* codes = s.codeTable[5];
      for (int symbol = 0; symbol < alphabet; ++symbol) {
        const uint32_t code = uint32_t(codes[1 + 2 * symbol]), length = uint32_t(codes[2 + 2 * symbol]);
        const uint32_t bits = code << (8 - length);
        int value = s.decodeTable[5][bits >> 3];
        if (value >= 0) {
          EXPECT_EQ(uint32_t(symbol) << 3 | length, uint32_t(value));
        } else {
          uint32_t used = 5;
          while (value < 0) value = s.decodeTable[5][(value & 0x7FFF) + int(bits >> (7 - used++) & 1)];
          EXPECT_EQ(symbol, value);
          EXPECT_EQ(length, used);
        }
        if (s.decodeTable2[5] != s.decodeTable[5]) {
          EXPECT_EQ(uint32_t(symbol) << 4 | length, uint32_t(s.decodeTable2[5][bits]));
        }
      }
    }
}

TEST(VlcState, AdaptationMovesBeyondTheBoundsOnly) {
  Coder c;
  VLCState& s = c.state();
  const auto adapted = [&](int32_t low, int32_t high) {
    s.discriminant[13] = low, s.discriminant2[13] = high;
    qeliVLCAdapt_JPEGXR(&s, 1);
    return int(s.entry[13].tableIndex);
  };
  EXPECT_EQ(1, adapted(-8, 8));
  EXPECT_EQ(8, int(s.discriminant2[13]));  // kept
  EXPECT_EQ(2, adapted(0, 9));
  EXPECT_EQ(0, int(s.discriminant2[13]));
  EXPECT_EQ(1, adapted(-9, 9));  // down goes first
  EXPECT_EQ(0, adapted(-9, 0));
  EXPECT_EQ(0, adapted(-1000, -1000));
  EXPECT_EQ(-64, int(s.discriminant[13]));
  for (int t = 1; t <= 4; ++t) EXPECT_EQ(t, adapted(0, 9));
  EXPECT_EQ(4, adapted(0, 1000));
  EXPECT_EQ(64, int(s.discriminant2[13]));
  EXPECT_EQ(8, int(s.entry[0].upperBound));  // the other group stays
}

TEST(VlcScan, DcWalkSplitsAndSorts) {
  Coder c;
  std::vector<int32_t> src(16), pairs(30, 77);
  std::vector<uint32_t> residual(16, 77);
  int32_t count = 0;
  src[0] = 99, src[1] = -3, src[4] = -5, src[15] = INT32_MIN;
  ASSERT_EQ(qelStatusOk,
            qeliVLCScan4x4DC_JPEGXR_32s(src.data(), 2, residual.data(), pairs.data(), &count, &c.state()));
  EXPECT_EQ(2, count);
  EXPECT_EQ((std::vector<int32_t>{1, -1, 12, -0x20000000, 77}),
            std::vector<int32_t>(pairs.begin(), pairs.begin() + 5));
  EXPECT_EQ((std::vector<uint32_t>{77, 15, 0, 0, 2, 0}),
            std::vector<uint32_t>(residual.begin(), residual.begin() + 6));
  EXPECT_EQ(0u, residual[15]);
  // Place 2 (position 4) passes place 1 when it has been significant three times: 30 + 3 > 32.
  const ScanEntry* scan = c.state().scanTable2;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(4, int(scan[2].position));
    qeliVLCScan4x4DC_JPEGXR_32s(src.data(), 2, residual.data(), pairs.data(), &count, &c.state());
  }
  EXPECT_TRUE(scan[1].position == 4 && scan[1].count == 33 && scan[2].count == 32 && scan[2].position == 1);
  // A reset restores the counts and leaves the order.
  ASSERT_EQ(qelStatusOk, qeliVLCScanReset_JPEGXR(&c.state(), 2));
  EXPECT_TRUE(scan[1].position == 4 && scan[1].count == 32 && scan[15].count == 4 && scan[0].count == 32767);

  residual.assign(16, 77);
  qeliVLCScan4x4DC_JPEGXR_32s(src.data(), 0, residual.data(), pairs.data(), &count, &c.state());
  EXPECT_EQ(std::vector<uint32_t>(16, 77), residual);
  EXPECT_EQ(3, count);
}

// --- known streams -----------------------------------------------------------------------------------------

// In the start tables. Place 1 has room for a first coefficient alone; 14 and 15 have no adaptive codes.
TEST(VlcBlock, KnownStreams) {
  const auto coded = [](std::initializer_list<std::pair<int, int>> placed) {
    Coder c;
    Block<int16_t> block{};
    block[0] = 1234;
    for (const auto& [place, v] : placed) {
      const ScanEntry at = c.state().scanTable2[place];
      block[4 * at.row + at.column] = int16_t(v);
    }
    EXPECT_EQ(int(placed.size()), encode(c, block, 0, 0));
    return c.bits();
  };
  const auto joined = [](Bits bits) { return std::erase(bits, ' '), bits; };
  EXPECT_EQ("", coded({}));
  // First index 1, sign; 3, sign, escape, length 4, bits; 0, sign, class 4, run 7 + 7.
  EXPECT_EQ(joined("00010 0"), coded({{1, 1}}));
  EXPECT_EQ(joined("000001 1 00001 0000 0000"), coded({{1, -18}}));
  EXPECT_EQ(joined("0010 0 0001 111"), coded({{15, 1}}));
  // A neighbour: 5, sign; index 1 in context 1, sign, level 0.
  EXPECT_EQ(joined("010 0 0000 1 01"), coded({{1, 1}, {2, -2}}));
  // Behind a run of 2 in 4 places: 8, sign, class 4, run 7 + 2; the run, index 0 in context 0, sign.
  EXPECT_EQ(joined("011 0 0001 010 01 01 0"), coded({{10, 1}, {13, 1}}));
  // Place 14 has a fixed code, 0 for a last 1, 3 for a larger one with a neighbour; place 15 has a bit.
  EXPECT_EQ(joined("0011 0 0001 101 0 1"), coded({{13, 1}, {14, -1}}));
  EXPECT_EQ(joined("0011 0 0001 110 1 1 01"), coded({{14, 1}, {15, -2}}));
  EXPECT_EQ(joined("0011 0 0001 101 111 0 01 0 0"), coded({{13, 1}, {14, 2}, {15, 1}}));
}

TEST(VlcBlock, PositionFollowsFromTheNumberOfBits) {
  const Block<int16_t> blocks[] = {{}, {0, 1}, {0, 900, -7, 3, 5, 5, 0, 0, 1, -1, 2, 8, 0, 0, 0, -3000}};
  for (const auto& block : blocks)
    for (int32_t held = 0; held <= 32; ++held) {
      Coder plain, shifted;
      encode(plain, block, 0, 0);
      shifted.bitCount = held;
      shifted.bitBuffer = uint32_t(0xA5A5A5A5ull >> (32 - held) << (32 - held));
      const Bits before = shifted.bits();
      encode(shifted, block, 0, 0);
      EXPECT_EQ(before + plain.bits(), shifted.bits());
      const int64_t total = int64_t(before.size() + plain.bits().size());
      EXPECT_EQ(total ? (total - 1) % 16 + 1 : 0, shifted.bitCount);
      EXPECT_EQ(0u, uint64_t(shifted.bitBuffer) << shifted.bitCount & 0xFFFFFFFF);
    }
}

TEST(VlcBlock, ReadersStayBeforeTheReturnedPointer) {
  Random random(5);
  for (int round = 0; round < 300; ++round) {
    Coder encoder, decoder, tight;
    Block<int32_t> block{}, out;
    for (auto& v : block) v = random.chance(50) ? int32_t(random.bits()) >> random.in(2, 31) : 0;
    block[1] = 1 << 20;
    uint32_t residual[16];
    const auto bits = uint32_t(random.in(0, 15));
    encode(encoder, block, 1, bits, 0, residual);
    encodeFixed(encoder, block, residual, bits, 0, true);
    decoder.load(encoder);
    const auto decodeBoth = [&](Coder& c) {
      decode(c, out, 1, 1 << bits);
      const auto between = c.readStream;
      decodeFixed(c, out, bits, 1, true);
      return between;
    };
    const auto start = decoder.bytes.data();
    const size_t blockBytes = size_t(decodeBoth(decoder) - start), all = size_t(decoder.readStream - start);
    PageBuffer first(blockBytes), second(all);
    first.assign(start, blockBytes), second.assign(start, all);
    tight.readStream = first.data();
    decode(tight, out, 1, 1 << bits);
    EXPECT_EQ(first.data() + blockBytes, tight.readStream);
    tight.readStream = second.data() + blockBytes;
    decodeFixed(tight, out, bits, 1, true);
    EXPECT_EQ(second.data() + all, tight.readStream);
    EXPECT_TRUE(decoder.bitCount == tight.bitCount && decoder.bitBuffer == tight.bitBuffer);
    EXPECT_TRUE(decoder.bitCount >= 16 && decoder.bitCount < 32);
    out[0] = block[0];
    EXPECT_EQ(block, out);
  }
}

// Blocks of one kind: how many of the first coefficients are zero, how many of the others above 1, and how
// large those get.
struct Statistics {
  explicit Statistics(Random& random) {
    constexpr int kZeros[] = {98, 93, 60, 20, 2}, kLarge[] = {0, 20, 95}, kWidth[] = {0, 1, 4, 12, 30},
                  kLast[] = {1, 2, 5, 15, 15};
    zeros = kZeros[random.in(0, 4)], large = kLarge[random.in(0, 2)], width = kWidth[random.in(0, 4)],
    last = kLast[random.in(0, 4)];
  }
  template <class Values>
  void fill(Random& random, Values& values, int mostBits) const {
    for (size_t k = 0; k < values.size(); ++k) {
      const int64_t bits = int64_t(random.bits() & ((1ull << std::min(width, mostBits)) - 1));
      const int64_t v = int(k) > last || random.chance(zeros) ? 0 : random.chance(large) ? 2 + bits : 1;
      values[k] = typename Values::value_type(random.chance(50) ? v : -v);
    }
  }
  int zeros, large, width, last;
};

// Adapts a group; now and then with other discriminants than the data gave, so that every table has its turn.
void adaptBy(Coder& c, int group, size_t turn) {
  Random random(turn);
  if (random.chance(30))
    for (int e = 0; e < kEntries; ++e)
      c.state().discriminant[e] = c.state().discriminant2[e] = int32_t(random.in(-1, 1) * 9);
  qeliVLCAdapt_JPEGXR(&c.state(), group);
}

// --- there and back ----------------------------------------------------------------------------------------

template <class T>
class VlcRoundTrip : public testing::Test {};
using Samples = testing::Types<int16_t, int32_t>;
TYPED_TEST_SUITE(VlcRoundTrip, Samples);

// One long stream on one record, in phases of different statistics, so that every class goes through all its
// tables.
TYPED_TEST(VlcRoundTrip, BlocksWithFlexBits) {
  using T = TypeParam;
  Coder encoder(1 << 20), decoder(1 << 20);
  Random random(6);
  struct Coded {
    Block<T> block;
    int chroma, scan;
    uint32_t modelBits, trimBits;
    int32_t pairs;
    bool adapt, reset;
  };
  std::vector<Coded> all;
  std::set<std::pair<int, int>> seen;  // (entry, table)
  Statistics statistics(random);
  for (int i = 0; i < 8000; ++i) {
    Coded now{};
    if (i % 100 == 0) statistics = Statistics(random);
    statistics.fill(random, now.block, 8 * sizeof(T) - 2);
    now.chroma = int(random.in(0, 1)), now.scan = int(random.in(0, 1));
    now.modelBits = random.chance(70) ? 0 : uint32_t(random.in(0, 15));
    now.trimBits = uint32_t(random.in(0, now.modelBits));
    now.adapt = i % 7 == 6, now.reset = i % 50 == 49;
    uint32_t residual[16];
    qeliVLCScanSet_JPEGXR(&encoder.state(), uint32_t(now.scan));
    now.pairs = encode(encoder, now.block, now.chroma, now.modelBits, now.trimBits, residual);
    encodeFixed(encoder, now.block, residual, now.modelBits - now.trimBits, 0, true);
    if (now.adapt) adaptBy(encoder, 1, all.size());
    if (now.reset) qeliVLCScanReset_JPEGXR(&encoder.state(), now.scan);
    for (int e = kHighFirst; e < kEntries; ++e) seen.insert({e, int(encoder.state().entry[e].tableIndex)});
    all.push_back(now);
  }
  EXPECT_EQ(2u * 5 + 4 * 4 + 2 * 2, seen.size());

  decoder.load(encoder);
  for (size_t i = 0; i < all.size(); ++i) {
    const Coded& now = all[i];
    Block<T> block;
    block.fill(T(55));
    qeliVLCScanSet_JPEGXR(&decoder.state(), uint32_t(now.scan));
    if (now.pairs) {
      ASSERT_EQ(now.pairs, decode(decoder, block, now.chroma, T(1 << now.modelBits)));
    } else {
      block.fill(0);
    }
    decodeFixed(decoder, block, now.modelBits - now.trimBits, T(1 << now.trimBits), true);
    EXPECT_EQ(now.pairs ? 55 : 0, block[0]);
    for (size_t k = 1; k < 16; ++k) {
      const int64_t v = now.block[k], kept = std::abs(v) >> now.trimBits << now.trimBits;
      ASSERT_EQ(T(v < 0 ? -kept : kept), block[k]) << now.modelBits << " " << now.trimBits;
    }
    if (now.adapt) adaptBy(decoder, 1, i);
    if (now.reset) qeliVLCScanReset_JPEGXR(&decoder.state(), now.scan);
  }
  EXPECT_EQ(encoder.bitsWritten(), decoder.bitsRead());
  EXPECT_TRUE(encoder.sameAdaptation(decoder));
}

TEST(VlcBlock, EveryEscapeLengthAndTheExtremes) {
  for (int width = 4; width <= 29; ++width)
    for (const int32_t v : {(1 << width) + 2, (2 << width) - 1 + 2, -(1 << width) - 3}) {
      Coder encoder, decoder;
      Block<int32_t> block{}, out{};
      block[7] = v;
      encode(encoder, block, 0, 0);
      decoder.load(encoder);
      EXPECT_EQ(1, decode(decoder, out, 0, 1));
      EXPECT_EQ(block, out);
      EXPECT_EQ(encoder.bitsWritten(), decoder.bitsRead());
    }
  // Magnitudes of the most negative integers; a level of 16 bits, and a product that wraps.
  Coder encoder, decoder;
  Block<int16_t> block{}, out{};
  block[7] = INT16_MIN;
  encode(encoder, block, 0, 3);
  encode(encoder, block, 0, 0);
  decoder.load(encoder);
  decode<int16_t>(decoder, out, 0, 8);
  EXPECT_EQ(block, out);
  decode<int16_t>(decoder, out, 0, 3);
  EXPECT_EQ(INT16_MIN, out[7]);  // -3 * 2^15 in 16 bits
}

TEST(FlcBlock, BlockFormAndKnownFields) {
  for (uint32_t n = 0; n <= 15; ++n)
    for (uint32_t trim = 0; trim + n <= 15; ++trim) {
      Coder c, back;
      Block<int16_t> block{}, out{};
      const uint32_t unused[16] = {};
      const int64_t top = (1 << (n + trim)) - 1;
      for (auto& v : block) v = int16_t(c.random.in(-top, top));
      encodeFixed(c, block, unused, n, trim, false);
      back.load(c);
      decodeFixed<int16_t>(back, out, n, int16_t(1 << trim), false);
      EXPECT_EQ(c.bitsWritten(), back.bitsRead());
      for (size_t k = 1; k < 16; ++k) ASSERT_EQ(block[k] / (1 << trim) * (1 << trim), out[k]);
      EXPECT_EQ(0, out[0]);
    }
  Coder c;
  Block<int32_t> block{};
  uint32_t residual[16] = {1, 0, 2, 4};  // position 0 isn't coded
  encodeFixed(c, block, residual, 0, 0, true);
  EXPECT_EQ("", c.bits());
  residual[5] = 1, residual[1] = 3;
  encodeFixed(c, block, residual, 0, 0, true);
  EXPECT_EQ("01", c.bits());
  block[2] = -1;  // position 5, the first; then fourteen fields of 00
  c.rewind();
  encodeFixed(c, block, residual, 2, 0, false);
  EXPECT_EQ("011" + Bits(28, '0'), c.bits());
  // A sign goes with a value above 0 whose low bits are 0.
  block[2] = -4, c.rewind();
  encodeFixed(c, block, residual, 2, 0, false);
  EXPECT_EQ("001" + Bits(28, '0'), c.bits());

  Coder d;  // a negative sample grows downwards by a field without a sign
  d.bytes[0] = 0x50;
  Block<int32_t> refined{};
  refined[2] = -6, refined[1] = 6;
  decodeFixed(d, refined, 2, 2, true);
  EXPECT_EQ(-8, refined[2]);
  EXPECT_EQ(8, refined[1]);
  Coder empty;  // no bits, and still the fetch
  decodeFixed(empty, refined, 0, 2, true);
  EXPECT_TRUE(empty.bitCount == 16 && empty.readStream == empty.bytes.data() + 2);
}

// --- DC blocks ---------------------------------------------------------------------------------------------

TEST(VlcDc, RoundTripsThroughAllTables) {
  Coder encoder(1 << 20), decoder(1 << 20);
  Random random(7);
  struct Coded {
    int kind, chroma;
    std::vector<int32_t> values, pairs;
  };
  std::vector<Coded> all;
  std::set<std::pair<int, int>> seen;
  Statistics statistics(random);
  for (int i = 0; i < 8000; ++i) {
    Coded now{int(random.in(0, 2)), int(random.in(0, 1)), {}, std::vector<int32_t>(32)};
    if (i % 100 == 0) statistics = Statistics(random);
    now.values.resize(now.kind == 0 ? 16 : now.kind == 1 ? 14 : 6);
    statistics.fill(random, now.values, 29);
    int32_t count = 0;
    if (now.kind == 0) {
      uint32_t residual[16];
      qeliVLCScan4x4DC_JPEGXR_32s(now.values.data(), 0, residual, now.pairs.data(), &count, &encoder.state());
    } else {
      int32_t run = 0;
      for (const int32_t v : now.values)
        if (v)
          now.pairs[size_t(2 * count)] = run, now.pairs[size_t(2 * count++) + 1] = v, run = 0;
        else
          ++run;
    }
    if (!count) continue;
    if (now.kind == 0)
      qeliVLCEncodeDC444_JPEGXR_32s1u(now.pairs.data(), count, now.chroma, &encoder.stream,
                                      &encoder.bitBuffer, &encoder.bitCount, &encoder.state());
    else
      (now.kind == 1 ? qeliVLCEncodeDC422_JPEGXR_32s1u : qeliVLCEncodeDC420_JPEGXR_32s1u)(
          now.pairs.data(), count, &encoder.stream, &encoder.bitBuffer, &encoder.bitCount, &encoder.state());
    now.pairs.resize(size_t(count));
    if (all.size() % 8 == 7) adaptBy(encoder, 0, all.size());
    for (int e = kLowFirst; e < kHighFirst; ++e) seen.insert({e, int(encoder.state().entry[e].tableIndex)});
    all.push_back(now);
  }
  EXPECT_EQ(2u * 5 + 4 * 4 + 2 * 2, seen.size());

  decoder.load(encoder);
  for (size_t i = 0; i < all.size(); ++i) {
    const Coded& now = all[i];
    std::vector<int32_t> out(16, now.kind ? 9 : 0);
    int32_t count = 0;
    auto& d = decoder;
    if (now.kind == 0)
      qeliVLCDecodeDC444_JPEGXR_1u32s(&d.readStream, &d.bitBuffer, &d.bitCount, out.data(), now.chroma,
                                      &count, &d.state());
    else
      (now.kind == 1 ? qeliVLCDecodeDC422_JPEGXR_1u32s : qeliVLCDecodeDC420_JPEGXR_1u32s)(
          &d.readStream, &d.bitBuffer, &d.bitCount, out.data(), &count, &d.state());
    ASSERT_EQ(int(now.pairs.size()), count);
    for (size_t k = now.kind == 0; k < now.values.size(); ++k) ASSERT_EQ(now.values[k], out[k]);
    for (size_t k = now.values.size(); k < 16; ++k) EXPECT_EQ(9, out[k]);
    if (i % 8 == 7) adaptBy(d, 0, i);
  }
  EXPECT_EQ(encoder.bitsWritten(), decoder.bitsRead());
  EXPECT_TRUE(encoder.sameAdaptation(decoder));
}

TEST(VlcDc, RunsBehindTheEnd) {
  for (const int32_t run : {5, 6}) {
    Coder encoder, decoder;
    const int32_t pair[2] = {run, -3};
    qeliVLCEncodeDC420_JPEGXR_32s1u(pair, 1, &encoder.stream, &encoder.bitBuffer, &encoder.bitCount,
                                    &encoder.state());
    decoder.load(encoder);
    std::vector<int32_t> out(6, 9), wanted(6);
    int32_t count = 44;
    EXPECT_EQ(qelStatusOk,
              qeliVLCDecodeDC420_JPEGXR_1u32s(&decoder.readStream, &decoder.bitBuffer, &decoder.bitCount,
                                              out.data(), &count, &decoder.state()));
    if (run == 5) wanted[5] = -3;
    EXPECT_EQ(wanted, out);
    EXPECT_EQ(run == 5 ? 1 : 44, count);
    EXPECT_EQ(encoder.bitsWritten(), decoder.bitsRead());
  }
}

TEST(VlcBlock, CorruptStreamsStayInTheBlock) {
  Random random(8);
  std::set<int32_t> counts;
  for (int round = 0; round < 3000; ++round) {
    Coder c;
    random.fill(c.bytes.data(), 256);
    if (round % 3 == 0) std::fill_n(c.bytes.begin(), random.in(0, 40), uint8_t(random.in(0, 3)));
    Guarded block(random, 8, 4, 11, 1), dc(random, 64, 1, 0, 3);
    int32_t count = 0;
    qeliVLCDecode4x4_JPEGXR_1u16s_C1R(&c.readStream, &c.bitBuffer, &c.bitCount, 1, block.data<int16_t>(), 11,
                                      0, &count, &c.state());
    EXPECT_TRUE(block.intact());
    EXPECT_TRUE(count >= 1 && count <= 16);
    counts.insert(count);
    qeliVLCDecodeDC444_JPEGXR_1u32s(&c.readStream, &c.bitBuffer, &c.bitCount, dc.data<int32_t>(), 0, &count,
                                    &c.state());
    EXPECT_TRUE(dc.intact() && c.record.intact());
  }
  EXPECT_TRUE(counts.contains(16));
}

// --- arguments ---------------------------------------------------------------------------------------------

TEST(VlcChecks, EveryArgumentInOrder) {
  constexpr auto kNull = qelStatusNullPointer, kRange = qelStatusOutOfRange;
  Coder c;
  int16_t n[16] = {};
  int32_t w[16] = {};
  uint32_t residual[16] = {};
  int32_t pairs[32] = {0, 1}, count = 5, big = 33, negative = -1, none = 0;
  uint32_t held = 0;
  uint8_t* null = nullptr;
  const uint8_t* nullIn = nullptr;
  uint8_t* out = c.bytes.data();
  const uint8_t* in = c.bytes.data();
  const auto record = c.record.whole();
  VLCState* s = &c.state();

  EXPECT_EQ(kNull, qeliVLCGetStateSize_JPEGXR(nullptr));
  EXPECT_EQ(kNull, qeliVLCInit_JPEGXR(nullptr));
  EXPECT_EQ(kNull, qeliVLCAdapt_JPEGXR(nullptr, 2));
  EXPECT_EQ(kRange, qeliVLCAdapt_JPEGXR(s, 2));
  EXPECT_EQ(kNull, qeliVLCScanReset_JPEGXR(nullptr, 3));
  EXPECT_EQ(kRange, qeliVLCScanReset_JPEGXR(s, -1));
  EXPECT_EQ(kNull, qeliVLCScanSet_JPEGXR(nullptr, 3));
  EXPECT_EQ(kRange, qeliVLCScanSet_JPEGXR(s, 3));
  EXPECT_EQ(kRange, qeliVLCScan4x4DC_JPEGXR_32s(w, 16, residual, pairs, &count, s));
  EXPECT_EQ(kNull, qeliVLCScan4x4DC_JPEGXR_32s(w, 16, residual, nullptr, &count, s));

  for (int32_t* bad : {&big, &negative}) {
    EXPECT_EQ(kNull, qeliVLCEncode4x4_JPEGXR_16s1u_C1R(n, 8, 0, 16, &null, &held, bad, &count, s));
    EXPECT_EQ(kRange, qeliVLCEncode4x4_JPEGXR_16s1u_C1R(n, 8, 0, 0, &out, &held, bad, &count, s));
    EXPECT_EQ(kRange, qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&in, &held, bad, 1, w, 16, 0, &count, s));
    EXPECT_EQ(kNull, qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&nullIn, &held, bad, 1, w, 16, 0, &count, s));
    EXPECT_EQ(kRange, qeliVLCEncodeDC422_JPEGXR_32s1u(pairs, 1, &out, &held, bad, s));
    EXPECT_EQ(kRange, qeliVLCDecodeDC422_JPEGXR_1u32s(&in, &held, bad, w, &count, s));
    EXPECT_EQ(kRange, qeliFLCEncode4x4_JPEGXR_16s1u_C1R(n, 8, residual, &out, &held, bad, 0, 0, 1));
    EXPECT_EQ(kRange, qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(&in, &held, bad, n, 8, 0, 1, 1));
  }
  EXPECT_EQ(kRange, qeliVLCEncode4x4_JPEGXR_32s1u_C1R(w, 16, 0, 16, &out, &held, &none, &count, s));
  EXPECT_EQ(kRange,
            qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(w, 16, 0, 0, 16, residual, &out, &held, &none, &count, s));
  EXPECT_EQ(kNull,
            qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(w, 16, 0, 0, 16, nullptr, &out, &held, &none, &count, s));
  EXPECT_EQ(kRange, qeliFLCEncode4x4_JPEGXR_32s1u_C1R(w, 16, residual, &out, &held, &none, 16, 0, 1));
  EXPECT_EQ(kRange, qeliFLCEncode4x4_JPEGXR_32s1u_C1R(w, 16, residual, &out, &held, &none, 0, 16, 1));
  EXPECT_EQ(kRange, qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(&in, &held, &none, w, 16, 16, 1, 1));
  EXPECT_EQ(kRange, qeliVLCEncodeDC444_JPEGXR_32s1u(pairs, 17, 0, &out, &held, &none, s));
  EXPECT_EQ(kRange, qeliVLCEncodeDC422_JPEGXR_32s1u(pairs, 15, &out, &held, &none, s));
  EXPECT_EQ(kRange, qeliVLCEncodeDC420_JPEGXR_32s1u(pairs, 7, &out, &held, &none, s));
  EXPECT_EQ(kNull, qeliVLCEncodeDC420_JPEGXR_32s1u(nullptr, 7, &out, &held, &none, s));
  EXPECT_EQ(kNull, qeliVLCDecodeDC420_JPEGXR_1u32s(&nullIn, &held, &none, w, &count, s));
  EXPECT_EQ(kNull, qeliVLCDecodeDC444_JPEGXR_1u32s(&in, &held, &none, w, 0, &count, nullptr));

  EXPECT_TRUE(record == c.record.whole() && out == c.bytes.data() && in == out && held == 0 && none == 0 &&
              count == 5);
  EXPECT_EQ(qelStatusOk, qeliVLCEncodeDC420_JPEGXR_32s1u(pairs, 6, &out, &held, &none, s));
}

}  // namespace
}  // namespace qelj::test
