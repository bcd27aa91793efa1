#include <gtest/gtest.h>

#include "jpeg/huffman/huffman_support.h"

namespace qelj::test {
namespace {

TEST(HuffmanRecords, Ownership) {
  const Lists flat = Lists::flat();
  QelDecodeHuffmanSpec* decoder = nullptr;
  QelEncodeHuffmanSpec* encoder = nullptr;
  QelDecodeHuffmanState* decodeState = nullptr;
  QelEncodeHuffmanState* encodeState = nullptr;
  ASSERT_EQ(qelStatusOk,
            qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(flat.bits.data(), flat.vals.data(), &decoder));
  ASSERT_EQ(qelStatusOk,
            qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(flat.bits.data(), flat.vals.data(), &encoder));
  ASSERT_EQ(qelStatusOk, qeliDecodeHuffmanStateInitAlloc_JPEG_8u(&decodeState));
  ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&encodeState));
  EXPECT_EQ(qelStatusOk, qeliDecodeHuffmanSpecFree_JPEG_8u(decoder));
  EXPECT_EQ(qelStatusOk, qeliEncodeHuffmanSpecFree_JPEG_8u(encoder));
  EXPECT_EQ(qelStatusOk, qeliDecodeHuffmanStateFree_JPEG_8u(decodeState));
  EXPECT_EQ(qelStatusOk, qeliEncodeHuffmanStateFree_JPEG_8u(encodeState));
  EXPECT_EQ(qelStatusNullPointer, qeliEncodeHuffmanStateFree_JPEG_8u(nullptr));

  std::array<uint8_t, 24> bytes;
  bytes.fill(0xAA);  // only the first 20 bytes of a decode state are initialised
  EXPECT_EQ(qelStatusOk,
            qeliDecodeHuffmanStateInit_JPEG_8u(reinterpret_cast<QelDecodeHuffmanState*>(bytes.data())));
  EXPECT_EQ(0, bytes[19]);
  EXPECT_EQ(0xAA, bytes[20]);
}

TEST(HuffmanRecords, WhichTablesAreRefused) {
  const auto statuses = [](std::initializer_list<std::pair<int, int>> counts) {
    Lists t;
    size_t total = 0;
    for (auto [l, n] : counts) t.bits[size_t(l - 1)] = uint8_t(n), total += size_t(n);
    t.vals.resize(total);
    std::iota(t.vals.begin(), t.vals.end(), uint8_t(0));
    Tables tables(t);
    return std::pair(tables.encoderStatus, tables.decoderStatus);
  };
  const QelStatus ok = qelStatusOk, bad = qelStatusJpegHuffTable;
  EXPECT_EQ(std::pair(ok, ok), statuses({}));
  EXPECT_EQ(std::pair(ok, ok), statuses({{16, 255}, {15, 1}}));    // 256 codes
  EXPECT_EQ(std::pair(bad, bad), statuses({{16, 255}, {15, 2}}));  // 257
  EXPECT_EQ(std::pair(bad, ok), statuses({{1, 2}}));               // a code of all ones
  EXPECT_EQ(std::pair(bad, ok), statuses({{1, 2}, {2, 1}}));       // a code right at the end: entry 256
  EXPECT_EQ(std::pair(bad, bad), statuses({{1, 2}, {2, 2}}));      // one behind: entry 320
  EXPECT_EQ(std::pair(bad, ok), statuses({{1, 2}, {9, 200}}));     // beyond the look-up's lengths
}

// The encoder against the standard's text: random tables with missing symbols, several blocks through one
// state, room at every length.
TEST(BaselineEncoder, GivesTheStandardsBits) {
  Random r;
  for (int round = 0; round < 400; ++round) {
    Tables dc(round % 3 ? Lists::random(r) : Lists::random(r, 12)),
        ac(round % 5 ? Lists::random(r) : Lists::flat());
    ASSERT_EQ(qelStatusOk, dc.encoderStatus | ac.encoderStatus);
    std::string text;
    QelStatus expected = qelStatusOk;
    std::vector<Block> blocks;
    for (int n = 0, last = 0; n < 4 && expected == qelStatusOk; ++n) {
      Block b = randomBlock(r, int(r.in(0, 100)), n == 3 ? 15 : int(r.in(1, 11)));
      if (round % 50 == 9) b[5] = -32768, b[63] = -32768;
      expected = blockText(b, last, dc.lists, ac.lists, text);
      blocks.push_back(b), last = b[0];
    }
    const auto whole = stuffed(text);
    const size_t keep = text.size() / 8;  // without the byte that a flush fills
    const auto unflushed = stuffed(text.substr(0, keep * 8));

    Guarded room(r, 4096, 1, 0, 1);
    const auto before = room.whole();
    EncodeState state;
    int16_t last = 0;
    int32_t pos = 0;
    QelStatus s = qelStatusOk;
    for (const Block& b : blocks)
      if (!s)
        s = qeliEncodeHuffman8x8_JPEG_16s1u_C1(b.data(), room.data(), 4096, &pos, &last, dc.encoder(),
                                               ac.encoder(), state, 0);
    ASSERT_EQ(expected, s);
    ASSERT_EQ(unflushed, std::vector<uint8_t>(room.data(), room.data() + pos));
    ASSERT_EQ(blocks.back()[0], last);
    if (s) continue;
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, room.data(), 4096, &pos, nullptr,
                                                              nullptr, nullptr, state, 1));
    ASSERT_EQ(whole, std::vector<uint8_t>(room.data(), room.data() + pos));
    ASSERT_EQ(EncodeState().bytes, state.bytes);
    const auto after = room.whole();  // bytes behind the position keep their values
    const size_t end = size_t(pos) + Guarded::kMargin;
    ASSERT_TRUE(std::equal(before.begin() + long(end), before.end(), after.begin() + long(end)));

    // The Direct form: the same bits, no other byte.
    Guarded direct(r, whole.size());
    int32_t bitPos = 0;
    last = 0;
    for (const Block& b : blocks)
      ASSERT_EQ(qelStatusOk, qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1(b.data(), direct.data(), &bitPos,
                                                                       &last, dc.encoder(), ac.encoder()));
    ASSERT_EQ(unflushed.size() * 8 + text.size() % 8, size_t(bitPos));
    ASSERT_TRUE(std::equal(unflushed.begin(), unflushed.end(), direct.data()));
    if (text.size() % 8) {
      const std::string rest = text.substr(keep * 8) + std::string(8 - text.size() % 8, '0');
      ASSERT_EQ(std::stoi(rest, nullptr, 2), direct.data()[bitPos / 8]);
    }
    ASSERT_TRUE(direct.intact());

    for (size_t length = 1; length < whole.size(); ++length) {
      Guarded small(r, length);
      EncodeState start;
      last = 0, pos = 0, s = qelStatusOk;
      for (const Block& b : blocks)
        if (!s)
          s = qeliEncodeHuffman8x8_JPEG_16s1u_C1(b.data(), small.data(), int32_t(length), &pos, &last,
                                                 dc.encoder(), ac.encoder(), start, 0);
      if (!s)
        s = qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, small.data(), int32_t(length), &pos, nullptr, nullptr,
                                               nullptr, start, 1);
      ASSERT_EQ(qelStatusJpegOutOfBuffer, s);
      ASSERT_EQ(int32_t(length), pos);
      ASSERT_TRUE(small.intact() && std::equal(small.data(), small.data() + length, whole.begin()));
    }
  }
}

struct Decoded {
  QelStatus status;
  int32_t pos = 0, marker = 0;
  int16_t last = 0;
  Block block{};
};

TEST(BaselineDecoder, RestoresBlocksUpToTheMarker) {
  Random r;
  for (int round = 0; round < 300; ++round) {
    Tables dc(Lists::decodable(r, round % 90 + 10)), ac(Lists::decodable(r, round % 90 + 10));
    std::vector<Block> blocks;
    std::string text;
    while (blocks.size() < 12) {
      const Block b = randomBlock(r, int(r.in(0, 100)), int(r.in(1, 12)));
      std::string more;
      if (blockText(b, blocks.empty() ? 0 : blocks.back()[0], dc.lists, ac.lists, more)) continue;
      text += more, blocks.push_back(b);
    }
    auto coded = stuffed(text);
    if (round % 2)  // fill bytes in front of a stuffed zero
      for (size_t i = coded.size(); i-- > 1;)
        if (coded[i - 1] == 0xFF && coded[i] == 0)
          coded.insert(coded.begin() + long(i), size_t(r.in(0, 3)), 0xFF);
    coded.insert(coded.end(), size_t(r.in(1, 3)), 0xFF);
    coded.push_back(0xD5);
    PageBuffer src(coded.size());
    src.assign(coded.data(), coded.size());

    DecodeState state;
    int32_t pos = 0, marker = 0, bitPos = 0, directMarker = 0, bitCount = 0;
    uint32_t bitBuffer = 0;
    int16_t last = 0, directLast = 0;
    for (size_t n = 0; n < blocks.size(); ++n) {
      Guarded out(r, 128, 1, 0, 1);
      ASSERT_EQ(qelStatusOk, qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(coded.size()), &pos,
                                                                out.data<int16_t>(), &last, &marker,
                                                                dc.decoder(), ac.decoder(), state));
      ASSERT_TRUE(out.intact() && std::memcmp(blocks[n].data(), out.data(), 128) == 0) << round << ' ' << n;
      if (n + 1 == blocks.size()) break;  // the Direct form may lose bits in front of the marker
      Block direct;
      ASSERT_EQ(qelStatusOk, qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(
                                 src.data(), &bitPos, direct.data(), &directLast, &directMarker, &bitBuffer,
                                 &bitCount, dc.decoder(), ac.decoder()));
      if (directMarker == 0) {
        ASSERT_EQ(blocks[n], direct);
        ASSERT_EQ(pos * 8, bitPos);  // both take bytes in at the same moments
      }
    }
    Block more;  // what is left are the ones of the last byte
    for (int i = 0; i < 8 && marker == 0; ++i)
      qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(coded.size()), &pos, more.data(), &last, &marker,
                                         dc.decoder(), ac.decoder(), state);
    EXPECT_EQ(0xD5, marker);
    EXPECT_EQ(int32_t(coded.size()), pos);
  }
}

// A table of two codes makes streams by hand: 0 is the end of block (or a DC of 0), 10 the symbol `symbol`.
Lists twoCodes(int symbol) {
  Lists t;
  t.bits[0] = t.bits[1] = 1;
  t.vals = {0, uint8_t(symbol)};
  return t;
}
Decoded decodeText(const std::string& text, int acSymbol, std::vector<uint8_t> tail = {}, int dcSymbol = 1) {
  Tables dc(twoCodes(dcSymbol)), ac(twoCodes(acSymbol));
  auto bytes = stuffed(text);
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  PageBuffer src(bytes.size());
  src.assign(bytes.data(), bytes.size());
  Decoded d;
  DecodeState state;
  d.block.fill(99);
  d.status = qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(bytes.size()), &d.pos, d.block.data(),
                                                &d.last, &d.marker, dc.decoder(), ac.decoder(), state);
  return d;
}

TEST(BaselineDecoder, RunsPastTheBlock) {
  // Four runs of 15 zeros and a one: positions 16, 32, 48, 64.
  const auto runs = [](int count) {
    std::string text = "0";
    for (int i = 0; i < count; ++i) text += "101";
    return text;
  };
  Decoded d = decodeText(runs(4), 0xF1);
  EXPECT_EQ(qelStatusOk, d.status);
  EXPECT_EQ(1, d.block[63]);
  EXPECT_EQ(1, d.block[size_t(kScan[48])]);
  d = decodeText(runs(7), 0x91);  // runs of 9: positions 10, 20, ... 60, 70
  EXPECT_EQ(qelStatusOk, d.status);
  EXPECT_EQ(1, d.block[63]);
  d = decodeText(runs(6), 0xB1);  // runs of 11: 12, 24, 36, 48, 60, 72
  EXPECT_EQ(qelStatusJpegBlockOverrun, d.status);
  EXPECT_EQ(0, d.block[63]);
  d = decodeText(runs(10).substr(0, 18), 0xB1, {0xFF, 0xD9});  // its value bits come first: here, padding
  EXPECT_EQ(qelStatusJpegBlockOverrun, d.status);
}

TEST(BaselineDecoder, EndsOfTheSource) {
  // A category of 16 takes no bits and adds nothing; 12 bits of a category are there or not.
  EXPECT_EQ(qelStatusOk, decodeText("100", 1, {}, 0x10).status);
  Decoded d = decodeText("10", 1, {}, 12);  // 10 and six ones of padding, then nothing
  EXPECT_EQ(qelStatusJpegOutOfBuffer, d.status);
  EXPECT_EQ(1, d.pos);
  d = decodeText("10", 1, {0xFF, 0xFF, 0xD3}, 12);
  EXPECT_EQ(qelStatusJpegCoeffRange, d.status);
  EXPECT_EQ(4, d.pos);
  EXPECT_EQ(0xD3, d.marker);
  d = decodeText("00", 1, {0xFF});  // a source that ends behind 0xFF fails though bits are left
  EXPECT_EQ(qelStatusJpegOutOfBuffer, d.status);
  EXPECT_EQ(1, d.pos);
  d = decodeText("00", 1);  // with bits enough in the last byte, the end is no error
  EXPECT_EQ(qelStatusOk, d.status);
  EXPECT_EQ(1, d.pos);
  d = decodeText("1111111111111111", 1);
  EXPECT_EQ(qelStatusJpegCoeffRange, d.status);

  Tables t(twoCodes(1)), flat(Lists::flat());
  DecodeState state;
  Block block;
  int16_t last = 0;
  for (int32_t start : {0, 5, -1, INT32_MIN, INT32_MAX}) {  // positions outside the source are its end
    int32_t pos = start, marker = 0;
    uint8_t nothing = 0;
    EXPECT_EQ(qelStatusJpegOutOfBuffer,
              qeliDecodeHuffman8x8_JPEG_1u16s_C1(&nothing, 0, &pos, block.data(), &last, &marker, t.decoder(),
                                                 t.decoder(), state));
    EXPECT_EQ(start, pos);
    EncodeState encode;
    block.fill(1);
    const QelStatus s = qeliEncodeHuffman8x8_JPEG_16s1u_C1(block.data(), &nothing, 1, &pos, &last,
                                                           flat.encoder(), flat.encoder(), encode, 0);
    EXPECT_EQ(qelStatusJpegOutOfBuffer, s);
    EXPECT_EQ(start == 0 ? 1 : start, pos);
  }
}

// A source that ends anywhere: the blocks that it holds, then no more bits.
TEST(BaselineDecoder, CutAtEveryByte) {
  Random r;
  for (int round = 0; round < 40; ++round) {
    Tables dc(Lists::decodable(r, round + 10)), ac(Lists::decodable(r, round + 10));
    std::vector<Block> blocks;
    std::vector<size_t> ends;  // in bits
    std::string text;
    while (blocks.size() < 9) {
      const Block b = randomBlock(r, int(r.in(0, 100)), int(r.in(1, 12)));
      std::string more;
      if (blockText(b, blocks.empty() ? 0 : blocks.back()[0], dc.lists, ac.lists, more)) continue;
      text += more, blocks.push_back(b), ends.push_back(text.size());
    }
    const auto coded = stuffed(text);
    size_t bits = 0;
    for (size_t cut = 0; cut <= coded.size(); ++cut) {
      const bool half = cut > 0 && coded[cut - 1] == 0xFF;  // fails, though bits are left
      if (cut > 0 && !half) bits += 8;                      // the zero behind a 0xFF brings that byte's
      const auto whole = size_t(std::upper_bound(ends.begin(), ends.end(), bits) - ends.begin());
      PageBuffer src(cut);
      src.assign(coded.data(), cut);
      DecodeState state;
      int32_t pos = 0, marker = 0;
      int16_t last = 0;
      size_t n = 0;
      QelStatus s = qelStatusOk;
      for (; n < blocks.size(); ++n) {
        Block out;
        s = qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(cut), &pos, out.data(), &last, &marker,
                                               dc.decoder(), ac.decoder(), state);
        if (s) break;
        ASSERT_EQ(blocks[n], out);
      }
      ASSERT_EQ(n < blocks.size() ? qelStatusJpegOutOfBuffer : qelStatusOk, s);
      ASSERT_TRUE(half ? n <= whole : n == whole);
    }
  }
}

// The table compares 16-bit codes as signed values: codes below 0x8000 are not found beside codes from there
// up.
TEST(BaselineDecoder, SixteenBitCodesAcrossTheSign) {
  Lists t;
  for (size_t l = 2; l < 16; ++l) t.bits[l - 1] = 1;
  t.bits[15] = 3;  // 0x7FFE, 0x7FFF, 0x8000
  t.vals.resize(17);
  std::iota(t.vals.begin(), t.vals.end(), uint8_t(0));
  Tables tables(t);
  const auto status = [&](uint8_t high, uint8_t low) {
    const uint8_t src[] = {high, low, 0, 0, 0, 0};
    DecodeState state;
    int32_t pos = 0, marker = 0;
    int16_t last = 0;
    Block block;
    return qeliDecodeHuffman8x8_JPEG_1u16s_C1(src, 6, &pos, block.data(), &last, &marker, tables.decoder(),
                                              tables.decoder(), state);
  };
  EXPECT_EQ(qelStatusJpegCoeffRange, status(0x7F, 0xFE));
  EXPECT_EQ(qelStatusOk, status(0x80, 0x00));
}

TEST(DirectDecoder, DropsWhatStandsBeforeAMarker) {
  Tables dc(twoCodes(1)), ac(twoCodes(0x01));
  const auto decode = [&](std::vector<uint8_t> bytes, Block& block, int32_t& bitPos, int32_t& bitCount) {
    PageBuffer src(bytes.size());  // no byte behind the marker is read
    src.assign(bytes.data(), bytes.size());
    int32_t marker = 0;
    uint32_t bitBuffer = 0;
    int16_t last = 0;
    const QelStatus s = qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(
        src.data(), &bitPos, block.data(), &last, &marker, &bitBuffer, &bitCount, dc.decoder(), ac.decoder());
    EXPECT_EQ(0xD9, marker);
    return s;
  };
  Block block;
  int32_t bitPos = 0, bitCount = 0;
  EXPECT_EQ(qelStatusOk, decode({0xFF, 0xD9}, block, bitPos, bitCount));
  EXPECT_EQ(Block{}, block);
  EXPECT_EQ(16, bitPos);
  EXPECT_EQ(0, bitCount);
  // 101 (DC 1), 101 (AC 1), 101: the normal form finds the first two coefficients and more; here 5 bits are
  // left.
  bitPos = bitCount = 0;
  EXPECT_EQ(qelStatusOk, decode({0b10110110, 0xFF, 0xD9}, block, bitPos, bitCount));
  EXPECT_EQ(1, block[0]);
  EXPECT_EQ(0, block[1]);
  EXPECT_EQ(0, bitCount);
  EXPECT_EQ(24, bitPos);
  bitPos = bitCount = 0;  // a code of up to 16 bits that does not exist, and one that the marker cuts short
  EXPECT_EQ(qelStatusJpegCoeffRange, decode({0xFF, 0, 0xFF, 0, 0xFF, 0xD9}, block, bitPos, bitCount));
  bitPos = bitCount = 0;
  EXPECT_EQ(qelStatusOk, decode({0xFF, 0, 0xFF, 0xD9}, block, bitPos, bitCount));
  EXPECT_EQ(Block{}, block);
  EXPECT_EQ(8, bitCount);
  Tables big(twoCodes(12));
  int32_t marker = 0;
  uint32_t buffer = 0b10111;
  int16_t last = 0;
  const uint8_t src[] = {0xFF, 0xD9};
  bitPos = 0, bitCount = 5;  // ten value bits are missing
  EXPECT_EQ(qelStatusJpegOutOfBuffer,
            qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src, &bitPos, block.data(), &last, &marker, &buffer,
                                                      &bitCount, big.decoder(), ac.decoder()));
}

// Without a marker, four bytes behind the segment that are not 0xFF are enough.
TEST(DirectDecoder, ReadsFourBytesAheadAtMost) {
  Random r;
  for (int round = 0; round < 300; ++round) {
    Tables dc(Lists::decodable(r, round % 90 + 10)), ac(Lists::decodable(r, round % 90 + 10));
    std::vector<Block> blocks(size_t(r.in(1, 9)));
    std::string text;
    int last = 0;
    for (Block& b : blocks) {
      const std::string before = text;
      do {
        text = before;
        b = randomBlock(r, int(r.in(0, 100)), int(r.in(1, 12)));
      } while (blockText(b, last, dc.lists, ac.lists, text));
      last = b[0];
    }
    auto coded = stuffed(text);
    coded.insert(coded.end(), 4, uint8_t(r.in(0, 254)));
    PageBuffer src(coded.size());
    src.assign(coded.data(), coded.size());
    int32_t bitPos = 0, bitCount = 0, marker = 0;
    uint32_t bitBuffer = 0;
    int16_t lastDC = 0;
    for (const Block& b : blocks) {
      Block decoded;
      ASSERT_EQ(qelStatusOk, qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(
                                 src.data(), &bitPos, decoded.data(), &lastDC, &marker, &bitBuffer, &bitCount,
                                 dc.decoder(), ac.decoder()));
      ASSERT_EQ(b, decoded);
    }
  }
}

TEST(BaselineCoders, Checks) {
  Tables t(Lists::flat());
  DecodeState decode;
  EncodeState encode;
  uint8_t bytes[8] = {};
  Block block{};
  int32_t pos = 0, marker = 0, count = -1, negative = -1;
  uint32_t buffer = 0;
  int16_t last = 0;
  const auto d = [&](const uint8_t* src, int32_t length, int32_t* p) {
    return qeliDecodeHuffman8x8_JPEG_1u16s_C1(src, length, p, block.data(), &last, &marker, t.decoder(),
                                              t.decoder(), decode);
  };
  EXPECT_EQ(qelStatusNullPointer, d(nullptr, -1, nullptr));
  EXPECT_EQ(qelStatusBadArg, d(bytes, -1, nullptr));
  EXPECT_EQ(qelStatusNullPointer, d(bytes, 0, nullptr));
  const auto e = [&](uint8_t* dst, int32_t length, int32_t* p, const int16_t* src, int32_t flush) {
    return qeliEncodeHuffman8x8_JPEG_16s1u_C1(src, dst, length, p, &last, t.encoder(), nullptr, encode,
                                              flush);
  };
  EXPECT_EQ(qelStatusNullPointer, e(nullptr, 0, nullptr, nullptr, 0));
  EXPECT_EQ(qelStatusBadSize, e(bytes, 0, nullptr, nullptr, 0));
  EXPECT_EQ(qelStatusNullPointer, e(bytes, 1, nullptr, nullptr, 1));
  EXPECT_EQ(qelStatusNullPointer, e(bytes, 1, &pos, block.data(), 0));
  EXPECT_EQ(qelStatusOk, e(bytes, 1, &pos, nullptr, 1));
  const auto direct = [&](int32_t* p, int32_t* c, int16_t* dst, const QelDecodeHuffmanSpec* table) {
    return qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(bytes, p, dst, &last, &marker, &buffer, c, table, table);
  };
  EXPECT_EQ(qelStatusBadArg, direct(&negative, &count, nullptr, nullptr));
  EXPECT_EQ(qelStatusNullPointer, direct(&pos, &count, nullptr, nullptr));
  EXPECT_EQ(qelStatusBadArg, direct(&pos, &count, block.data(), nullptr));
  EXPECT_EQ(qelStatusNullPointer, direct(&pos, &pos, block.data(), nullptr));
}

// Whatever the bytes: no write outside the block, no read outside the source, and an end.
TEST(BaselineDecoder, HostileStreams) {
  Random r;
  for (int round = 0; round < 3000; ++round) {
    Tables dc(Lists::random(r, int(r.in(0, 256)))), ac(Lists::random(r, int(r.in(0, 256))));
    const size_t size = size_t(r.in(2, 300));
    PageBuffer src(size);
    r.fill(src.data(), size);
    for (size_t i = 0; i + 1 < size; ++i)
      if (r.chance(10)) src.data()[i] = 0xFF, src.data()[i + 1] = uint8_t(r.chance(80) ? 0 : r.in(0, 255));
    Guarded out(r, 128);
    DecodeState state;
    int32_t pos = 0, marker = 0, bitPos = 0, bitCount = 0;
    uint32_t bitBuffer = 0;
    int16_t last = 0;
    for (int n = 0; n < 40; ++n) {
      qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(size), &pos, out.data<int16_t>(), &last, &marker,
                                         dc.decoder(), ac.decoder(), state);
      ASSERT_TRUE(pos >= 0 && pos <= int32_t(size) && out.intact());
    }
    src.data()[size - 2] = 0xFF, src.data()[size - 1] = 0xD9;
    for (int n = 0; n < 40; ++n) {
      marker = n == 0 ? 0 : marker;
      qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src.data(), &bitPos, out.data<int16_t>(), &last, &marker,
                                                &bitBuffer, &bitCount, dc.decoder(), ac.decoder());
      ASSERT_TRUE(bitPos <= int32_t(size) * 8 && out.intact());
    }
  }
}

}  // namespace
}  // namespace qelj::test
