// The conversions of full resolution: near to JFIF's equations, and the same in whole rows and in their parts.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

constexpr int32_t kWidth = 77;
using Triple = std::array<double, 3>;

// ITU-T T.871.
Triple toYcc(Triple p) {
  const auto [r, g, b] = p;
  const double y = 0.299 * r + 0.587 * g + 0.114 * b;
  return {y, (b - y) / 1.772 + 128, (r - y) / 1.402 + 128};
}
Triple toRgb(Triple p) {
  const double y = p[0], cb = p[1] - 128, cr = p[2] - 128;
  return {y + 1.402 * cr, y - (0.114 * 1.772 * cb + 0.299 * 1.402 * cr) / 0.587, y + 1.772 * cb};
}

// One row as a function takes it: planes, or pixels of bytes. `order` names the component of each, x for none.
struct Stored {
  std::string order;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(size_t(kWidth) * order.size());
  bool planar = false;
  std::vector<uint8_t*> planes{};

  template <class Pointer>
  Pointer from(int32_t x) {
    planar = std::is_pointer_v<std::remove_pointer_t<Pointer>>;
    planes.clear();
    for (size_t i = 0; i < order.size(); ++i) planes.push_back(&bytes[i * kWidth + size_t(x)]);
    if constexpr (std::is_pointer_v<std::remove_pointer_t<Pointer>>) return planes.data();
    else return &bytes[size_t(x) * order.size()];
  }
  Triple pixel(int32_t x) const {
    Triple p;
    for (size_t c = 0; c < 3; ++c) {
      const size_t i = order.find("012"[c]);
      p[c] = bytes[planar ? i * kWidth + size_t(x) : size_t(x) * order.size() + i];
    }
    return p;
  }
};

// group: pixels whose number divides the parts of a row.
template <class Src, class Dst, class... Alpha>
void expectNear(Triple (*equations)(Triple), QelStatus (*f)(Src, int32_t, Dst, int32_t, QelSize, Alpha...),
                const char* from, const char* to, int group) {
  Random random;
  for (int round = 0; round < 300; ++round) {
    Stored src{from}, whole{to}, parts{to};
    random.fill(src.bytes.data(), src.bytes.size());
    const auto run = [&](Stored& dst, int32_t x, int32_t width) {
      ASSERT_EQ(qelStatusOk, f(src.from<Src>(x), 1, dst.from<Dst>(x), 1, {width, 1}, Alpha(255)...));
    };
    const int32_t cut = int32_t(random.in(1, kWidth / group - 1)) * group;
    run(whole, 0, kWidth);
    run(parts, 0, cut), run(parts, cut, kWidth - cut);
    ASSERT_EQ(whole.bytes, parts.bytes) << "cut at " << cut;
    for (int32_t x = 0; x < kWidth; ++x) {
      const Triple exact = equations(src.pixel(x)), got = whole.pixel(x);
      for (size_t i = 0; i < 3; ++i)
        ASSERT_LT(std::abs(std::clamp(exact[i], 0.0, 255.0) - got[i]), 1.1) << "component " << i << " at " << x;
    }
  }
}

TEST(Colour, NearTheEquationsInWholeRowsAndParts) {
  expectNear(toYcc, qeliRGBToYCbCr_JPEG_8u_C3P3R, "012", "012", 8);
  expectNear(toYcc, qeliBGRToYCbCr_JPEG_8u_C3P3R, "210", "012", 8);
  expectNear(toYcc, qeliRGBToYCbCr_JPEG_8u_C4P3R, "012x", "012", 8);
  expectNear(toYcc, qeliBGRToYCbCr_JPEG_8u_C4P3R, "210x", "012", 8);
  expectNear(toYcc, qeliRGBToYCbCr_JPEG_8u_P3R, "012", "012", 4);
  expectNear(toRgb, qeliYCbCrToRGB_JPEG_8u_P3C3R, "012", "012", 4);
  expectNear(toRgb, qeliYCbCrToBGR_JPEG_8u_P3C3R, "012", "210", 4);
  expectNear(toRgb, qeliYCbCrToRGB_JPEG_8u_P3R, "012", "012", 4);
  expectNear(toRgb, qeliYCbCrToRGB_JPEG_8u_P3C4R, "012", "012x", 1);
  expectNear(toRgb, qeliYCbCrToBGR_JPEG_8u_P3C4R, "012", "210x", 1);
}

}  // namespace
}  // namespace qelj::test
