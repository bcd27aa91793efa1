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
      ASSERT_EQ(qelStatusOk,
                qeliReconstructPredRow_JPEG_16s_C1(differences.data(), above.data(), back.data(), width, predictor));
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

// Rows of every category are the single differences of their channels by turns, and come back.
TEST(LosslessCoding, RowsInterleaveTheirChannels) {
  Random r;
  for (int round = 0; round < 200; ++round) {
    const int channels = int(r.in(1, 6)), coded = std::min(channels, 4);
    const auto width = int32_t(r.in(1, 300));
    std::vector<Tables> tables;
    std::vector<std::vector<int16_t>> rows, back;
    for (int c = 0; c < coded; ++c) {
      const int64_t bits = r.in(0, 15);
      tables.emplace_back(Lists::decodable(r, 40));
      rows.push_back(r.vector<int16_t>(size_t(width), -(1 << bits), (1 << bits) - 1));
      back.emplace_back(size_t(width));
    }
    const int16_t* src[6] = {};
    int16_t* dst[6] = {};
    const QelEncodeHuffmanSpec* encoders[6] = {};
    const QelDecodeHuffmanSpec* decoders[6] = {};
    for (size_t c = 0; c < size_t(coded); ++c) {
      src[c] = rows[c].data(), dst[c] = back[c].data();
      encoders[c] = tables[c].encoder(), decoders[c] = tables[c].decoder();
    }

    std::vector<uint8_t> one(10000), row(10000);
    EncodeState state, rowState;
    int32_t pos = 0, rowPos = 0;
    for (int32_t x = 0; x < width; ++x)
      for (int c = 0; c < coded; ++c)
        ASSERT_EQ(qelStatusOk,
                  qeliEncodeHuffmanOne_JPEG_16s1u_C1(src[c] + x, one.data(), 10000, &pos, encoders[c], state, 0));
    qeliEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, one.data(), 10000, &pos, nullptr, state, 1);
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(src, width, channels, row.data(), 10000, &rowPos,
                                                                encoders, rowState, 0));
    ASSERT_EQ(qelStatusOk,
              qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, row.data(), 10000, &rowPos, nullptr, rowState, 1));
    ASSERT_TRUE(one == row && pos == rowPos);

    DecodeState decode;
    int32_t read = 0, marker = 0;
    ASSERT_EQ(qelStatusOk, qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(row.data(), pos, &read, dst, width, channels, &marker,
                                                                decoders, decode));
    ASSERT_EQ(rows, back);
  }
}

}  // namespace
}  // namespace qelj::test
