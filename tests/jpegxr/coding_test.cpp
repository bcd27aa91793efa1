#include <gtest/gtest.h>

#include <array>

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
      qeliVLCAdapt_JPEGXR(&s, qelVLCGroupLowPass);
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
    qeliVLCAdapt_JPEGXR(&s, qelVLCGroupHighPass);
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
  ASSERT_EQ(qelStatusOk, qeliVLCScanReset_JPEGXR(&c.state(), qelVLCScanLowPass));
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

// The header tells the most bytes that a call moves on by: found here in the longest codes of all tables.
TEST(VlcBlock, MostBytesOfACall) {
  constexpr int32_t kLargest = (1 << 30) + 1;  // that has a code
  std::array<int64_t, 5> coded{}, decoded{};   // 16s, 32s; DC444, DC422, DC420
  for (int table = 0; table < 40; ++table) {
    Coder out, in;
    const auto set = [&](Coder& c) {
      c.rewind();
      qeliVLCInit_JPEGXR(&c.state());
      for (int i = 0; i < 3; ++i) qeliVLCScanReset_JPEGXR(&c.state(), i);
      for (VLCEntry& e : c.state().entry)
        e.tableIndex = e.alphabet == 12 ? table % 5 : e.alphabet == 6 ? table / 5 % 4 : table / 20;
      for (const int32_t group : {qelVLCGroupLowPass, qelVLCGroupHighPass})
        qeliVLCAdapt_JPEGXR(&c.state(), group);
    };
    for (int kind = 0; kind < 5; ++kind) {
      const auto code = [&](int32_t level) {
        std::array<int32_t, 32> pairs;
        for (size_t i = 0; i < 32; i += 2) pairs[i] = 0, pairs[i + 1] = level;
        Block<int16_t> narrow;
        Block<int32_t> wide;
        narrow.fill(INT16_MIN), wide.fill(level);
        if (kind == 0) encode(out, narrow, 1, 0);
        if (kind == 1) encode(out, wide, 1, 0);
        if (kind == 2)
          qeliVLCEncodeDC444_JPEGXR_32s1u(pairs.data(), 15, 1, &out.stream, &out.bitBuffer, &out.bitCount,
                                          &out.state());
        if (kind == 3)
          qeliVLCEncodeDC422_JPEGXR_32s1u(pairs.data(), 14, &out.stream, &out.bitBuffer, &out.bitCount,
                                          &out.state());
        if (kind == 4)
          qeliVLCEncodeDC420_JPEGXR_32s1u(pairs.data(), 6, &out.stream, &out.bitBuffer, &out.bitCount,
                                          &out.state());
      };
      set(out);
      out.bitCount = 32;
      code(INT32_MIN);
      coded[size_t(kind)] = std::max<int64_t>(coded[size_t(kind)], out.stream - out.bytes.data());
      set(out), set(in);
      code(kLargest);
      in.load(out);
      Block<int16_t> narrow;
      Block<int32_t> wide;
      int32_t count = 0;
      if (kind == 0)
        Of<int16_t>::decode(&in.readStream, &in.bitBuffer, &in.bitCount, 1, narrow.data(), kStep<int16_t>, 1,
                            &count, &in.state());
      if (kind == 1)
        Of<int32_t>::decode(&in.readStream, &in.bitBuffer, &in.bitCount, 1, wide.data(), kStep<int32_t>, 1,
                            &count, &in.state());
      if (kind == 2)
        qeliVLCDecodeDC444_JPEGXR_1u32s(&in.readStream, &in.bitBuffer, &in.bitCount, wide.data(), 1, &count,
                                        &in.state());
      if (kind == 3)
        qeliVLCDecodeDC422_JPEGXR_1u32s(&in.readStream, &in.bitBuffer, &in.bitCount, wide.data(), &count,
                                        &in.state());
      if (kind == 4)
        qeliVLCDecodeDC420_JPEGXR_1u32s(&in.readStream, &in.bitBuffer, &in.bitCount, wide.data(), &count,
                                        &in.state());
      decoded[size_t(kind)] = std::max<int64_t>(decoded[size_t(kind)], in.readStream - in.bytes.data());
    }
  }
  EXPECT_EQ((std::array<int64_t, 5>{58, 98, 98, 92, 40}), coded);
  EXPECT_EQ((std::array<int64_t, 5>{58, 96, 96, 90, 40}),
            decoded);  // a 16-bit decoder may be sent the codes of 32 bits
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
}  // namespace
}  // namespace qelj::test
