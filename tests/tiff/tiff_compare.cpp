#include "support/compare.h"

namespace qelj::test {
namespace {

// Rows with runs of all lengths and pairs inside literals.
void fillWithRuns(Random& random, uint8_t* data, size_t bytes) {
  for (size_t i = 0; i < bytes;) {
    const auto value = uint8_t(random.in(0, 3));
    const int64_t lengths[] = {1, 1, 1, 2, 3, random.in(1, 40), random.in(120, 300)};
    for (int64_t n = lengths[random.in(0, 6)]; n > 0 && i < bytes; --n) data[i++] = value;
  }
}

QELJ_COMPARE(qeliPackBitsRow_TIFF_8u_C1, [](auto* pack, Random& random, Trace& trace) {
  const auto length = size_t(random.in(1, 900));
  Guarded src(random, length), dst(random, size_t(random.in(1, int64_t(length) + 40)));
  if (random.chance(70)) fillWithRuns(random, src.data(), length);
  auto position = uint32_t(random.chance(50) ? 0 : random.in(0, 50));
  trace.status(pack(src.data(), int32_t(length), dst.data(), &position, int32_t(dst.rowBytes())));
  trace.value(position);
  trace.buffer(dst);
});

QELJ_COMPARE(qeliUnpackBitsRow_TIFF_8u_C1, [](auto* unpack, Random& random, Trace& trace) {
  const auto length = size_t(random.in(1, 900));
  Guarded src(random, length), dst(random, size_t(random.in(1, 5000)));
  if (random.chance(50))
    for (size_t i = 0; i < length; i += size_t(random.in(1, 20)))
      src.data()[i] = uint8_t(random.in(-128, 20));
  auto position = uint32_t(random.chance(50) ? 0 : random.in(0, 50));
  trace.status(unpack(src.data(), &position, int32_t(length), dst.data(), int32_t(dst.rowBytes())));
  trace.value(position);
  trace.buffer(dst);
});

QELJ_COMPARE(qeliSplitRow_TIFF_16u8u_C1, [](auto* split, Random& random, Trace& trace) {
  const auto length = size_t(random.in(1, 200));
  Guarded src(random, 2 * length, 1, 0, size_t(random.in(0, 9))),
      high(random, length, 1, 0, size_t(random.in(0, 9))), low(random, length);
  uint8_t* const planes[] = {high.data(), low.data()};
  trace.status(split(src.data<uint16_t>(), planes, int32_t(length)));
  trace.buffer(high);
  trace.buffer(low);
});

QELJ_COMPARE(qeliJoinRow_TIFF_8u16u_C1, [](auto* join, Random& random, Trace& trace) {
  const auto length = size_t(random.in(1, 200));
  Guarded high(random, length, 1, 0, size_t(random.in(0, 9))), low(random, length),
      dst(random, 2 * length, 1, 0, size_t(random.in(0, 9)));
  const uint8_t* const planes[] = {high.data(), low.data()};
  trace.status(join(planes, dst.data<uint16_t>(), int32_t(length)));
  trace.buffer(dst);
});

}  // namespace
}  // namespace qelj::test
