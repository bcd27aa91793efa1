#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes pack(const Bytes& row) {
  Bytes coded(2 * row.size() + 2);
  uint32_t position = 0;
  EXPECT_EQ(qelStatusOk, qeliPackBitsRow_TIFF_8u_C1(row.data(), int32_t(row.size()), coded.data(), &position,
                                                    int32_t(coded.size())));
  coded.resize(position);
  return coded;
}
Bytes counting(int count) {
  Bytes bytes(static_cast<size_t>(count));
  std::iota(bytes.begin(), bytes.end(), uint8_t(0));
  return bytes;
}
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The positions behind each token of a coded row.
std::vector<uint32_t> boundaries(const Bytes& coded) {
  std::vector<uint32_t> all{0};
  while (all.back() < coded.size()) {
    const auto header = int8_t(coded[all.back()]);
    all.push_back(all.back() + (header < 0 ? 2 : uint32_t(header) + 2));
  }
  return all;
}

TEST(PackBits, Tokens) {
  const struct {
    Bytes row, coded;
  } cases[] = {
      {{9}, {0, 9}},
      {{9, 9}, {0xFF, 9}},
      {{1, 2, 2, 3}, {3, 1, 2, 2, 3}},
      {{1, 2, 2, 2, 3}, {0, 1, 0xFE, 2, 0, 3}},
      {{1, 1, 2}, {0xFF, 1, 0, 2}},
      {{1, 2, 2}, {0, 1, 0xFF, 2}},  // a pair that ends the row is a run
      {{1, 2, 3, 3}, {1, 1, 2, 0xFF, 3}},
      {{1, 2, 2, 3, 3}, {2, 1, 2, 2, 0xFF, 3}},
      {Bytes(130, 7), {0x81, 7, 0xFF, 7}},
      {Bytes(129, 7), {0x81, 7, 0, 7}},
      {Bytes(128, 7), {0x81, 7}},
      {counting(129), Bytes{127} + counting(128) + Bytes{0, 128}},
      {counting(127) + Bytes{200, 200}, Bytes{126} + counting(127) + Bytes{0xFF, 200}},
      {counting(127) + Bytes{200, 200, 200}, Bytes{126} + counting(127) + Bytes{0xFE, 200}},
      // The 128th byte is the first of a pair: the literal is full, and the pair is torn.
      {counting(127) + Bytes{200, 200, 9}, Bytes{127} + counting(127) + Bytes{200, 1, 200, 9}},
  };
  for (const auto& c : cases) EXPECT_EQ(c.coded, pack(c.row)) << c.row.size();
}

TEST(PackBits, AppendsAtItsPosition) {
  Bytes dst(16, 0xEE);
  uint32_t position = 3;
  const Bytes row{1, 2};
  EXPECT_EQ(qelStatusOk, qeliPackBitsRow_TIFF_8u_C1(row.data(), 2, dst.data(), &position, 16));
  EXPECT_EQ(6u, position);
  EXPECT_EQ((Bytes{0xEE, 0xEE, 0xEE, 1, 1, 2, 0xEE}), Bytes(dst.begin(), dst.begin() + 7));
}

TEST(PackBits, EveryCapacityEndsBehindAWholeToken) {
  Random random;
  for (int length : {1, 2, 3, 40, 300, 700}) {
    PageBuffer row{size_t(length)};  // nothing is read behind the row
    for (int i = 0; i < length;) {
      const auto value = uint8_t(random.bits());
      for (int64_t n = random.chance(70) ? 1 : random.in(1, 150); n > 0 && i < length; --n)
        row.data()[i++] = value;
    }
    const Bytes coded = pack(Bytes(row.data(), row.data() + length));
    ASSERT_LE(coded.size(), size_t(length + (length + 127) / 128));
    const auto tokens = boundaries(coded);
    size_t fitting = 0;
    for (uint32_t capacity = 1; capacity <= coded.size() + 1; ++capacity) {
      while (fitting + 1 < tokens.size() && tokens[fitting + 1] <= capacity) ++fitting;
      Guarded dst(random, capacity);
      uint32_t position = 0;
      ASSERT_EQ(capacity < coded.size() ? qelStatusOutOfBuffer : qelStatusOk,
                qeliPackBitsRow_TIFF_8u_C1(row.data(), length, dst.data(), &position, int32_t(capacity)));
      ASSERT_EQ(tokens[fitting], position);
      ASSERT_TRUE(dst.intact());
      ASSERT_TRUE(std::equal(coded.begin(), coded.begin() + position, dst.data()));
    }
  }
}

TEST(PackBits, UnpacksEveryTruncationAndEveryCapacity) {
  Random random;
  const Bytes row =
      counting(130) + Bytes(200, 5) + Bytes{1, 2, 2, 3} + Bytes(3, 9) + counting(7) + Bytes(2, 8);
  const Bytes coded = pack(row);
  const auto tokens = boundaries(coded);
  const auto isToken = [&](uint32_t at) {
    return std::find(tokens.begin(), tokens.end(), at) != tokens.end();
  };
  for (uint32_t length = 1; length <= coded.size(); ++length) {
    PageBuffer src(length + 1);
    src.assign(coded.data(), std::min<size_t>(length + 1, coded.size()));
    Guarded dst(random, row.size());
    uint32_t position = 0, expected = length;
    if (isToken(length - 1) && int8_t(coded[length - 1]) < 0) {
      ++expected;  // a run whose value stands just behind the source
    } else if (!isToken(length)) {
      while (!isToken(expected - 1)) --expected;  // behind the header of the token that was cut
    }
    ASSERT_EQ(expected == coded.size() ? qelStatusOk : qelStatusOutOfBuffer,
              qeliUnpackBitsRow_TIFF_8u_C1(src.data(), &position, int32_t(length), dst.data(),
                                           int32_t(row.size())));
    ASSERT_EQ(expected, position) << length;
    ASSERT_TRUE(dst.intact());
    if (expected == coded.size()) {
      ASSERT_TRUE(std::equal(row.begin(), row.end(), dst.data()));
    }
  }
  for (size_t capacity = 1; capacity <= row.size(); ++capacity) {
    Guarded dst(random, capacity);
    const Bytes before(dst.data(), dst.data() + capacity);
    uint32_t position = 0;
    const QelStatus status = qeliUnpackBitsRow_TIFF_8u_C1(coded.data(), &position, int32_t(coded.size()),
                                                          dst.data(), int32_t(capacity));
    ASSERT_TRUE(dst.intact());
    const bool whole = status == qelStatusOk && isToken(position);
    const bool behind = status == qelStatusOutOfBuffer && isToken(position - 1);
    ASSERT_TRUE(whole != behind) << capacity;
    size_t written = 0;
    while (written < capacity && dst.data()[written] == row[written]) ++written;
    for (size_t i = written; i < capacity; ++i)
      ASSERT_EQ(before[i], dst.data()[i]) << "nothing of the failed token";
    ASSERT_TRUE(behind || written == capacity);
  }
}

TEST(PackBits, UnpackPositionsAndHeaders) {
  uint8_t dst[8] = {};
  const uint8_t skip[] = {0x80, 0x80, 0xFE, 7};
  uint32_t position = 0;
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(skip, &position, 4, dst, 3));
  EXPECT_EQ(4u, position);
  EXPECT_EQ(7, dst[2]);
  EXPECT_EQ(0, dst[3]);
  // The run's value stands just behind the source.
  position = 2;
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(skip, &position, 3, dst, 3));
  EXPECT_EQ(4u, position);
  // With a byte that is no token behind the source, counted in, the position tells that the run was cut short.
  const uint8_t cut[] = {0, 5, 0xFE, 0x80};
  position = 0;
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(cut, &position, 4, dst, 4));
  EXPECT_EQ(4u, position);
  position = 0;
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(cut, &position, 4, dst, 1));
  EXPECT_EQ(2u, position);
  // A full destination returns with source left, and the rest continues from there.
  const uint8_t two[] = {0, 1, 0, 2};
  position = 0;
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(two, &position, 4, dst, 1));
  EXPECT_EQ(2u, position);
  EXPECT_EQ(qelStatusOk, qeliUnpackBitsRow_TIFF_8u_C1(two, &position, 4, dst, 1));
  EXPECT_EQ(2, dst[0]);
  for (uint32_t beyond : {4u, 5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    position = beyond;
    EXPECT_EQ(qelStatusOutOfBuffer, qeliUnpackBitsRow_TIFF_8u_C1(two, &position, 4, dst, 8));
    EXPECT_EQ(beyond, position);
    EXPECT_EQ(qelStatusOutOfBuffer, qeliPackBitsRow_TIFF_8u_C1(two, 4, dst, &position, 4));
    EXPECT_EQ(beyond, position);
  }
}

}  // namespace
}  // namespace qelj::test
