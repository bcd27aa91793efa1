#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "jpegxr/state.h"
#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

using namespace jpegxr;

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
  Coder() {
    EXPECT_EQ(qelStatusOk, qeliVLCInit_JPEGXR(&state()));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(qelStatusOk, qeliVLCScanReset_JPEGXR(&state(), i));
  }
  VLCState& state() { return *reinterpret_cast<VLCState*>(&record[3]); }
  Bits bits() { return bitsOf(bytes.data(), stream, bitBuffer, bitCount); }
  // Makes the encoder's bytes readable: the held bits go out, and a margin stays behind them.
  void load(Coder& encoder) {
    std::copy(encoder.bytes.begin(), encoder.bytes.end(), bytes.begin());
    uint8_t* p = bytes.data() + (encoder.stream - encoder.bytes.data());
    for (int b = 24; b >= 0; b -= 8) *p++ = uint8_t(encoder.bitBuffer >> b);
  }
  int64_t bitsRead() const { return (readStream - bytes.data()) * 8 - bitCount; }
  int64_t bitsWritten() const { return (stream - bytes.data()) * 8 + bitCount; }

  std::vector<uint8_t> record = std::vector<uint8_t>(3 + sizeof(VLCState), 0xA5), bytes = std::vector<uint8_t>(4096);
  uint8_t* stream = bytes.data();
  const uint8_t* readStream = bytes.data();
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0;
};

template <class T>
using Block = std::array<T, 16>;

template <class T, class Function>
int32_t encode(Function* function, Coder& c, const Block<T>& block) {
  int32_t pairs = -1;
  EXPECT_EQ(qelStatusOk,
            function(block.data(), 4 * sizeof(T), 0, 0, &c.stream, &c.bitBuffer, &c.bitCount, &pairs, &c.state()));
  return pairs;
}

TEST(VlcState, Size) {
  int32_t size = 0;
  ASSERT_EQ(qelStatusOk, qeliVLCGetStateSize_JPEGXR(&size));
  EXPECT_EQ(sizeof(void*) == 8 ? 2208 : 1780, size);
}

// A copy points into the record that it is one of; and a scan's places may hold anything.
TEST(VlcState, OnlyItsOwnScansCount) {
  for (const uint32_t scan : {0, 1, 2}) {
    Coder c, copy;
    std::copy(c.record.begin(), c.record.end(), copy.record.begin());
    Block<int16_t> block{5, 4, 3, 2, 1};
    int32_t count = 0;
    EXPECT_EQ(qelStatusContextMismatch,
              qeliVLCEncode4x4_JPEGXR_16s1u_C1R(block.data(), 8, 0, 0, &copy.stream, &copy.bitBuffer, &copy.bitCount,
                                                &count, &copy.state()));
    EXPECT_EQ(qelStatusContextMismatch,
              qeliVLCDecode4x4_JPEGXR_1u16s_C1R(&copy.readStream, &copy.bitBuffer, &copy.bitCount, 1, block.data(), 8,
                                                0, &count, &copy.state()));
    EXPECT_EQ((Block<int16_t>{5, 4, 3, 2, 1}), block);
    for (Coder* coder : {&c, &copy}) {
      ASSERT_EQ(qelStatusOk, qeliVLCScanSet_JPEGXR(&coder->state(), scan));
      encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, *coder, block);
    }
    EXPECT_EQ(c.bits(), copy.bits());

    for (auto* places : {c.state().scanTable0, c.state().scanTable1, c.state().scanTable2})
      for (int k = 0; k < kPlaces; ++k)
        places[k].position = places[k].row = places[k].column = 0x40000001u + uint32_t(k);
    std::vector<int16_t> exact(16);
    Coder hostile;
    hostile.load(copy);
    c.bitCount = 0, c.bitBuffer = 0, c.bytes = hostile.bytes;
    qeliVLCDecode4x4_JPEGXR_1u16s_C1R(&c.readStream, &c.bitBuffer, &c.bitCount, 1, exact.data(), 8, 0, &count,
                                      &c.state());
    EXPECT_LT(0, count);
  }
  // Of a position the low bits count, for a level and for its escape.
  Coder near, far;
  for (ScanEntry& place : far.state().scanTable2) place.position += 0x130;
  Block<int16_t> block;
  for (size_t i = 0; i < block.size(); ++i) block[i] = int16_t(i % 4 == 3 ? -900 * int(i) : int(i % 3) - 1);
  EXPECT_EQ(encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, near, block),
            encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, far, block));
  EXPECT_EQ(near.bits(), far.bits());
}

// All code tables and deltas, those too that no stream comes to. The hash is that of a separate copy of T.832's.
TEST(VlcState, TablesOfTheStandard) {
  Coder c;
  VLCState& s = c.state();
  uint64_t hash = 14695981039346656037u;
  const auto mix = [&](const int32_t* values, int count) {
    for (int i = 0; i < count; ++i) hash = (hash ^ uint32_t(values[i])) * 1099511628211u;
  };
  for (const int alphabet : {4, 5, 6, 7, 8, 9, 12})
    for (int table = 0; table < 5; ++table) {
      s.entry[5] = {alphabet, table, 1, 100, -100};
      s.discriminant[5] = s.discriminant2[5] = 0;
      qeliVLCAdapt_JPEGXR(&s, qelVLCGroupLowPass);
      mix(s.codeTable[5], 2 * alphabet + 1);
      if (alphabet != 4 && alphabet != 8) mix(s.deltaTable[5], alphabet);
      if (alphabet == 6 || alphabet == 12) mix(s.deltaTable2[5], alphabet);
    }
  EXPECT_EQ(0x1B4B99095FF5EA19u, hash);
}

// What a discriminant may come to where there is no table to move to shows only after long streams of one kind.
TEST(VlcState, AdaptationMovesBeyondTheBoundsOnly) {
  Coder c;
  VLCState& s = c.state();
  const auto adapted = [&](int32_t low, int32_t high) {
    s.discriminant[13] = low, s.discriminant2[13] = high;
    qeliVLCAdapt_JPEGXR(&s, qelVLCGroupHighPass);
    return int(s.entry[13].tableIndex);
  };
  EXPECT_EQ(1, adapted(-8, 8));
  EXPECT_EQ(2, adapted(0, 9));
  EXPECT_EQ(0, int(s.discriminant2[13]));
  EXPECT_EQ(1, adapted(-9, 9));  // down goes first
  EXPECT_EQ(0, adapted(-9, 0));
  EXPECT_EQ(0, adapted(-1000, -1000));
  EXPECT_EQ(-64, int(s.discriminant[13]));
  for (int t = 1; t <= 4; ++t) EXPECT_EQ(t, adapted(0, 9));
  EXPECT_EQ(4, adapted(0, 1000));
  EXPECT_EQ(64, int(s.discriminant2[13]));
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
    EXPECT_EQ(int(placed.size()), encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, c, block));
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
      encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, plain, block);
      shifted.bitCount = held;
      shifted.bitBuffer = uint32_t(0xA5A5A5A5ull >> (32 - held) << (32 - held));
      const Bits before = shifted.bits();
      encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, shifted, block);
      EXPECT_EQ(before + plain.bits(), shifted.bits());
      const int64_t total = int64_t(before.size() + plain.bits().size());
      EXPECT_EQ(total ? (total - 1) % 16 + 1 : 0, shifted.bitCount);
      EXPECT_EQ(0u, uint64_t(shifted.bitBuffer) << shifted.bitCount & 0xFFFFFFFF);
    }
}

TEST(VlcBlock, EveryEscapeLengthComesBack) {
  for (int width = 4; width <= 29; ++width)
    for (const int32_t v : {(1 << width) + 2, (2 << width) - 1 + 2, -(1 << width) - 3}) {
      Coder encoder, decoder;
      Block<int32_t> block{}, out{};
      block[7] = v;
      encode(qeliVLCEncode4x4_JPEGXR_32s1u_C1R, encoder, block);
      decoder.load(encoder);
      int32_t count = -1;
      EXPECT_EQ(qelStatusOk,
                qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&decoder.readStream, &decoder.bitBuffer, &decoder.bitCount, 1,
                                                  out.data(), 16, 0, &count, &decoder.state()));
      EXPECT_TRUE(count == 1 && block == out) << v;
      EXPECT_EQ(encoder.bitsWritten(), decoder.bitsRead());
    }
}

// The header tells the most bytes that a call moves on by: found here in the longest codes of all tables.
TEST(VlcBlock, MostBytesOfACall) {
  constexpr int32_t kLargest = (1 << 30) + 1;  // that has a code
  std::array<int64_t, 5> coded{}, decoded{};   // 16s, 32s; DC444, DC422, DC420
  for (int table = 0; table < 40; ++table)
    for (size_t kind = 0; kind < coded.size(); ++kind) {
      const auto choose = [&](Coder& c) {
        for (VLCEntry& e : c.state().entry)
          e.tableIndex = e.alphabet == 12 ? table % 5 : e.alphabet == 6 ? table / 5 % 4 : table / 20;
        for (const int32_t group : {qelVLCGroupLowPass, qelVLCGroupHighPass}) qeliVLCAdapt_JPEGXR(&c.state(), group);
      };
      Block<int16_t> narrow;
      Block<int32_t> wide;
      const auto code = [&](Coder& c, int32_t level) {
        choose(c);
        std::array<int32_t, 32> pairs;
        for (size_t i = 0; i < pairs.size(); i += 2) pairs[i] = 0, pairs[i + 1] = level;
        narrow.fill(INT16_MIN), wide.fill(level);
        if (kind == 0) encode(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, c, narrow);
        if (kind == 1) encode(qeliVLCEncode4x4_JPEGXR_32s1u_C1R, c, wide);
        if (kind == 2)
          qeliVLCEncodeDC444_JPEGXR_32s1u(pairs.data(), 15, 0, &c.stream, &c.bitBuffer, &c.bitCount, &c.state());
        if (kind == 3)
          qeliVLCEncodeDC422_JPEGXR_32s1u(pairs.data(), 14, &c.stream, &c.bitBuffer, &c.bitCount, &c.state());
        if (kind == 4)
          qeliVLCEncodeDC420_JPEGXR_32s1u(pairs.data(), 6, &c.stream, &c.bitBuffer, &c.bitCount, &c.state());
      };
      Coder full, out, in;
      full.bitCount = 32;
      code(full, INT32_MIN);
      coded[kind] = std::max<int64_t>(coded[kind], full.stream - full.bytes.data());

      code(out, kLargest);
      in.load(out);
      choose(in);
      const auto from = &in.readStream;
      const auto buffer = &in.bitBuffer;
      const auto held = &in.bitCount;
      int32_t count = 0;
      if (kind == 0) qeliVLCDecode4x4_JPEGXR_1u16s_C1R(from, buffer, held, 1, narrow.data(), 8, 0, &count, &in.state());
      if (kind == 1) qeliVLCDecode4x4_JPEGXR_1u32s_C1R(from, buffer, held, 1, wide.data(), 16, 0, &count, &in.state());
      if (kind == 2) qeliVLCDecodeDC444_JPEGXR_1u32s(from, buffer, held, wide.data(), 0, &count, &in.state());
      if (kind == 3) qeliVLCDecodeDC422_JPEGXR_1u32s(from, buffer, held, wide.data(), &count, &in.state());
      if (kind == 4) qeliVLCDecodeDC420_JPEGXR_1u32s(from, buffer, held, wide.data(), &count, &in.state());
      decoded[kind] = std::max<int64_t>(decoded[kind], in.readStream - in.bytes.data());
    }
  EXPECT_EQ((std::array<int64_t, 5>{58, 98, 98, 92, 40}), coded);
  EXPECT_EQ((std::array<int64_t, 5>{58, 96, 96, 90, 40}), decoded);  // 16 bits may be sent the codes of 32
}

TEST(FlcBlock, FieldsComeBack) {
  Random random;
  for (uint32_t n = 0; n <= 15; ++n)
    for (uint32_t trim = 0; trim + n <= 15; ++trim) {
      Coder c, back;
      Block<int16_t> block{}, out{};
      const uint32_t unused[16] = {};
      const int64_t top = (1 << (n + trim)) - 1;
      for (auto& v : block) v = int16_t(random.in(-top, top));
      EXPECT_EQ(qelStatusOk, qeliFLCEncode4x4_JPEGXR_16s1u_C1R(block.data(), 8, unused, &c.stream, &c.bitBuffer,
                                                               &c.bitCount, n, trim, 0));
      back.load(c);
      EXPECT_EQ(qelStatusOk, qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(&back.readStream, &back.bitBuffer, &back.bitCount,
                                                                out.data(), 8, n, int16_t(1 << trim), 0));
      EXPECT_EQ(c.bitsWritten(), back.bitsRead());
      for (size_t k = 1; k < 16; ++k) ASSERT_EQ(block[k] / (1 << trim) * (1 << trim), out[k]);
      EXPECT_EQ(0, out[0]);
    }
}

}  // namespace
}  // namespace qelj::test
