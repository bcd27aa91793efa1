#include <gtest/gtest.h>

#include "jpeg/huffman/huffman_support.h"

namespace qelj::test {
namespace {

// Every 16-bit sample on the left and above; samples come back, also where dst is the source or the row above.
TEST(LosslessPrediction, Inverse) {
  Random r;
  for (int predictor = 1; predictor <= 7; ++predictor)
    for (int32_t width : {1, 2, 7, 8, 9, 16, 17, 18, 33, 65536 + 3}) {
      const auto n = size_t(width);
      auto row = r.vector<int16_t>(n, -32768, 32767), above = r.vector<int16_t>(n, -32768, 32767);
      if (width > 65536)
        for (size_t x = 0; x < n; ++x) row[x] = int16_t(x), above[x] = int16_t(uint32_t(x) * 40503);
      std::vector<int16_t> differences(n), back(n), inPlace = row, over = above;
      ASSERT_EQ(qelStatusOk,
                qeliDiffPredRow_JPEG_16s_C1(row.data(), above.data(), differences.data(), width, predictor));
      ASSERT_EQ(qelStatusOk, qeliReconstructPredRow_JPEG_16s_C1(differences.data(), above.data(), back.data(),
                                                                width, predictor));
      ASSERT_EQ(row, back) << predictor << ' ' << width;
      qeliDiffPredRow_JPEG_16s_C1(inPlace.data(), above.data(), inPlace.data(), width, predictor);
      qeliDiffPredRow_JPEG_16s_C1(row.data(), over.data(), over.data(), width, predictor);
      ASSERT_TRUE(differences == inPlace && differences == over);
      over = above;
      qeliReconstructPredRow_JPEG_16s_C1(inPlace.data(), above.data(), inPlace.data(), width, predictor);
      qeliReconstructPredRow_JPEG_16s_C1(differences.data(), over.data(), over.data(), width, predictor);
      ASSERT_TRUE(row == inPlace && row == over);
    }
}

// Table H.1 by hand, on a row whose halves are rounded down; and what predicts the first sample.
TEST(LosslessPrediction, ByHand) {
  const int16_t row[2] = {10, 20}, above[2] = {3, -4};  // a = 10, b = -4, c = 3
  const int16_t expected[7] = {10, 24, 17, 17, 14, 21, 17};
  for (int32_t predictor = 1; predictor <= 7; ++predictor) {
    int16_t d[2];
    EXPECT_EQ(qelStatusOk, qeliDiffPredRow_JPEG_16s_C1(row, above, d, 2, predictor));
    EXPECT_EQ(7, d[0]);
    EXPECT_EQ(expected[predictor - 1], d[1]) << predictor;
  }
  for (auto [precision, shift, first] : {std::tuple(8, 0, 128), {16, 0, -32768}, {12, 3, 256}, {16, 15, 1}}) {
    int16_t d[2], back[2];
    EXPECT_EQ(qelStatusOk, qeliDiffPredFirstRow_JPEG_16s_C1(row, d, 2, precision, shift));
    EXPECT_EQ(int16_t(10 - first), d[0]);
    EXPECT_EQ(10, d[1]);
    EXPECT_EQ(qelStatusOk, qeliReconstructPredFirstRow_JPEG_16s_C1(d, back, 2, precision, shift));
    EXPECT_TRUE(back[0] == 10 && back[1] == 20);
  }
}

TEST(LosslessCoding, EveryDifference) {
  Random r;
  Tables t(Lists::decodable(r, 40));
  for (int d = -32768; d < 32768; d += d < -32700 || d > 32700 ? 1 : 7) {
    const auto value = int16_t(d);
    uint8_t bytes[16] = {};
    EncodeState state;
    int32_t pos = 0, read = 0, marker = 0;
    ASSERT_EQ(qelStatusOk,
              qeliEncodeHuffmanOne_JPEG_16s1u_C1(&value, bytes, 16, &pos, t.encoder(), state, 0));
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, bytes, 16, &pos, nullptr, state, 1));
    DecodeState decode;
    int16_t back = 0;
    ASSERT_EQ(qelStatusOk,
              qeliDecodeHuffmanOne_JPEG_1u16s_C1(bytes, pos, &read, &back, &marker, t.decoder(), decode));
    ASSERT_EQ(value, back);
  }
  // Every symbol from 16 up is -32768, without value bits.
  Tables flat(Lists::flat());
  for (int symbol : {16, 17, 31, 200}) {
    const auto bytes = stuffed(bitText(symbol, 8));
    DecodeState decode;
    int32_t read = 0, marker = 0;
    int16_t back = 0;
    EXPECT_EQ(qelStatusOk, qeliDecodeHuffmanOne_JPEG_1u16s_C1(bytes.data(), 1, &read, &back, &marker,
                                                              flat.decoder(), decode));
    EXPECT_EQ(-32768, back);
  }
}

TEST(LosslessCoding, RowsInterleaveTheirChannels) {
  Random r;
  for (int round = 0; round < 200; ++round) {
    const int channels = int(r.in(1, 6)), coded = std::min(channels, 4);
    const auto width = int32_t(r.in(1, 300));
    std::vector<Tables> tables;
    for (int c = 0; c < coded; ++c) tables.emplace_back(Lists::decodable(r, 40));
    std::vector<std::vector<int16_t>> rows;
    const int16_t* src[6] = {};
    const QelEncodeHuffmanSpec* encoders[6] = {};
    const QelDecodeHuffmanSpec* decoders[6] = {};
    for (int c = 0; c < coded; ++c) {
      rows.push_back(r.vector<int16_t>(size_t(width), -(1 << r.in(0, 15)), (1 << r.in(0, 15)) - 1));
      encoders[c] = tables[size_t(c)].encoder(), decoders[c] = tables[size_t(c)].decoder();
    }
    for (int c = 0; c < coded; ++c) src[c] = rows[size_t(c)].data();

    std::vector<uint8_t> one(10000), row(10000);
    EncodeState state, rowState;
    int32_t pos = 0, rowPos = 0;
    for (int32_t x = 0; x < width; ++x)
      for (int c = 0; c < coded; ++c)
        ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanOne_JPEG_16s1u_C1(src[c] + x, one.data(), 10000, &pos,
                                                                  encoders[c], state, 0));
    qeliEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, one.data(), 10000, &pos, nullptr, state, 1);
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(src, width, channels, row.data(), 10000,
                                                                &rowPos, encoders, rowState, 0));
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, row.data(), 10000, &rowPos,
                                                                nullptr, rowState, 1));
    ASSERT_EQ(one, row);
    ASSERT_EQ(pos, rowPos);

    std::vector<Guarded> out;
    int16_t* dst[6] = {};
    for (int c = 0; c < coded; ++c) out.emplace_back(r, size_t(width) * 2, 1, 0, 1);
    for (int c = 0; c < coded; ++c) dst[c] = out[size_t(c)].data<int16_t>();
    PageBuffer bytes{size_t(pos)};
    bytes.assign(one.data(), size_t(pos));
    DecodeState decode;
    int32_t read = 0, marker = 0;
    ASSERT_EQ(qelStatusOk, qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(bytes.data(), pos, &read, dst, width,
                                                                channels, &marker, decoders, decode));
    for (int c = 0; c < coded; ++c)
      ASSERT_TRUE(out[size_t(c)].intact() && std::memcmp(dst[c], src[c], size_t(width) * 2) == 0);
  }
}

}  // namespace
}  // namespace qelj::test
