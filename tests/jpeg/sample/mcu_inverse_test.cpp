#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

enum Format { kRgb, kBgr, k555, k565, kCmyk, kYcc, kYuyv };
constexpr int kPixelBytes[] = {3, 3, 2, 2, 4, 3, 2};

// A member, and whether the addresses of its source planes select its arithmetic.
struct Member {
  const char* name;
  QelStatus (*call)(const int16_t* const*, uint8_t*, int32_t);
  Format format;
  int across, down;
  bool tested;
  int planes() const { return format == kCmyk ? 4 : 3; }
  size_t rowBytes() const { return size_t(8 * across * kPixelBytes[format]); }
};
template <auto F>
QelStatus call(const int16_t* const* src, uint8_t* dst, int32_t step) {
  if constexpr (std::is_invocable_v<decltype(F), const int16_t* const*, uint8_t*, int32_t>)
    return F(src, dst, step);
  else
    return F(src, reinterpret_cast<uint16_t*>(dst), step);
}
#define MEMBER(name, ...) \
  { #name, call < name>, __VA_ARGS__ }
#define THREE(format, before, after, tested)                                                          \
  MEMBER(before##444##after, format, 1, 1, tested), MEMBER(before##422##after, format, 2, 1, tested), \
      MEMBER(before##411##after, format, 2, 2, tested)
const Member kMembers[] = {
    THREE(kRgb, qeliYCbCr, ToRGBLS_MCU_16s8u_P3C3R, true),
    THREE(kBgr, qeliYCbCr, ToBGRLS_MCU_16s8u_P3C3R, true),
    THREE(k555, qeliYCbCr, ToBGR555LS_MCU_16s16u_P3C3R, false),
    THREE(k565, qeliYCbCr, ToBGR565LS_MCU_16s16u_P3C3R, false),
    THREE(kCmyk, qeliYCCK, ToCMYKLS_MCU_16s8u_P4C4R, true),
    THREE(kYcc, qeliSampleUp, LS_MCU_16s8u_P3C3R, false),
    MEMBER(qeliJoin422LS_MCU_16s8u_P3C2R, kYuyv, 2, 1, false),
};
#undef THREE
#undef MEMBER

// The three channels of one pixel, from 64-bit sums and the reductions that are named.
std::array<int, 3> colour(const Member& m, int64_t y, int64_t cb, int64_t cr, bool truncated) {
  const auto clamp = [](int64_t v) { return int(std::clamp<int64_t>(v, 0, 255)); };
  const auto sat = [](int64_t v) { return std::clamp<int64_t>(v, -32768, 32767); };
  const auto high = [](int64_t v) { return int64_t(int32_t(uint32_t(uint64_t(v)))) >> 16; };
  if (m.format == kYcc || m.format == kYuyv) return {clamp(y + 128), clamp(cb + 128), clamp(cr + 128)};
  if (truncated)
    return {clamp(y + high(91881 * cr) + 128), clamp(y + high(-22554 * cb - 46802 * cr) + 128),
            clamp(y + high(116130 * cb) + 128)};
  const int64_t green = m.across == 1 ? y + sat((-5638 * cb - 11700 * cr + 2105344) >> 14)
                                      : y - sat((5638 * cb + 11700 * cr - 2088960) >> 14);
  return {clamp(y + sat((22970 * cr + 2105344) >> 14)), clamp(green),
          clamp(y + sat((29032 * cb + 2105344) >> 14))};
}

void model(const Member& m, const int16_t* const* src, uint8_t* dst, int step, bool truncated) {
  const auto sample = [&](int plane, int i) {  // planes may stand at odd addresses
    int16_t v;
    std::memcpy(&v, reinterpret_cast<const uint8_t*>(src[plane]) + 2 * i, 2);
    return v;
  };
  for (int y = 0; y < 8 * m.down; ++y)
    for (int x = 0; x < 8 * m.across; ++x) {
      const int luma = (y / 8 * m.across + x / 8) * 64 + y % 8 * 8 + x % 8,
                chroma = y / m.down * 8 + x / m.across;
      const auto [r, g, b] = colour(m, sample(0, luma), sample(1, chroma), sample(2, chroma), truncated);
      uint8_t* p = dst + y * step + x * kPixelBytes[m.format];
      const auto bytes = [p](std::initializer_list<int> values) {
        std::copy(values.begin(), values.end(), p);
      };
      const auto word = [&](int w) { bytes({w & 255, w >> 8}); };
      switch (m.format) {
        case kBgr:
          bytes({b, g, r});
          break;
        case k555:
          word(b >> 3 | g >> 3 << 5 | r >> 3 << 10);
          break;
        case k565:
          word(b >> 3 | g >> 2 << 5 | r >> 3 << 11);
          break;
        case kYuyv:
          bytes({r, x % 2 ? b : g});
          break;
        case kCmyk: {
          const int k = sample(3, luma) + 128;
          bytes({255 - r, 255 - g, 255 - b, truncated ? k & 255 : std::clamp(k, 0, 255)});
          break;
        }
        default:
          bytes({r, g, b});
      }
    }
}

// Every member, with one plane moved off its 16-byte boundary at a time, over small and extreme samples, and
// with rows that overlap.
TEST(McuInverse, EveryMemberInEveryAlignment) {
  Random random;
  for (const Member& m : kMembers)
    for (int moved = -1; moved < m.planes(); ++moved)
      for (const size_t by : {1, 2, 8, 15})
        for (const int range : {140, 400, 32768}) {
          std::vector<Guarded> planes;
          const int16_t* src[4] = {};
          for (int i = 0; i < m.planes(); ++i) {
            planes.emplace_back(random, (i % 3 == 0 ? size_t(m.across * m.down) : 1) * 128, 1, 0,
                                16 + (i == moved ? by : 0));
            const auto samples = random.vector<int16_t>(planes.back().rowBytes() / 2, -range, range - 1);
            std::memcpy(planes.back().data(), samples.data(), planes.back().rowBytes());
          }
          for (size_t i = 0; i < planes.size(); ++i) src[i] = planes[i].data<int16_t>();
          for (const size_t step : {m.rowBytes(), m.rowBytes() + by, size_t(3)}) {
            const size_t bytes = step * size_t(8 * m.down - 1) + m.rowBytes();
            Guarded dst(random, bytes, 1, 0, by);
            std::vector<uint8_t> expected(dst.data(), dst.data() + bytes);
            ASSERT_EQ(qelStatusOk, m.call(src, dst.data(), int32_t(step)));
            model(m, src, expected.data(), int(step), m.tested && moved >= 0);
            EXPECT_TRUE(dst.intact() && std::equal(expected.begin(), expected.end(), dst.data()))
                << m.name << ", plane " << moved << " moved by " << by << ", range " << range << ", step "
                << step;
          }
        }
}

// Flat blocks, at a 16-byte boundary or two bytes behind it: the first pixel.
std::vector<int> flat(const Member& m, std::array<int16_t, 4> samples, bool moved = false) {
  alignas(16) int16_t blocks[4][264];
  const int16_t* src[4];
  for (size_t i = 0; i < 4; ++i) std::fill_n(blocks[i], 264, samples[i]), src[i] = blocks[i] + moved;
  std::vector<uint8_t> out(1024);
  EXPECT_EQ(qelStatusOk, m.call(src, out.data(), 64)) << m.name;
  return {out.begin(), out.begin() + kPixelBytes[m.format]};
}

TEST(McuInverse, KnownColours) {
  using V = std::vector<int>;
  const Member &rgb444 = kMembers[0], &rgb411 = kMembers[2], &cmyk = kMembers[12], &p565 = kMembers[9];
  for (const bool moved : {false, true}) {
    EXPECT_EQ((V{128, 128, 128}), flat(rgb444, {}, moved));
    EXPECT_EQ((V{0, 0, 0}), flat(rgb411, {-200}, moved));
    EXPECT_EQ((V{255, 255, 255}), flat(rgb411, {200}, moved));
    EXPECT_EQ((V{127, 127, 127, moved ? 72 : 255}), flat(cmyk, {0, 0, 0, 200}, moved));
    EXPECT_EQ((V{127, 127, 127, moved ? 255 : 0}), flat(cmyk, {0, 0, 0, -129}, moved));
    EXPECT_EQ((V{127, 127, 127, moved ? 0 : 255}), flat(cmyk, {0, 0, 0, 128}, moved));
  }
  EXPECT_EQ((V{0x10, 0x84}), flat(p565, {}));
  // Red of Cr = 1 is 1.402: 129 rounded, 129 cut; of Cr = -1 it is 127 rounded, but 126 cut.
  EXPECT_EQ((V{127, 129, 128}), flat(rgb444, {0, 0, -1}));
  EXPECT_EQ((V{126, 128, 128}), flat(rgb444, {0, 0, -1}, true));
  // A chroma term beyond 16 bits saturates before luma is added: 39318 becomes 32767.
  EXPECT_EQ(0, flat(rgb444, {-32768, 0, 28000})[0]);
  // A product beyond 32 bits wraps where nothing is rounded: 91881 * 30000 is 2756430000, which is negative.
  EXPECT_EQ(0, flat(rgb444, {0, 0, 30000}, true)[0]);
}

// Green's two forms part where the weighted sum lies exactly on a half (which takes chroma beyond 8 bits).
TEST(McuInverse, GreenTies) {
  EXPECT_EQ(128, flat(kMembers[0], {0, 734, -353})[1]);  // 128.5 - 0.5
  EXPECT_EQ(127, flat(kMembers[2], {0, 734, -353})[1]);
  EXPECT_EQ(132, flat(kMembers[0], {0, 712, -348})[1]);  // 128.5 + 3.5
  EXPECT_EQ(131, flat(kMembers[1], {0, 712, -348})[1]);
}

TEST(McuInverse, ChecksInOrder) {
  const std::vector<int16_t> block(256);
  for (const Member& m : kMembers) {
    std::vector<uint8_t> pixels(1024, 7);
    std::vector<const int16_t*> src(size_t(m.planes()), block.data()), holes;
    EXPECT_EQ(qelStatusNullPointer, m.call(nullptr, pixels.data(), 0)) << m.name;
    EXPECT_EQ(qelStatusNullPointer, m.call(src.data(), nullptr, 0)) << m.name;
    for (size_t i = 0; i < src.size(); ++i) {
      holes = src, holes[i] = nullptr;
      EXPECT_EQ(qelStatusNullPointer, m.call(holes.data(), pixels.data(), 0)) << m.name << i;
    }
    EXPECT_EQ(qelStatusBadStep, m.call(src.data(), pixels.data(), 0)) << m.name;
    EXPECT_EQ(qelStatusBadStep, m.call(src.data(), pixels.data(), -48)) << m.name;
    EXPECT_EQ(std::vector<uint8_t>(1024, 7), pixels) << m.name;
  }
}

}  // namespace
}  // namespace qelj::test
