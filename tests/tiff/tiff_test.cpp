#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qelj.h"
#include "support/pages.h"

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

// The example of TIFF 6.0, section 9.
TEST(PackBits, ExampleOfTheStandard) {
  const Bytes row{0xAA, 0xAA, 0xAA, 0x80, 0x00, 0x2A, 0xAA, 0xAA, 0xAA, 0xAA, 0x80, 0x00,
                  0x2A, 0x22, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ((Bytes{0xFE, 0xAA, 0x02, 0x80, 0x00, 0x2A, 0xFD, 0xAA, 0x03, 0x80, 0x00, 0x2A, 0x22, 0xF7, 0xAA}),
            pack(row));
}

TEST(PackBits, EveryCapacityEndsBehindAWholeToken) {
  Random random;
  for (int length : {1, 2, 3, 40, 300, 700}) {
    Bytes row;
    while (row.size() < size_t(length))
      row.insert(row.end(), size_t(random.chance(70) ? 1 : random.in(1, 150)), uint8_t(random.bits()));
    row.resize(size_t(length));
    const Bytes coded = pack(row);
    ASSERT_LE(coded.size(), size_t(length + (length + 127) / 128));
    const auto tokens = boundaries(coded);
    size_t fitting = 0;
    for (uint32_t capacity = 1; capacity <= coded.size() + 1; ++capacity) {
      while (fitting + 1 < tokens.size() && tokens[fitting + 1] <= capacity) ++fitting;
      const Pages dst = Pages::drawn(random, capacity);
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
  const Bytes row = counting(130) + Bytes(200, 5) + Bytes{1, 2, 2, 3} + Bytes(3, 9) + counting(7) + Bytes(2, 8);
  const Bytes coded = pack(row);
  const auto tokens = boundaries(coded);
  const auto isToken = [&](uint32_t at) { return std::find(tokens.begin(), tokens.end(), at) != tokens.end(); };
  for (uint32_t length = 1; length <= coded.size(); ++length) {
    Bytes part(coded.begin(), coded.begin() + length);
    part.push_back(length < coded.size() ? coded[length] : 0);
    const Pages src = Pages::copyOf(part), dst = Pages::drawn(random, row.size());
    uint32_t position = 0, expected = length;
    if (isToken(length - 1) && int8_t(coded[length - 1]) < 0) {
      ++expected;  // a run whose value stands just behind the source
    } else if (!isToken(length)) {
      while (!isToken(expected - 1)) --expected;  // behind the header of the token that was cut
    }
    ASSERT_EQ(expected == coded.size() ? qelStatusOk : qelStatusOutOfBuffer,
              qeliUnpackBitsRow_TIFF_8u_C1(src.data(), &position, int32_t(length), dst.data(), int32_t(row.size())));
    ASSERT_EQ(expected, position) << length;
    ASSERT_TRUE(dst.intact());
    if (expected == coded.size()) {
      ASSERT_TRUE(std::equal(row.begin(), row.end(), dst.data()));
    }
  }
  for (size_t capacity = 1; capacity <= row.size(); ++capacity) {
    const Pages dst = Pages::drawn(random, capacity);
    random.fill(dst.data(), capacity);
    const Bytes before(dst.data(), dst.data() + capacity);
    uint32_t position = 0;
    const QelStatus status =
        qeliUnpackBitsRow_TIFF_8u_C1(coded.data(), &position, int32_t(coded.size()), dst.data(), int32_t(capacity));
    ASSERT_TRUE(dst.intact());
    const bool whole = status == qelStatusOk && isToken(position);
    const bool behind = status == qelStatusOutOfBuffer && isToken(position - 1);
    ASSERT_TRUE(whole != behind) << capacity;
    size_t written = 0;
    while (written < capacity && dst.data()[written] == row[written]) ++written;
    for (size_t i = written; i < capacity; ++i) ASSERT_EQ(before[i], dst.data()[i]) << "nothing of the failed token";
    ASSERT_TRUE(behind || written == capacity);
  }
}

TEST(PackBits, PositionsBeyondTheBuffer) {
  const uint8_t two[] = {0, 1, 0, 2};
  uint8_t dst[8] = {};
  for (const uint32_t beyond : {4u, 5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    uint32_t position = beyond;
    EXPECT_EQ(qelStatusOutOfBuffer, qeliUnpackBitsRow_TIFF_8u_C1(two, &position, 4, dst, 8));
    EXPECT_EQ(beyond, position);
    EXPECT_EQ(qelStatusOutOfBuffer, qeliPackBitsRow_TIFF_8u_C1(two, 4, dst, &position, 4));
    EXPECT_EQ(beyond, position);
  }
}

}  // namespace
}  // namespace qelj::test
