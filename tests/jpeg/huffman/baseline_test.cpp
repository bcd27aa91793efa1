#include <gtest/gtest.h>

#include "jpeg/huffman/huffman_support.h"

namespace qelj::test {
namespace {

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

// A grey image of two blocks by cjpeg -optimize -quality 75 (libjpeg-turbo 2.1.5): the lists of its DHT segments and
// its scan. The coefficients are such that djpeg's pixels are those of their inverse transform.
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
    EXPECT_EQ(qelStatusOk,
              qeliDecodeHuffman8x8_JPEG_1u16s_C1(scan.data(), int32_t(scan.size()), &read, decoded.data(), &readLast,
                                                 &marker, dcTable.decoder(), acTable.decoder(), decode));
    EXPECT_EQ(b, decoded);
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(b.data(), coded.data(), 100, &pos, &last, dcTable.encoder(), acTable.encoder(),
                                       encode, 0);
    qeliGetHuffmanStatistics8x8_JPEG_16s_C1(b.data(), dcCounts.data(), acCounts.data(), &countLast);
  }
  qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, coded.data(), 100, &pos, nullptr, nullptr, nullptr, encode, 1);
  coded.resize(size_t(pos));
  EXPECT_EQ(scan, coded);
  for (const auto& [counts, lists] : {std::pair(&dcCounts, &dc), {&acCounts, &ac}}) {
    Lists made;
    made.vals.resize(256);
    EXPECT_EQ(qelStatusOk, qeliEncodeHuffmanRawTableInit_JPEG_8u(counts->data(), made.bits.data(), made.vals.data()));
    made.vals.resize(lists->vals.size());
    EXPECT_EQ(lists->bits, made.bits);
    EXPECT_EQ(lists->vals, made.vals);
  }
}

// What was encoded comes back by both decoders. The Direct form may lose bits in front of a marker; without one, four
// bytes behind the segment that are not 0xFF are enough for it.
TEST(BaselineCoders, BlocksComeBackInBothForms) {
  Random r;
  for (int round = 0; round < 300; ++round) {
    Tables dc(Lists::decodable(r, round % 90 + 10)), ac(Lists::decodable(r, round % 90 + 10));
    std::vector<Block> blocks(size_t(r.in(1, 12)));
    std::vector<uint8_t> coded(12 * 600);
    EncodeState encode;
    int32_t end = 0;
    int16_t encodeLast = 0;
    for (Block& b : blocks) {
      b = randomBlock(r, int(r.in(0, 100)), int(r.in(1, 12)));
      ASSERT_EQ(qelStatusOk, qeliEncodeHuffman8x8_JPEG_16s1u_C1(b.data(), coded.data(), int32_t(coded.size()), &end,
                                                                &encodeLast, dc.encoder(), ac.encoder(), encode, 0));
    }
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, coded.data(), int32_t(coded.size()), &end, nullptr, nullptr, nullptr,
                                       encode, 1);
    coded.resize(size_t(end));
    coded.insert(coded.end(), 4, round % 2 ? 0xFF : uint8_t(r.in(0, 254)));
    if (round % 2) coded.push_back(0xD5);

    const Pages src = Pages::copyOf(coded);
    DecodeState state;
    int32_t pos = 0, marker = 0, bitPos = 0, directMarker = 0, bitCount = 0;
    uint32_t bitBuffer = 0;
    int16_t last = 0, directLast = 0;
    for (const Block& b : blocks) {
      Block decoded, direct;
      ASSERT_EQ(qelStatusOk, qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), int32_t(coded.size()), &pos, decoded.data(),
                                                                &last, &marker, dc.decoder(), ac.decoder(), state));
      ASSERT_EQ(b, decoded) << round;
      const QelStatus s =
          qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src.data(), &bitPos, direct.data(), &directLast, &directMarker,
                                                    &bitBuffer, &bitCount, dc.decoder(), ac.decoder());
      ASSERT_TRUE(directMarker || (s == qelStatusOk && b == direct)) << round;
    }
  }
}

}  // namespace
}  // namespace qelj::test
