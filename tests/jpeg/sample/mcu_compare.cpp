#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

constexpr int kMany = 2000;

// kPlanes block pointers of an MCU of kAcross x kDown luma blocks, on and off their 16-byte boundaries.
template <int kAcross, int kDown, int kPlanes>
struct Blocks {
  std::array<Rows<int16_t>*, kPlanes> rows{};
  std::array<int16_t*, kPlanes> pointers{};

  explicit Blocks(Case& c) {
    for (size_t i = 0; i < kPlanes; ++i) {
      rows[i] = &c.rows<int16_t>(i % 3 == 0 ? kAcross * kDown * 64 : 64);
      pointers[i] = rows[i]->data();
    }
  }
  auto argument() const { return Planes{pointers.data(), kPlanes}; }
};

template <class Pixels, int kAcross, int kDown, int kPlanes>
constexpr auto forward = [](auto* function, Case& c) {
  const auto src = Pixels::source(c, {{8 * kAcross, 8 * kDown}, false}, Tested::yes);
  const Blocks<kAcross, kDown, kPlanes> dst(c);
  c.call(function, src.argument(), Step{src.step}, dst.argument());
};
// Samples as a transform leaves them, and any. A destination's rows may overlap: they are written in order.
template <class Pixels, int kAcross, int kDown, int kPlanes>
constexpr auto inverse = [](auto* function, Case& c) {
  const Blocks<kAcross, kDown, kPlanes> src(c);
  for (auto* rows : src.rows) {
    const int64_t range = c.of({10, 140, 140, 400, 4000, 32768});
    rows->fill([&] { return c.in(-range, range - 1); });
  }
  const auto dst = Pixels::destination(c, {8 * kAcross, 8 * kDown}, Tested::yes, Overlap::yes);
  c.call(function, src.argument(), dst.argument(), Step{dst.step});
};

using Pixels2 = Operand<uint8_t, 2, 0>;
using Pixels3 = Operand<uint8_t, 3, 0>;
using Pixels4 = Operand<uint8_t, 4, 0>;
using Packed = Operand<uint16_t, 1, 0>;

#define COMPARE_THREE(before, after, operation, pixels, planes)             \
  QELJ_COMPARE(before##444##after, operation<pixels, 1, 1, planes>, kMany); \
  QELJ_COMPARE(before##422##after, operation<pixels, 2, 1, planes>, kMany); \
  QELJ_COMPARE(before##411##after, operation<pixels, 2, 2, planes>, kMany)

COMPARE_THREE(qeliRGBToYCbCr, LS_MCU_8u16s_C3P3R, forward, Pixels3, 3);
COMPARE_THREE(qeliBGRToYCbCr, LS_MCU_8u16s_C3P3R, forward, Pixels3, 3);
COMPARE_THREE(qeliBGR555ToYCbCr, LS_MCU_16u16s_C3P3R, forward, Packed, 3);
COMPARE_THREE(qeliBGR565ToYCbCr, LS_MCU_16u16s_C3P3R, forward, Packed, 3);
COMPARE_THREE(qeliCMYKToYCCK, LS_MCU_8u16s_C4P4R, forward, Pixels4, 4);
COMPARE_THREE(qeliSampleDown, LS_MCU_8u16s_C3P3R, forward, Pixels3, 3);
QELJ_COMPARE(qeliSplit422LS_MCU_8u16s_C2P3R, forward<Pixels2, 2, 1, 3>, kMany);
COMPARE_THREE(qeliYCbCr, ToRGBLS_MCU_16s8u_P3C3R, inverse, Pixels3, 3);
COMPARE_THREE(qeliYCbCr, ToBGRLS_MCU_16s8u_P3C3R, inverse, Pixels3, 3);
COMPARE_THREE(qeliYCbCr, ToBGR555LS_MCU_16s16u_P3C3R, inverse, Packed, 3);
COMPARE_THREE(qeliYCbCr, ToBGR565LS_MCU_16s16u_P3C3R, inverse, Packed, 3);
COMPARE_THREE(qeliYCCK, ToCMYKLS_MCU_16s8u_P4C4R, inverse, Pixels4, 4);
COMPARE_THREE(qeliSampleUp, LS_MCU_16s8u_P3C3R, inverse, Pixels3, 3);
QELJ_COMPARE(qeliJoin422LS_MCU_16s8u_P3C2R, inverse<Pixels2, 2, 1, 3>, kMany);

}  // namespace
}  // namespace qelj::test
