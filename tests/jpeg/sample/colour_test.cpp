// The colour conversions of full resolution, held against the formulas written out.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <string>

#include "qelcore.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using Triple = std::array<int, 3>;
using Model = Triple (*)(int, int, int);
using Image = std::vector<std::array<int, 4>>;  // R, G, B, K or Y, Cb, Cr, K, row by row

// --- The formulas: r, g, b to Y, Cb, Cr --------------------------------------------------------------------

Triple q15(int r, int g, int b) {
  return {(9798 * r + 19235 * g + 3736 * b + 16266) >> 15,
          (-5529 * r - 10855 * g + 16384 * b + 4210688) >> 15,
          (16384 * r - 13720 * g - 2664 * b + 4210704) >> 15};
}
Triple q14(int r, int g, int b) {
  return {(4899 * r + 9617 * g + 1868 * b + 8192) >> 14, (-2764 * r - 5428 * g + 8192 * b + 2105344) >> 14,
          (8192 * r - 6860 * g - 1332 * b + 2105344) >> 14};
}
Triple truncated(int r, int g, int b) {
  return {(((r * 4899) >> 8) + ((g * 9617) >> 8) + ((b * 1868) >> 8) + 32) >> 6,
          (((b * 8192) >> 9) - (((r * 2765) >> 9) + ((g * 5427) >> 9)) + 4112) >> 5,
          (((r * 8192) >> 9) - (((g * 6860) >> 9) + ((b * 1332) >> 9)) + 4112) >> 5};
}
Triple q14Quarter(int r, int g, int b) {
  return {(4899 * r + 9617 * g + 1868 * b + 8192) >> 14, (8192 * b - 5427 * g - 2765 * r + 2101248) >> 14,
          (8192 * r - 6860 * g - 1332 * b + 2101248) >> 14};
}
Triple q16(int r, int g, int b) {
  return {(19595 * r + 38470 * g + 7471 * b + 32768) >> 16,
          (-11059 * r - 21709 * g + 32768 * b + 8421375) >> 16,
          (32768 * r - 27439 * g - 5329 * b + 8421375) >> 16};
}
Triple difference(int r, int g, int b) {
  const int y = q16(r, g, b)[0];
  return {y, ((b - y) * 18491 + 4210688) >> 15, ((r - y) * 23373 + 4210688) >> 15};
}
Triple floatLuma(int r, int g, int b) {
  const float x = float(r) * 0.29899999499320984f, y = float(g) * 0.5870000123977661f, xy = x + y;
  return {int(std::lrintf(xy + float(b) * 0.11400000005960464f)), 0, 0};
}

// --- Y, Cb, Cr to r, g, b ----------------------------------------------------------------------------------

Triple planeQ14(int y, int cb, int cr) {
  return {y + ((22970 * cr - 2932015) >> 14), y - ((5638 * cb + 11700 * cr - 2211182) >> 14),
          y + ((29032 * cb - 3708561) >> 14)};
}
Triple pixelQ14(int y, int cb, int cr) {
  return {y + ((22970 * cr - 2932015) >> 14), y + ((-5638 * cb - 11700 * cr + 2227566) >> 14),
          y + ((29032 * cb - 3707961) >> 14)};
}
Triple table(int y, int cb, int cr) {
  return {y + ((91881 * (cr - 128) + 32768) >> 16),
          y + ((-46802 * (cr - 128) + (-22554 * (cb - 128) + 32768)) >> 16),
          y + ((116130 * (cb - 128) + 32768) >> 16)};
}
Triple q4(int y, int cb, int cr) {
  return {(y * 16 + ((cr * 11485) >> 9) - 2871 + 8) >> 4,
          (y * 16 + 2167 - (((cb * 2819) >> 9) + ((cr * 5850) >> 9)) + 8) >> 4,
          (y * 16 + ((cb * 14516) >> 9) - 3629 + 8) >> 4};
}

// --- Layouts -----------------------------------------------------------------------------------------------

// What each channel or plane holds: 0, 1, 2, 3 a component, c, m, y the complement of 0, 1, 2, x a byte
// without meaning. Packed 16-bit pixels name the fields from the low one up.
struct Layout {
  std::string channels;
  bool planar = false;
  int greenBits = 0;

  size_t pixelBytes() const { return greenBits ? 2 : planar ? 1 : channels.size(); }
  size_t planes() const { return planar ? channels.size() : 1; }
};
constexpr uint8_t kAlpha = 0xA7;

int component(char c, const std::array<int, 4>& pixel) {
  const auto complement = std::string("cmy").find(c);
  return complement != std::string::npos ? 255 - pixel[complement]
         : c == 'x'                      ? kAlpha
                                         : pixel[size_t(c - '0')];
}
void set(char c, std::array<int, 4>& pixel, int value) {
  const auto complement = std::string("cmy").find(c);
  if (complement != std::string::npos)
    pixel[complement] = 255 - value;
  else if (c == 'x')
    EXPECT_EQ(kAlpha, value);
  else
    pixel[size_t(c - '0')] = value;
}

// One image in one layout, in guarded memory; planes lie one below the other.
class Stored {
 public:
  Stored(Random& random, const Layout& layout, size_t width, size_t height)
      : layout_(layout),
        width_(width),
        height_(height),
        memory_(random, width * layout.pixelBytes(), height * layout.planes(),
                width * layout.pixelBytes() + random.bits() % 5, random.bits() % 40) {
    for (size_t i = 0; i < layout.planes(); ++i) pointers_.push_back(memory_.data(i * height));
  }
  void write(const Image& image) {
    for (size_t i = 0; i < image.size(); ++i) {
      const size_t x = i % width_, y = i / width_;
      const auto value = [&](size_t c) { return component(layout_.channels[c], image[i]); };
      if (layout_.greenBits) {
        const int top = layout_.greenBits == 5 ? int(x & 1) << 15 : 0;  // without meaning
        const int fields = (value(0) >> 3) | (value(1) >> (8 - layout_.greenBits)) << 5 |
                           (value(2) >> 3) << (5 + layout_.greenBits);
        const auto word = uint16_t(fields | top);
        std::memcpy(memory_.data(y) + 2 * x, &word, 2);
      } else {
        for (size_t c = 0; c < layout_.channels.size(); ++c) sample(c, x, y) = uint8_t(value(c));
      }
    }
  }
  Image read() {
    Image image(width_ * height_);
    for (size_t i = 0; i < image.size(); ++i) {
      const size_t x = i % width_, y = i / width_;
      if (layout_.greenBits) {
        uint16_t word;
        std::memcpy(&word, memory_.data(y) + 2 * x, 2);
        const int green = layout_.greenBits;
        set(layout_.channels[0], image[i], word << 3 & 0xFF);
        set(layout_.channels[1], image[i], word >> 5 << (8 - green) & 0xFF);
        set(layout_.channels[2], image[i], word >> (5 + green) << 3);  // not cut: bit 15 must be 0
      } else {
        for (size_t c = 0; c < layout_.channels.size(); ++c)
          set(layout_.channels[c], image[i], sample(c, x, y));
      }
    }
    return image;
  }
  bool intact() const { return memory_.intact(); }
  bool untouched() const { return memory_.untouched(); }
  int32_t step() const { return memory_.step(); }
  template <class Argument>
  Argument argument() {
    if constexpr (std::is_pointer_v<std::remove_pointer_t<Argument>>)
      return const_cast<Argument>(pointers_.data());
    else
      return reinterpret_cast<Argument>(pointers_[0]);
  }
  void forget(size_t plane) { pointers_[plane] = nullptr; }

 private:
  uint8_t& sample(size_t c, size_t x, size_t y) {
    return layout_.planar ? memory_.data(c * height_ + y)[x]
                          : memory_.data(y)[x * layout_.channels.size() + c];
  }
  Layout layout_;
  size_t width_, height_;
  Guarded memory_;
  std::vector<uint8_t*> pointers_;
};

struct Case {
  const char* name;
  Layout from, to;
  Model main, tail;
  size_t group;
  bool testsSteps;
  std::function<QelStatus(Stored*, int32_t, Stored*, int32_t, QelSize)> call;
};

template <class From, class To, class... Alpha>
Case make(const char* name, QelStatus (*f)(From, int32_t, To, int32_t, QelSize, Alpha...), Layout from,
          Layout to, Model main, Model tail, size_t group, bool testsSteps = true) {
  return {name,
          from,
          to,
          main,
          tail,
          group,
          testsSteps,
          [=](Stored* src, int32_t srcStep, Stored* dst, int32_t dstStep, QelSize size) {
            return f(src ? src->argument<From>() : nullptr, srcStep, dst ? dst->argument<To>() : nullptr,
                     dstStep, size, Alpha(kAlpha)...);
          }};
}
#define CASE(name, ...) make(#name, name, __VA_ARGS__)

const Layout kRgb{"012"}, kBgr{"210"}, kRgba{"012x"}, kBgra{"210x"}, kPlanes{"012", true},
    kPlanes4{"0123", true}, kLuma{"0"};
const Layout kCmyk{"cmy3"}, kCmykPlanes{"cmy3", true}, kRgb555{"012", false, 5}, kBgr555{"210", false, 5},
    kRgb565{"012", false, 6}, kBgr565{"210", false, 6};

const Case kCases[] = {
    CASE(qeliRGBToYCbCr_JPEG_8u_C3P3R, kRgb, kPlanes, q15, q14, 8),
    CASE(qeliBGRToYCbCr_JPEG_8u_C3P3R, kBgr, kPlanes, q15, q14, 8),
    CASE(qeliRGBToYCbCr_JPEG_8u_C4P3R, kRgba, kPlanes, truncated, q14Quarter, 8, false),
    CASE(qeliBGRToYCbCr_JPEG_8u_C4P3R, kBgra, kPlanes, truncated, q14Quarter, 8, false),
    CASE(qeliRGBToYCbCr_JPEG_8u_P3R, kPlanes, kPlanes, difference, q16, 4),
    CASE(qeliRGBToY_JPEG_8u_C3C1R, kRgb, kLuma, q15, q15, 1),
    CASE(qeliBGRToY_JPEG_8u_C3C1R, kBgr, kLuma, q15, q15, 1),
    CASE(qeliRGBToY_JPEG_8u_P3C1R, kPlanes, kLuma, floatLuma, q16, 4),
    CASE(qeliCMYKToYCCK_JPEG_8u_C4P4R, kCmyk, kPlanes4, q14, q14, 1),
    CASE(qeliCMYKToYCCK_JPEG_8u_P4R, kCmykPlanes, kPlanes4, difference, q16, 4),
    CASE(qeliRGB555ToYCbCr_JPEG_16u8u_C3P3R, kRgb555, kPlanes, q14, q14, 1),
    CASE(qeliBGR555ToYCbCr_JPEG_16u8u_C3P3R, kBgr555, kPlanes, q14, q14, 1),
    CASE(qeliRGB565ToYCbCr_JPEG_16u8u_C3P3R, kRgb565, kPlanes, q14, q14, 1),
    CASE(qeliBGR565ToYCbCr_JPEG_16u8u_C3P3R, kBgr565, kPlanes, q14, q14, 1),
    CASE(qeliYCbCrToRGB_JPEG_8u_P3C3R, kPlanes, kRgb, pixelQ14, table, 4),
    CASE(qeliYCbCrToBGR_JPEG_8u_P3C3R, kPlanes, kBgr, pixelQ14, table, 4),
    CASE(qeliYCbCrToRGB_JPEG_8u_P3R, kPlanes, kPlanes, planeQ14, table, 4),
    CASE(qeliYCbCrToRGB_JPEG_8u_P3C4R, kPlanes, kRgba, q4, q4, 1, false),
    CASE(qeliYCbCrToBGR_JPEG_8u_P3C4R, kPlanes, kBgra, q4, q4, 1, false),
    CASE(qeliYCCKToCMYK_JPEG_8u_P4C4R, kPlanes4, kCmyk, planeQ14, table, 4),
    CASE(qeliYCCKToCMYK_JPEG_8u_P4R, kPlanes4, kCmykPlanes, planeQ14, table, 4),
    CASE(qeliYCbCrToRGB555_JPEG_8u16u_P3C3R, kPlanes, kRgb555, planeQ14, table, 4),
    CASE(qeliYCbCrToBGR555_JPEG_8u16u_P3C3R, kPlanes, kBgr555, planeQ14, table, 4),
    CASE(qeliYCbCrToRGB565_JPEG_8u16u_P3C3R, kPlanes, kRgb565, planeQ14, table, 4),
    CASE(qeliYCbCrToBGR565_JPEG_8u16u_P3C3R, kPlanes, kBgr565, planeQ14, table, 4),
};

class Colour : public testing::TestWithParam<Case> {
 protected:
  // What a layout can hold of a pixel.
  static std::array<int, 4> cut(const Layout& layout, std::array<int, 4> p) {
    if (layout.greenBits)
      p = {p[0] & 0xF8, p[1] >> (8 - layout.greenBits) << (8 - layout.greenBits), p[2] & 0xF8, 0};
    for (size_t c = 0; c < 4; ++c)
      if (layout.channels.find(char('0' + c)) == std::string::npos &&
          layout.channels.find("cmy"[c % 3]) == std::string::npos)
        p[c] = 0;
    return p;
  }
  static std::array<int, 4> expected(const Case& c, Model model, std::array<int, 4> p) {
    p = cut(c.from, p);
    const Triple t = model(p[0], p[1], p[2]);
    return cut(c.to, {std::clamp(t[0], 0, 255), std::clamp(t[1], 0, 255), std::clamp(t[2], 0, 255), p[3]});
  }
  static void run(const Case& c, const Image& image, size_t width) {
    const size_t height = image.size() / width;
    Random random(width);
    Stored src(random, c.from, width, height), dst(random, c.to, width, height);
    src.write(image);
    ASSERT_EQ(qelStatusOk, c.call(&src, src.step(), &dst, dst.step(), {int32_t(width), int32_t(height)}));
    ASSERT_TRUE(dst.intact());
    const Image result = dst.read();
    for (size_t i = 0; i < image.size(); ++i) {
      const Model model = i % width < width - width % c.group ? c.main : c.tail;
      ASSERT_EQ(expected(c, model, image[i]), result[i]) << "x " << i % width << " of " << width;
    }
  }
};

// Only pixels that the two forms convert differently, so that every position tells its form.
TEST_P(Colour, FormByPosition) {
  const Case& c = GetParam();
  Random random;
  for (size_t width = 1; width <= 75; ++width) {
    Image image(2 * width);
    for (auto& pixel : image) {
      do {
        for (int& v : pixel) v = int(random.in(0, 255));
      } while (c.main != c.tail && expected(c, c.main, pixel) == expected(c, c.tail, pixel));
    }
    ASSERT_NO_FATAL_FAILURE(run(c, image, width));
  }
}

// A dense grid of all three components, both ends included.
TEST_P(Colour, Grid) {
  for (int first = 0; first < 256; first += 17) {
    Image image;
    for (int second = 0; second < 256; second += 3)
      for (int third = 0; third < 256; ++third) image.push_back({first, second, third, second ^ third});
    ASSERT_NO_FATAL_FAILURE(run(GetParam(), image, image.size()));
  }
}

TEST_P(Colour, ChecksInOrder) {
  const Case& c = GetParam();
  Random random;
  Stored src(random, c.from, 4, 1), dst(random, c.to, 4, 1), holed(random, c.from, 4, 1),
      holedDst(random, c.to, 4, 1);
  const QelSize good{4, 1}, flat{0, 1}, thin{4, 0};
  EXPECT_EQ(qelStatusNullPointer, c.call(nullptr, 0, &dst, 0, flat));
  EXPECT_EQ(qelStatusNullPointer, c.call(&src, 0, nullptr, 0, flat));
  holed.forget(c.from.planes() - 1), holedDst.forget(c.to.planes() - 1);
  EXPECT_EQ(qelStatusNullPointer, c.call(&holed, 0, &dst, 0, flat));
  EXPECT_EQ(qelStatusNullPointer, c.call(&src, 0, &holedDst, 0, flat));
  EXPECT_EQ(c.testsSteps ? qelStatusBadStep : qelStatusBadSize, c.call(&src, 0, &dst, 9, flat));
  EXPECT_EQ(c.testsSteps ? qelStatusBadStep : qelStatusBadSize, c.call(&src, 9, &dst, -1, thin));
  EXPECT_EQ(qelStatusBadSize, c.call(&src, 9, &dst, 9, thin));
  EXPECT_TRUE(dst.untouched());
  EXPECT_EQ(qelStatusOk, c.call(&src, c.testsSteps ? 1 : 0, &dst, c.testsSteps ? 1 : -9, good));
}

INSTANTIATE_TEST_SUITE_P(All, Colour, testing::ValuesIn(kCases),
                         [](const auto& c) { return std::string(c.param.name); });

// Numbers worked out by hand.
TEST(ColourValues, Corners) {
  const std::vector<uint8_t> blue = {0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255,
                                     0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255};
  uint8_t y[8], cb[8], cr[8];
  uint8_t* const ycc[] = {y, cb, cr};
  ASSERT_EQ(qelStatusOk, qeliRGBToYCbCr_JPEG_8u_C3P3R(blue.data(), 24, ycc, 8, {8, 1}));
  EXPECT_EQ(255, cb[0]);  // 256 before the clamp
  const uint16_t white[] = {0xFFFF};
  ASSERT_EQ(qelStatusOk, qeliRGB565ToYCbCr_JPEG_16u8u_C3P3R(white, 2, ycc, 8, {1, 1}));
  EXPECT_EQ((248 * (4899 + 1868) + 252 * 9617 + 8192) >> 14, y[0]);
  const uint8_t zero[4] = {};
  const uint8_t* const black[] = {zero, zero, zero};
  uint8_t rgb[16];
  ASSERT_EQ(qelStatusOk, qeliYCbCrToRGB_JPEG_8u_P3C3R(black, 4, rgb, 16, {4, 1}));
  EXPECT_EQ(0, rgb[0]);
  EXPECT_EQ(135, rgb[1]);
  EXPECT_EQ(0, rgb[2]);
}

// An image larger than the caches is stored in another way; a row alone is not.
TEST(ColourValues, LargeImageEqualsItsRows) {
  int32_t cache = 0;
  if (qelGetMaxCacheSizeB(&cache) != qelStatusOk || cache > (64 << 20))
    GTEST_SKIP() << "cache of unknown or great size";
  constexpr int kWidth = 4099, kStep = 4 * kWidth + 20;  // rows at all alignments of four bytes
  const int height = cache / (4 * kWidth) + 2;
  std::vector<uint8_t> source(size_t(kWidth) * 3 + size_t(height)), row(kStep),
      image(size_t(kStep) * size_t(height));
  Random().fill(source.data(), source.size());
  // A step of one byte: every row is another one, of little memory.
  const uint8_t* const planes[] = {source.data(), source.data() + kWidth, source.data() + 2 * kWidth};
  ASSERT_EQ(qelStatusOk, qeliYCbCrToBGR_JPEG_8u_P3C4R(planes, 1, image.data(), kStep, {kWidth, height}, 9));
  for (int y = 0; y < height; ++y) {
    const uint8_t* const at[] = {planes[0] + y, planes[1] + y, planes[2] + y};
    ASSERT_EQ(qelStatusOk, qeliYCbCrToBGR_JPEG_8u_P3C4R(at, 1, row.data(), kStep, {kWidth, 1}, 9));
    ASSERT_EQ(0, std::memcmp(row.data(), image.data() + size_t(kStep) * size_t(y), 4 * kWidth)) << y;
  }
}

}  // namespace
}  // namespace qelj::test
