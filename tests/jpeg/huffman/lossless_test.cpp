#include <gtest/gtest.h>

#include "jpeg/huffman/huffman_support.h"

namespace qelj::test {
namespace {

int predicted(int predictor, int a, int b, int c) {
  const auto half = [](int v) { return (v - (v & 1)) / 2; };  // rounded down
  const int p[] = {a, b, c, a + b - c, a + half(b - c), b + half(a - c), half(a + b)};
  return p[predictor - 1];
}

// Every 16-bit sample on the left, above and behind, at every phase of a vector.
std::vector<int16_t> copied(Guarded& samples) {
  std::vector<int16_t> copy(samples.rowBytes() / 2);
  std::memcpy(copy.data(), samples.data(), samples.rowBytes());
  return copy;
}
TEST(LosslessPrediction, FormulasAndTheirInverse) {
  Random r;
  for (int predictor = 1; predictor <= 7; ++predictor)
    for (int32_t width : {1, 2, 7, 8, 9, 16, 17, 18, 33, 65536 + 3}) {
      Guarded row(r, size_t(width) * 2, 1, 0, 1), above(r, size_t(width) * 2, 1, 0, 3);
      Guarded differences(r, size_t(width) * 2, 1, 0, 5), back(r, size_t(width) * 2);
      if (width > 65536)
        for (int32_t x = 0; x < width; ++x) {
          const int16_t values[] = {int16_t(x), int16_t(uint32_t(x) * 40503)};
          std::memcpy(row.data() + 2 * x, &values[0], 2);
          std::memcpy(above.data() + 2 * x, &values[1], 2);
        }
      ASSERT_EQ(qelStatusOk, qeliDiffPredRow_JPEG_16s_C1(row.data<int16_t>(), above.data<int16_t>(),
                                                         differences.data<int16_t>(), width, predictor));
      ASSERT_EQ(qelStatusOk,
                qeliReconstructPredRow_JPEG_16s_C1(differences.data<int16_t>(), above.data<int16_t>(),
                                                   back.data<int16_t>(), width, predictor));
      ASSERT_TRUE(differences.intact() && back.intact());
      const auto rowCopy = copied(row), aboveCopy = copied(above), differencesCopy = copied(differences);
      const int16_t *s = rowCopy.data(), *u = aboveCopy.data(), *d = differencesCopy.data();
      for (int32_t x = 0; x < width; ++x)
        ASSERT_EQ(int16_t(s[x] - (x ? predicted(predictor, s[x - 1], u[x], u[x - 1]) : u[0])), d[x])
            << predictor << ' ' << x;
      ASSERT_EQ(0, std::memcmp(s, back.data(), size_t(width) * 2)) << predictor << ' ' << width;

      // dst may be the source or the row above.
      std::vector<int16_t> place(s, s + width), other(u, u + width), inverse(d, d + width);
      qeliDiffPredRow_JPEG_16s_C1(place.data(), u, place.data(), width, predictor);
      qeliDiffPredRow_JPEG_16s_C1(s, other.data(), other.data(), width, predictor);
      ASSERT_TRUE(std::equal(d, d + width, place.begin()) && std::equal(d, d + width, other.begin()));
      other.assign(u, u + width);
      qeliReconstructPredRow_JPEG_16s_C1(inverse.data(), u, inverse.data(), width, predictor);
      qeliReconstructPredRow_JPEG_16s_C1(d, other.data(), other.data(), width, predictor);
      ASSERT_TRUE(std::equal(s, s + width, inverse.begin()) && std::equal(s, s + width, other.begin()));
    }
}

TEST(LosslessPrediction, FirstRow) {
  Random r;
  for (int32_t width = 1; width < 40; ++width)
    for (auto [precision, shift] : {std::pair(8, 0), {16, 0}, {12, 3}, {2, 1}, {16, 15}}) {
      Guarded row(r, size_t(width) * 2, 1, 0, 1), differences(r, size_t(width) * 2, 1, 0, 1);
      ASSERT_EQ(qelStatusOk, qeliDiffPredFirstRow_JPEG_16s_C1(
                                 row.data<int16_t>(), differences.data<int16_t>(), width, precision, shift));
      const auto rowCopy = copied(row), differencesCopy = copied(differences);
      const int16_t *s = rowCopy.data(), *d = differencesCopy.data();
      for (int32_t x = 0; x < width; ++x)
        ASSERT_EQ(int16_t(s[x] - (x ? s[x - 1] : 1 << (precision - shift - 1))), d[x]);
      std::vector<int16_t> place(s, s + width);
      qeliDiffPredFirstRow_JPEG_16s_C1(place.data(), place.data(), width, precision, shift);
      ASSERT_TRUE(std::equal(d, d + width, place.begin()));
      ASSERT_EQ(qelStatusOk,
                qeliReconstructPredFirstRow_JPEG_16s_C1(place.data(), place.data(), width, precision, shift));
      ASSERT_TRUE(std::equal(s, s + width, place.begin()) && differences.intact());
    }
  int16_t v[2] = {};
  EXPECT_EQ(qelStatusNullPointer, qeliDiffPredFirstRow_JPEG_16s_C1(v, nullptr, 0, 0, 0));
  EXPECT_EQ(qelStatusBadSize, qeliDiffPredFirstRow_JPEG_16s_C1(v, v, 0, 0, 0));
  for (auto [precision, shift] : {std::pair(1, 0), {17, 0}, {8, -1}, {8, 8}})
    EXPECT_EQ(qelStatusBadArg, qeliReconstructPredFirstRow_JPEG_16s_C1(v, v, 1, precision, shift));
  EXPECT_EQ(qelStatusBadSize, qeliDiffPredRow_JPEG_16s_C1(v, v, v, 0, 0));
  EXPECT_EQ(qelStatusBadArg, qeliDiffPredRow_JPEG_16s_C1(v, v, v, 1, 0));
  EXPECT_EQ(qelStatusBadArg, qeliReconstructPredRow_JPEG_16s_C1(v, v, v, 1, 8));
}

TEST(LosslessCoding, EveryDifference) {
  Random r;
  Tables t(Lists::decodable(r, 40));
  const auto codes = t.lists.codes();
  for (int d = -32768; d < 32768; d += d < -32700 || d > 32700 ? 1 : 7) {
    const auto value = int16_t(d);
    uint8_t bytes[16] = {};
    EncodeState state;
    int32_t pos = 0, read = 0, marker = 0;
    ASSERT_EQ(qelStatusOk,
              qeliEncodeHuffmanOne_JPEG_16s1u_C1(&value, bytes, 16, &pos, t.encoder(), state, 0));
    ASSERT_EQ(qelStatusOk, qeliEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, bytes, 16, &pos, nullptr, state, 1));
    const int n = bitLength(d);
    ASSERT_EQ(stuffed(codes[size_t(n)] + (n < 16 ? bitText(d < 0 ? d - 1 : d, n) : "")),
              std::vector<uint8_t>(bytes, bytes + pos));
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

    for (int32_t cut = 1; cut < pos;
         cut += 1 + pos / 15) {  // cut at any byte: what is there, then the status
      PageBuffer less{size_t(cut)};
      less.assign(one.data(), size_t(cut));
      DecodeState start;
      read = 0;
      ASSERT_EQ(qelStatusJpegOutOfBuffer,
                qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(less.data(), cut, &read, dst, width, channels, &marker,
                                                     decoders, start));
      std::vector<uint8_t> small(size_t(cut), 0);
      EncodeState startEncode;
      rowPos = 0;
      QelStatus s = qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(src, width, channels, small.data(), cut, &rowPos,
                                                         encoders, startEncode, 0);
      if (!s)
        s = qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, small.data(), cut, &rowPos, nullptr,
                                                 startEncode, 1);
      ASSERT_EQ(qelStatusJpegOutOfBuffer, s);
      ASSERT_TRUE(std::equal(small.begin(), small.end(), one.begin()));
    }
    for (int n = 0; n < 5; ++n) {  // noise
      r.fill(bytes.data(), size_t(pos));
      DecodeState start;
      read = marker = 0;
      qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(bytes.data(), pos, &read, dst, width, channels, &marker, decoders,
                                           start);
      for (auto& o : out) ASSERT_TRUE(o.intact());
    }
  }
}

TEST(LosslessCoding, Checks) {
  uint8_t bytes[8] = {};
  int16_t value = 0;
  int32_t pos = 0, marker = 0;
  EncodeState encode;
  DecodeState decode;
  Tables t(Lists::flat());
  int16_t* out[4] = {&value, nullptr};
  const int16_t* in[4] = {&value, nullptr};
  const QelDecodeHuffmanSpec* decoders[4] = {t.decoder(), t.decoder()};
  const QelEncodeHuffmanSpec* encoders[4] = {t.encoder()};
  const auto d = [&](int32_t length, int16_t* const* dst, int32_t width, int32_t channels, int32_t* m) {
    return qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(bytes, length, &pos, dst, width, channels, m, decoders,
                                                decode);
  };
  EXPECT_EQ(qelStatusBadSize, d(0, nullptr, 0, 0, nullptr));
  EXPECT_EQ(qelStatusNullPointer, d(1, nullptr, 0, 0, nullptr));
  EXPECT_EQ(qelStatusBadSize, d(1, out, 0, 1, nullptr));
  EXPECT_EQ(qelStatusBadSize, d(1, out, 1, 0, nullptr));
  EXPECT_EQ(qelStatusNullPointer, d(1, out, 1, 1, nullptr));
  EXPECT_EQ(qelStatusNullPointer, d(1, out, 1, 2, &marker));
  EXPECT_EQ(qelStatusOk, d(1, out, 1, 1, &marker));
  const auto e = [&](const int16_t* const* src, int32_t width, int32_t channels,
                     const QelEncodeHuffmanSpec* const* specs) {
    return qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(src, width, channels, bytes, 8, &pos, specs, encode, 0);
  };
  EXPECT_EQ(qelStatusNullPointer, e(nullptr, 0, 0, nullptr));
  EXPECT_EQ(qelStatusBadSize, e(in, 0, 1, nullptr));
  EXPECT_EQ(qelStatusNullPointer, e(in, 1, 1, nullptr));
  EXPECT_EQ(qelStatusNullPointer, e(in, 1, 2, encoders));
  EXPECT_EQ(qelStatusBadSize,
            qeliDecodeHuffmanOne_JPEG_1u16s_C1(bytes, 0, nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(qelStatusNullPointer,
            qeliEncodeHuffmanOne_JPEG_16s1u_C1(&value, bytes, 8, &pos, nullptr, encode, 0));
}

}  // namespace
}  // namespace qelj::test
