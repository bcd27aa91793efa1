#include <gtest/gtest.h>

#include <array>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

enum Format { kRgb, kBgr, k555, k565, kCmyk, kYcc, kYuyv };
constexpr int kPixelBytes[] = {3, 3, 2, 2, 4, 3, 2};

// A member, with the destination planes whose addresses select its arithmetic.
struct Member {
  const char* name;
  QelStatus (*call)(const uint8_t*, int32_t, int16_t* const*);
  Format format;
  int across, down;
  unsigned tested;
  int planes() const { return format == kCmyk ? 4 : 3; }
};
template <auto F>
QelStatus call(const uint8_t* src, int32_t step, int16_t* const* dst) {
  if constexpr (std::is_invocable_v<decltype(F), const uint8_t*, int32_t, int16_t* const*>)
    return F(src, step, dst);
  else
    return F(reinterpret_cast<const uint16_t*>(src), step, dst);
}
#define MEMBER(name, ...) \
  { #name, call < name>, __VA_ARGS__ }
#define THREE(format, before, after, tested444, tested422, tested411)                                       \
  MEMBER(before##444##after, format, 1, 1, tested444), MEMBER(before##422##after, format, 2, 1, tested422), \
      MEMBER(before##411##after, format, 2, 2, tested411)
const Member kMembers[] = {
    THREE(kRgb, qeliRGBToYCbCr, LS_MCU_8u16s_C3P3R, 0, 0, 1),
    THREE(kBgr, qeliBGRToYCbCr, LS_MCU_8u16s_C3P3R, 0, 0, 1),
    THREE(k555, qeliBGR555ToYCbCr, LS_MCU_16u16s_C3P3R, 0, 0, 0),
    THREE(k565, qeliBGR565ToYCbCr, LS_MCU_16u16s_C3P3R, 0, 0, 0),
    THREE(kCmyk, qeliCMYKToYCCK, LS_MCU_8u16s_C4P4R, 0b1111, 0b1001, 0b1001),
    THREE(kYcc, qeliSampleDown, LS_MCU_8u16s_C3P3R, 0, 0, 0),
    MEMBER(qeliSplit422LS_MCU_8u16s_C2P3R, kYuyv, 2, 1, 0),
};
#undef THREE
#undef MEMBER

std::array<int, 4> pixel(Format format, const uint8_t* line, int x) {
  const uint8_t* p = line + x * kPixelBytes[format];
  const int word = p[0] | p[1] << 8;
  switch (format) {
    case kBgr:
      return {p[2], p[1], p[0], 0};
    case k555:
      return {(word >> 10 & 31) * 8, (word >> 5 & 31) * 8, (word & 31) * 8, 0};
    case k565:
      return {(word >> 11) * 8, (word >> 5 & 63) * 4, (word & 31) * 8, 0};
    case kCmyk:
      return {255 - p[0], 255 - p[1], 255 - p[2], p[3]};
    case kYuyv:
      return {p[0], line[x / 2 * 4 + 1], line[x / 2 * 4 + 3], 0};
    default:
      return {p[0], p[1], p[2], 0};
  }
}

std::array<std::array<int16_t, 256>, 4> model(const Member& m, const uint8_t* src, int step, bool truncated) {
  std::array<std::array<int16_t, 256>, 4> out{};
  int sums[64][3] = {};
  const bool sampled = m.format == kYcc || m.format == kYuyv;
  for (int y = 0; y < 8 * m.down; ++y)
    for (int x = 0; x < 8 * m.across; ++x) {
      const auto [r, g, b, k] = pixel(m.format, src + y * step, x);
      const size_t i = size_t((y / 8 * m.across + x / 8) * 64 + y % 8 * 8 + x % 8);
      out[0][i] = int16_t((sampled     ? r
                           : truncated ? (19595 * r + 38470 * g + 7471 * b) >> 16
                                       : (4899 * r + 9617 * g + 1868 * b + 8192) >> 14) -
                          128);
      out[3][i] = int16_t(k - 128);
      int* sum = sums[y / m.down * 8 + x / m.across];
      sum[0] += r, sum[1] += g, sum[2] += b;
    }
  const int log2n = m.across * m.down / 2;
  for (size_t i = 0; i < 64; ++i) {
    const auto [r, g, b] = sums[i];
    const int half = m.format == kCmyk && m.across == 1 ? 8133 : 8192 << log2n;
    out[1][i] = int16_t(sampled     ? (g >> log2n) - 128
                        : truncated ? (-11059 * r - 21709 * g + 32768 * b) >> (16 + log2n)
                                    : (-2764 * r - 5428 * g + 8192 * b + half) >> (14 + log2n));
    out[2][i] = int16_t(sampled     ? (b >> log2n) - 128
                        : truncated ? (32768 * r - 27439 * g - 5329 * b) >> (16 + log2n)
                                    : (8192 * r - 6860 * g - 1332 * b + half) >> (14 + log2n));
  }
  return out;
}

// Every member, with one plane moved off its 16-byte boundary at a time, also to odd addresses.
TEST(McuForward, EveryMemberInEveryAlignment) {
  Random random;
  for (const Member& m : kMembers)
    for (int moved = -1; moved < m.planes(); ++moved)
      for (const size_t by : {1, 2, 8, 15}) {
        const size_t rowBytes = size_t(8 * m.across * kPixelBytes[m.format]);
        const auto step = int32_t(rowBytes + by);  // the last pixel is the last readable one
        PageBuffer src(size_t(8 * m.down) * size_t(step) - by);
        random.fill(src.data(), src.size());
        std::vector<Guarded> planes;
        for (int i = 0; i < m.planes(); ++i)
          planes.emplace_back(random, (i % 3 == 0 ? size_t(m.across * m.down) : 1) * 128, 1, 0,
                              16 + (i == moved ? by : 0));
        int16_t* dst[4] = {};
        for (size_t i = 0; i < planes.size(); ++i) dst[i] = planes[i].data<int16_t>();
        ASSERT_EQ(qelStatusOk, m.call(src.data(), step, dst)) << m.name;
        const auto expected = model(m, src.data(), step, moved >= 0 && m.tested >> moved & 1);
        for (size_t i = 0; i < planes.size(); ++i)
          EXPECT_TRUE(planes[i].intact() &&
                      !std::memcmp(expected[i].data(), planes[i].data(), planes[i].rowBytes()))
              << m.name << ", plane " << i << ", plane " << moved << " moved by " << by;
      }
}

struct Blocks {
  alignas(16) int16_t plane[4][4 * 64 + 8] = {};
  std::array<int, 4> flat(const Member& m, const std::vector<uint8_t>& pixel, int offset = 0) {
    std::vector<uint8_t> pixels;
    for (int i = 0; i < 256; ++i) pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    int16_t* dst[4] = {plane[0] + offset, plane[1] + offset, plane[2] + offset, plane[3] + offset};
    EXPECT_EQ(qelStatusOk, m.call(pixels.data(), 16 * kPixelBytes[m.format], dst));
    return {dst[0][63], dst[1][63], dst[2][63], dst[3][63]};
  }
};

TEST(McuForward, KnownColours) {
  Blocks b;
  using V = std::array<int, 4>;
  const Member &rgb444 = kMembers[0], &rgb411 = kMembers[2], &bgr411 = kMembers[5], &white565 = kMembers[9];
  const Member &cmyk444 = kMembers[12], &cmyk411 = kMembers[14];
  EXPECT_EQ((V{-99, 128, -21, 0}),
            b.flat(rgb444, {0, 0, 255}));  // no clamp: pure blue leaves the 8-bit range
  EXPECT_EQ((V{-99, 128, -21, 0}), b.flat(bgr411, {255, 0, 0}));
  EXPECT_EQ((V{-99, 127, -21, 0}), b.flat(bgr411, {255, 0, 0}, 1));  // 127.5 is cut, not rounded
  EXPECT_EQ((V{-52, -44, 127, 0}), b.flat(rgb411, {255, 0, 0}, 1));
  for (int grey : {0, 1, 127, 128, 255})
    EXPECT_EQ((V{grey - 128, 0, 0, 0}), b.flat(rgb411, std::vector<uint8_t>(3, uint8_t(grey)))) << grey;
  EXPECT_EQ((V{122, -1, -2, 0}), b.flat(white565, {0xFF, 0xFF}));  // 248, 252, 248
  // Pure blue's chroma is 127.5: 4:4:4 CMYK rounds it down, 4:1:1 up. K of 0 and 255.
  EXPECT_EQ((V{-99, 127, -21, -128}), b.flat(cmyk444, {255, 255, 0, 0}));
  EXPECT_EQ((V{-99, 128, -21, 127}), b.flat(cmyk411, {255, 255, 0, 255}));
}

TEST(McuForward, ChecksInOrder) {
  const std::vector<uint8_t> pixels(16 * 16 * 4);
  for (const Member& m : kMembers) {
    std::vector<int16_t> blocks(256, 7);
    std::vector<int16_t*> dst(size_t(m.planes()), blocks.data()), holes = dst;
    EXPECT_EQ(qelStatusNullPointer, m.call(nullptr, 0, dst.data())) << m.name;
    EXPECT_EQ(qelStatusNullPointer, m.call(pixels.data(), 0, nullptr)) << m.name;
    for (size_t i = 0; i < dst.size(); ++i) {
      holes = dst, holes[i] = nullptr;
      EXPECT_EQ(qelStatusBadStep, m.call(pixels.data(), 0, holes.data())) << m.name;
      EXPECT_EQ(qelStatusBadStep, m.call(pixels.data(), -64, dst.data())) << m.name;
      EXPECT_EQ(qelStatusNullPointer, m.call(pixels.data(), 1, holes.data())) << m.name << i;
    }
    EXPECT_EQ(std::vector<int16_t>(256, 7), blocks) << m.name;
  }
}

}  // namespace
}  // namespace qelj::test
