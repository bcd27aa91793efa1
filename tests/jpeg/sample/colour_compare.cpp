#include "support/compare.h"

namespace qelj::test {
namespace {

// One operand: `planes` planes (0: a single buffer of its own), `bytes` bytes a pixel.
class Operand {
 public:
  Operand(Random& random, int planes, size_t bytes, size_t width, size_t height) {
    const size_t gap = size_t(random.in(0, 9));
    for (int i = 0; i < std::max(planes, 1); ++i)
      memory_.emplace_back(random, width * bytes, height, width * bytes + gap, size_t(random.in(0, 33)));
    for (auto& m : memory_) pointers_.push_back(m.data());
  }
  // Extreme samples, where the forms clamp.
  void saturate(Random& random) {
    for (auto& m : memory_)
      for (size_t y = 0; y < m.rows(); ++y)
        for (size_t x = 0; x < m.rowBytes(); ++x) m.data(y)[x] = random.chance(50) ? 0 : 255;
  }
  template <class Argument>
  Argument argument() {
    if constexpr (std::is_pointer_v<std::remove_pointer_t<Argument>>)
      return const_cast<Argument>(pointers_.data());
    else
      return reinterpret_cast<Argument>(pointers_[0]);
  }
  int32_t step() const { return memory_[0].step(); }
  void trace(Trace& trace) const {
    for (const auto& m : memory_) trace.buffer(m);
  }

 private:
  std::vector<Guarded> memory_;
  std::vector<uint8_t*> pointers_;
};

template <int kFromPlanes, size_t kFromBytes, int kToPlanes, size_t kToBytes>
constexpr auto convert = []<class From, class To, class... Alpha>(QelStatus (*function)(From, int32_t, To,
                                                                                        int32_t, QelSize,
                                                                                        Alpha...),
                                                                  Random& random, Trace& trace) {
  const auto width = size_t(random.in(1, random.chance(80) ? 140 : 900)), height = size_t(random.in(1, 12));
  Operand src(random, kFromPlanes, kFromBytes, width, height),
      dst(random, kToPlanes, kToBytes, width, height);
  if (random.chance(20)) src.saturate(random);
  const QelSize size{int32_t(width), int32_t(height)};
  trace.status(function(src.argument<From>(), src.step(), dst.argument<To>(), dst.step(), size,
                        Alpha(random.bits())...));
  dst.trace(trace);
};

QELJ_COMPARE(qeliRGBToYCbCr_JPEG_8u_C3P3R, convert<0, 3, 3, 1>);
QELJ_COMPARE(qeliBGRToYCbCr_JPEG_8u_C3P3R, convert<0, 3, 3, 1>);
QELJ_COMPARE(qeliRGBToYCbCr_JPEG_8u_C4P3R, convert<0, 4, 3, 1>);
QELJ_COMPARE(qeliBGRToYCbCr_JPEG_8u_C4P3R, convert<0, 4, 3, 1>);
QELJ_COMPARE(qeliRGBToYCbCr_JPEG_8u_P3R, convert<3, 1, 3, 1>);
QELJ_COMPARE(qeliRGBToY_JPEG_8u_C3C1R, convert<0, 3, 0, 1>);
QELJ_COMPARE(qeliBGRToY_JPEG_8u_C3C1R, convert<0, 3, 0, 1>);
QELJ_COMPARE(qeliRGBToY_JPEG_8u_P3C1R, convert<3, 1, 0, 1>);
QELJ_COMPARE(qeliCMYKToYCCK_JPEG_8u_C4P4R, convert<0, 4, 4, 1>);
QELJ_COMPARE(qeliCMYKToYCCK_JPEG_8u_P4R, convert<4, 1, 4, 1>);
QELJ_COMPARE(qeliRGB555ToYCbCr_JPEG_16u8u_C3P3R, convert<0, 2, 3, 1>);
QELJ_COMPARE(qeliBGR555ToYCbCr_JPEG_16u8u_C3P3R, convert<0, 2, 3, 1>);
QELJ_COMPARE(qeliRGB565ToYCbCr_JPEG_16u8u_C3P3R, convert<0, 2, 3, 1>);
QELJ_COMPARE(qeliBGR565ToYCbCr_JPEG_16u8u_C3P3R, convert<0, 2, 3, 1>);
QELJ_COMPARE(qeliYCbCrToRGB_JPEG_8u_P3C3R, convert<3, 1, 0, 3>);
QELJ_COMPARE(qeliYCbCrToBGR_JPEG_8u_P3C3R, convert<3, 1, 0, 3>);
QELJ_COMPARE(qeliYCbCrToRGB_JPEG_8u_P3R, convert<3, 1, 3, 1>);
QELJ_COMPARE(qeliYCbCrToRGB_JPEG_8u_P3C4R, convert<3, 1, 0, 4>);
QELJ_COMPARE(qeliYCbCrToBGR_JPEG_8u_P3C4R, convert<3, 1, 0, 4>);
QELJ_COMPARE(qeliYCCKToCMYK_JPEG_8u_P4C4R, convert<4, 1, 0, 4>);
QELJ_COMPARE(qeliYCCKToCMYK_JPEG_8u_P4R, convert<4, 1, 4, 1>);
QELJ_COMPARE(qeliYCbCrToRGB555_JPEG_8u16u_P3C3R, convert<3, 1, 0, 2>);
QELJ_COMPARE(qeliYCbCrToBGR555_JPEG_8u16u_P3C3R, convert<3, 1, 0, 2>);
QELJ_COMPARE(qeliYCbCrToRGB565_JPEG_8u16u_P3C3R, convert<3, 1, 0, 2>);
QELJ_COMPARE(qeliYCbCrToBGR565_JPEG_8u16u_P3C3R, convert<3, 1, 0, 2>);

}  // namespace
}  // namespace qelj::test
