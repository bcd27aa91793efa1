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

// A grey image of two blocks by cjpeg -optimize -quality 75 (libjpeg-turbo 2.1.5): the lists of its DHT segments and its
// scan. The coefficients are such that djpeg's pixels are those of their inverse transform.
TEST(BaselineCoders, FileOfAnotherMaker) {
  const Lists dc{{1, 1}, {5, 6}};
  const Lists ac{{0, 1, 4, 2, 2, 3}, {2, 1, 3, 5, 6, 0, 4, 7, 0x11, 0x21, 0x51, 0x81}};
  const std::vector<uint8_t> scan = {0x5B, 0x8D, 0x5D, 0x08, 0xBB, 0xCD, 0xB2, 0xAE, 0xFF, 0x00, 0x86,
                                     0xCB, 0x68, 0xCC, 0x05, 0x7D, 0x2A, 0xF7, 0x97, 0xE5, 0x1F, 0xA9,
                                     0x56, 0x8E, 0xDF, 0x91, 0xE8, 0x45, 0x45, 0xB2, 0x54, 0x5F, 0x99};
  const std::array<Block, 2> blocks = {Block{22, -74, 57, 44, 10, 3, 1, 0, 5,  -20, -40, 2, 3, 1, 1, 0, -3,
                                             7,  -4,  -3, -1, 0,  0, 0, 0, -1, -2,  0,   0, 0, 0, 0, 0, 1},
                                       Block{85, 2, -17, 15, -4, 2, -1, 0,  -16, -41, 17, -2, 1, 0, 0, 0, -11,
                                             0,  1, -1,  0,  0,  0, 0,  -1, -2,  1,   0,  0,  0, 0, 0, -2}};
  Tables dcTable(dc), acTable(ac);
  std::vector<uint8_t> coded(100);
  EncodeState encode;
  DecodeState decode;
  int32_t pos = 0, read = 0, marker = 0;
  int16_t last = 0, readLast = 0, countLast = 0;
  std::array<int32_t, 256> dcCounts{}, acCounts{};
  for (const Block& b : blocks) {
    Block decoded;
    EXPECT_EQ(qelStatusOk, qeliDecodeHuffman8x8_JPEG_1u16s_C1(scan.data(), int32_t(scan.size()), &read,
                                                              decoded.data(), &readLast, &marker,
                                                              dcTable.decoder(), acTable.decoder(), decode));
    EXPECT_EQ(b, decoded);
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(b.data(), coded.data(), 100, &pos, &last, dcTable.encoder(),
                                       acTable.encoder(), encode, 0);
    qeliGetHuffmanStatistics8x8_JPEG_16s_C1(b.data(), dcCounts.data(), acCounts.data(), &countLast);
  }
  qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, coded.data(), 100, &pos, nullptr, nullptr, nullptr, encode, 1);
  coded.resize(size_t(pos));
  EXPECT_EQ(scan, coded);
  for (const auto& [counts, lists] : {std::pair(&dcCounts, &dc), {&acCounts, &ac}}) {
    Lists made;
    made.vals.resize(256);
    EXPECT_EQ(qelStatusOk,
              qeliEncodeHuffmanRawTableInit_JPEG_8u(counts->data(), made.bits.data(), made.vals.data()));
    made.vals.resize(lists->vals.size());
    EXPECT_EQ(lists->bits, made.bits);
    EXPECT_EQ(lists->vals, made.vals);
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

}  // namespace
}  // namespace qelj::test
