#include "support/compare.h"

namespace qelj::test {
namespace {

// Coefficients or centred samples in one of several ranges, with a tail of zeros now and then.
Guarded someBlock(Random& random) {
  Guarded block(random, 128, 1, 0, size_t(random.in(0, 33)));
  const int shift = int(random.in(0, 15)), last = random.chance(30) ? int(random.in(0, 63)) : 63;
  for (int i = 0; i < 64; ++i) {
    int16_t x;
    std::memcpy(&x, block.data() + 2 * i, 2);
    x = i > last ? int16_t(0) : int16_t(x >> shift);
    std::memcpy(block.data() + 2 * i, &x, 2);
  }
  return block;
}
template <class T>
Guarded someTable(Random& random) {
  Guarded table(random, 64 * sizeof(T), 1, 0, size_t(random.in(0, 33)));
  if (random.chance(30)) return table;  // any bits: huge numbers, infinities, NaN
  const int64_t high = random.in(1, 4000);
  for (int i = 0; i < 64; ++i) {
    const T t = std::is_integral_v<T> ? T(random.in(0, high)) : T(random.in(1, high)) / T(random.in(1, 256));
    std::memcpy(table.data() + i * int(sizeof t), &t, sizeof t);
  }
  return table;
}
template <class T>
Guarded someImage(Random& random) {
  Guarded image(random, 8 * sizeof(T), 8, 8 * sizeof(T) + size_t(random.in(0, 50)), size_t(random.in(0, 33)));
  for (size_t y = 0; y < 8 && sizeof(T) == 2; ++y)  // mostly 12-bit samples
    for (size_t x = 0; x < 8; ++x)
      if (random.chance(95)) image.data(y)[2 * x + 1] &= 0x0F;
  return image;
}

template <class Sample, class Entry>
constexpr auto toBlock = [](auto* function, Random& random, Trace& trace) {
  Guarded src = someImage<Sample>(random), dst = someBlock(random), table = someTable<Entry>(random);
  trace.status(
      function(src.template data<Sample>(), src.step(), dst.data<int16_t>(), table.template data<Entry>()));
  trace.buffer(dst);
};
template <class Sample, class Entry>
constexpr auto toImage = [](auto* function, Random& random, Trace& trace) {
  Guarded src = someBlock(random), dst = someImage<Sample>(random), table = someTable<Entry>(random);
  trace.status(
      function(src.data<int16_t>(), dst.template data<Sample>(), dst.step(), table.template data<Entry>()));
  trace.buffer(dst);
};
constexpr auto blockToBlock = [](auto* function, Random& random, Trace& trace) {
  Guarded src = someBlock(random), dst = someBlock(random), table = someTable<uint16_t>(random);
  trace.status(function(src.data<int16_t>(), dst.data<int16_t>(), table.data<uint16_t>()));
  trace.buffer(dst);
};
constexpr auto inPlace = [](auto* function, Random& random, Trace& trace) {
  Guarded block = someBlock(random), table = someTable<uint16_t>(random);
  trace.status(function(block.data<int16_t>(), table.data<uint16_t>()));
  trace.buffer(block);
};
constexpr auto tableInit = [](auto* function, Random& random, Trace& trace) {
  Guarded raw(random, 64, 1, 0, size_t(random.in(0, 33))), table(random, 128, 1, 0, size_t(random.in(0, 33)));
  trace.status(function(raw.data(), table.data<uint16_t>()));
  trace.buffer(table);
};

QELJ_COMPARE(qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R, toBlock<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R, toBlock<uint16_t, float>);
QELJ_COMPARE(qeliDCTQuantFwd8x8_JPEG_16s_C1, blockToBlock);
QELJ_COMPARE(qeliDCTQuantFwd8x8_JPEG_16s_C1I, inPlace);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, toImage<uint8_t, uint16_t>);
QELJ_COMPARE(qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R, toImage<uint16_t, float>);
QELJ_COMPARE(qeliDCTQuantInv8x8_JPEG_16s_C1, blockToBlock);
QELJ_COMPARE(qeliDCTQuantInv8x8_JPEG_16s_C1I, inPlace);
QELJ_COMPARE(qeliQuantFwd8x8_JPEG_16s_C1I, inPlace);
QELJ_COMPARE(qeliQuantInv8x8_JPEG_16s_C1I, inPlace);
QELJ_COMPARE(qeliQuantFwdTableInit_JPEG_8u16u, tableInit);
QELJ_COMPARE(qeliQuantInvTableInit_JPEG_8u16u, tableInit);
QELJ_COMPARE(qeliQuantFwdRawTableInit_JPEG_8u, [](auto* function, Random& random, Trace& trace) {
  Guarded raw(random, 64, 1, 0, size_t(random.in(0, 33)));
  trace.status(function(raw.data(),
                        int32_t(random.chance(80) ? random.in(-3, 110) : random.in(INT32_MIN, INT32_MAX))));
  trace.buffer(raw);
});

}  // namespace
}  // namespace qelj::test
