#include <cmath>

#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

constexpr int kMany = 2000;

// --- what blocks, tables and images hold -------------------------------------------------------------------

// Coefficients or centred samples of any size, all of them, the first ones or a few; or the ends of their range.
Rows<int16_t>& drawnBlock(Case& c) {
  auto& block = c.rows<int16_t>(64);
  const auto kind = c.in(0, 9);
  const auto shift = int(c.in(0, 15));
  const auto last = size_t(kind < 3 ? c.in(0, 63) : 63);
  for (size_t i = 0; i < 64; ++i) {
    const int16_t x = block.get(i);
    const bool counts = i <= last && (kind != 3 || c.chance(20));
    block.set(i, 0, kind == 4 ? c.of<int16_t>({-32768, -32768, 32767, x}) : int16_t(counts ? x >> shift : 0));
  }
  return block;
}
// Numbers of a few bits, whose transform stays in range.
void refill(Case& c, const Rows<int16_t>& block) {
  std::array<int16_t, 64> x;
  const auto shift = int(c.in(8, 11));
  c.random.fill(x.data(), sizeof x);
  for (auto& v : x) v = int16_t(v >> shift);
  std::memcpy(block.data(), x.data(), sizeof x);
}

// Divisors, multipliers and reciprocals, and what no table should hold: zeros, huge numbers, infinities, NaN.
template <class Entry>
Rows<Entry>& drawnTable(Case& c) {
  auto& table = c.rows<Entry>(64);  // any bits
  const auto kind = c.in(0, 9);
  const int64_t high = int64_t(1) << c.in(0, 12);
  if constexpr (std::is_integral_v<Entry>) {
    const auto one = c.of({1, 0x8000});
    if (kind < 4) table.fill([&] { return c.in(0, high); });
    if (kind == 4) table.fill([&] { return c.of({0, 1, 0x7FFF, 0x8000, 0x8001, 0xFFFF}); });
    if (kind == 5) table.fill([&] { return 1 << c.in(0, 15); });
    if (kind == 6) table.fill([&] { return one; });
  } else {
    const Entry strange[] = {0, -0.0f, 1e-45f, -1, 1e5f, 1e6f, -1e9f, 3e38f, INFINITY, NAN};
    if (kind < 5)
      table.fill([&] {
        const auto numerator = Entry(c.in(1, high));
        return numerator / Entry(c.in(1, 255));
      });
    if (kind == 5) table.fill([&] { return strange[c.in(0, 9)]; });
    if (kind == 6) table.fill([] { return 1; });
  }
  return table;
}

void refill(Case& c, const Rows<uint8_t>& image) {
  const bool ends = c.chance(20);
  image.fill([&] { return ends ? c.of({0, 255}) : c.in(0, 255); });
}
// Mostly of 12 bits.
void refill(Case& c, const Rows<uint16_t>& image) {
  const int64_t high = c.of({4095, 4095, 4095, 65535});
  const bool ends = c.chance(20);
  image.fill([&] { return ends ? c.of({int64_t(0), high}) : c.in(0, high); });
}

// --- one block, then many that show what a rounding term does, which is seldom ----------------------------

template <class Sample, class Entry>
constexpr auto toBlock = [](auto* function, Case& c) {
  c.mayRaiseFlags = std::is_floating_point_v<Entry>;  // by what no table should hold
  const int32_t step = drawnStep(c, 8 * int32_t(sizeof(Sample)), Overlap::yes, Tested::yes);
  auto& src = c.region<Sample>(8, 8, step);
  auto& dst = c.rows<int16_t>(64);
  auto& table = drawnTable<Entry>(c);
  c.call(function, src.data(), Step{step}, dst.data(), table.data());
  c.now(dst);
  for (int i = 0; i < 8; ++i) {
    refill(c, src);
    c.run(function, src.data(), step, dst.data(), table.data());
    c.now(dst);
  }
};
template <class Sample, class Entry, int kSize, int kBlocks>
constexpr auto toImage = [](auto* function, Case& c) {
  c.mayRaiseFlags = std::is_floating_point_v<Entry>;
  const int32_t step = drawnStep(c, kSize * int32_t(sizeof(Sample)), Overlap::yes, Tested::yes);
  auto& src = drawnBlock(c);
  auto& dst = c.region<Sample>(kSize, kSize, step);
  auto& table = drawnTable<Entry>(c);
  c.call(function, src.data(), dst.data(), Step{step}, table.data());
  c.now(dst);
  table.fill([&] { return c.in(1, 2); });
  for (int i = 0; i < kBlocks; ++i) {
    refill(c, src);
    c.run(function, src.data(), dst.data(), step, table.data());
    c.now(dst);
  }
};
// Source and destination may be one block.
template <int kLeast, int kMost>
constexpr auto blockToBlock = [](auto* function, Case& c) {
  auto& src = drawnBlock(c);
  auto& dst = c.chance(20) ? src : drawnBlock(c);
  auto& table = drawnTable<uint16_t>(c);
  c.call(function, src.data(), dst.data(), table.data());
  c.now(dst);
  table.fill([&] { return c.in(kLeast, kMost); });
  for (int i = 0; i < 60; ++i) {
    refill(c, src);
    c.run(function, src.data(), dst.data(), table.data());
    c.now(dst);
  }
};
constexpr auto inPlace = [](auto* function, Case& c) {
  auto& block = drawnBlock(c);
  auto& table = drawnTable<uint16_t>(c);
  c.call(function, block.data(), table.data());
};

QELJ_COMPARE(qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R, toBlock<uint8_t, uint16_t>, kMany);
QELJ_COMPARE(qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R, toBlock<uint16_t, float>, kMany);
QELJ_COMPARE(qeliDCTQuantFwd8x8_JPEG_16s_C1, blockToBlock<0x8000, 0xFFFF>, kMany);
QELJ_COMPARE(qeliDCTQuantFwd8x8_JPEG_16s_C1I, inPlace, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 8, 60>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R, toImage<uint16_t, float, 8, 60>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8_JPEG_16s_C1, blockToBlock<1, 2>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8_JPEG_16s_C1I, inPlace, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 8, 60>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 8, 60>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 8, 60>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 2, 1000>, kMany);
QELJ_COMPARE(qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t, 4, 500>, kMany);

// --- quantisation ------------------------------------------------------------------------------------------

QELJ_COMPARE(qeliQuantFwd8x8_JPEG_16s_C1I, inPlace, kMany);
QELJ_COMPARE(qeliQuantInv8x8_JPEG_16s_C1I, inPlace, kMany);

// The raw table may lie in the memory of the one that is made of it.
constexpr auto tableInit = [](auto* function, Case& c) {
  auto& table = c.rows<uint16_t>(64);
  auto& raw = c.rows<uint8_t>(64);
  if (c.chance(60)) raw.fill([&] { return c.in(1, 255); });
  const auto within = c.in(0, 64);
  const uint8_t* src = c.chance(20) ? table.raw() + within : raw.data();
  c.call(function, src, table.data());
};
QELJ_COMPARE(qeliQuantFwdTableInit_JPEG_8u16u, tableInit);
QELJ_COMPARE(qeliQuantInvTableInit_JPEG_8u16u, tableInit);

QELJ_COMPARE(
    qeliQuantFwdRawTableInit_JPEG_8u,
    [](auto* function, Case& c) {
      auto& raw = c.rows<uint8_t>(64);
      const int32_t most = c.of({110, 110, 5100, INT32_MAX});
      const auto quality = int32_t(c.in(1, most));
      c.call(function, raw.data(), Domain<int32_t>{quality, {0, -1, INT32_MIN}});
    },
    kMany);

}  // namespace
}  // namespace qelj::test
