#include "block_support.h"
#include "support/compare.h"

namespace qelj::test {
namespace {

BlockFunctions functionsOf(const Image& image) {
  return {QELJ_FIND(image, qeliEncodeInitAlloc_JPEG2K),
          QELJ_FIND(image, qeliEncodeFree_JPEG2K),
          QELJ_FIND(image, qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R),
          QELJ_FIND(image, qeliEncodeStoreBits_JPEG2K_1u),
          QELJ_FIND(image, qeliEncodeGetRate_JPEG2K),
          QELJ_FIND(image, qeliEncodeGetDist_JPEG2K),
          QELJ_FIND(image, qeliEncodeGetTermPassLen_JPEG2K)};
}

struct RandomCase {
  QelSize size;
  int bits, style, subband;
  CodedBlock coded;
  RandomCase(const Image& image, Random& random)
      : size{int32_t(random.in(1, 40)), int32_t(random.in(1, 40))},
        bits(int(random.in(1, 20))),
        style(int(random.in(0, 63))),
        subband(int(random.in(0, 3))),
        coded(encodeBlock(randomBlock(random, size, bits), size, subband, bits, style,
                          int32_t(random.in(1, 500)), random.chance(20) ? 255 : 0, functionsOf(image))) {}
};

constexpr auto encode = [](auto*, const Image& image, Random& random, Trace& trace) {
  const RandomCase c(image, random);
  trace.status(c.coded.status);
  trace.bytes(c.coded.bytes.data(), c.coded.bytes.size());
  for (const auto n : c.coded.lengths) trace.value(n);
  for (const auto n : c.coded.rates) trace.value(n);
  for (const auto d : c.coded.distortions) trace.value(d);
};
QELJ_COMPARE(qeliEncodeInitAlloc_JPEG2K, encode);
QELJ_COMPARE(qeliEncodeFree_JPEG2K, encode);
QELJ_COMPARE(qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R, encode);
QELJ_COMPARE(qeliEncodeStoreBits_JPEG2K_1u, encode);
QELJ_COMPARE(qeliEncodeGetRate_JPEG2K, encode);
QELJ_COMPARE(qeliEncodeGetDist_JPEG2K, encode);
QELJ_COMPARE(qeliEncodeGetTermPassLen_JPEG2K, encode);

// Bytes of the encoder, sometimes damaged.
void damage(Random& random, std::vector<uint8_t>& bytes) {
  if (random.chance(50) || bytes.empty()) return;
  for (int i = 0; i < 5; ++i) bytes[size_t(random.in(0, int64_t(bytes.size()) - 1))] = uint8_t(random.bits());
}

QELJ_COMPARE(qeliDecodeCodeBlock_JPEG2K_1u32s_C1R, [](auto* f, const Image& image, Random& random,
                                                      Trace& trace) {
  RandomCase c(image, random);
  damage(random, c.coded.bytes);
  c.coded.bytes.push_back(0);
  c.coded.lengths.push_back(0);
  Guarded dst(random, size_t(c.size.width) * 4, size_t(c.size.height),
              size_t(c.size.width) * 4 + size_t(random.in(0, 9)), size_t(random.in(0, 9)));
  std::vector<uint8_t> state(stateSize(c.size));
  uint32_t reached = 0;
  trace.status(f(c.coded.bytes.data(), dst.data<int32_t>(), dst.step(), c.size, c.subband, uint32_t(c.bits),
                 uint32_t(c.coded.passes), c.coded.lengths.data(), int32_t(c.coded.lengths.size()) - 1,
                 (c.style & 31) | int(random.in(0, 31)) << 16, &reached, state.data()));
  trace.value(reached);
  trace.buffer(dst);
});

constexpr auto size = [](auto* f, Random& random, Trace& trace) {
  int32_t bytes = 0;
  trace.status(f({int32_t(random.in(0, 2000)), int32_t(random.in(0, 2000))}, &bytes));
  trace.value(bytes);
};
QELJ_COMPARE(qeliDecodeGetBufSize_JPEG2K, size);
QELJ_COMPARE(qeliDecodeCBProgrGetStateSize_JPEG2K, size);

constexpr auto progressive = [](auto*, const Image& image, Random& random, Trace& trace) {
  RandomCase c(image, random);
  damage(random, c.coded.bytes);
  c.coded.bytes.push_back(0);
  Guarded dst(random, size_t(c.size.width) * 4, size_t(c.size.height));
  std::vector<uint8_t> memory(stateSize(c.size));
  QelDecodeStateJPEG2K* made = nullptr;
  void* state = memory.data();
  if (random.chance(50)) {
    trace.status(QELJ_FIND(image, qeliDecodeCBProgrInitAlloc_JPEG2K)(&made, c.size));
    state = made;
  } else {
    trace.status(QELJ_FIND(image, qeliDecodeCBProgrInit_JPEG2K)(state));
  }
  trace.status(QELJ_FIND(image, qeliDecodeCBProgrAttach_JPEG2K_32s_C1R)(
      dst.data<int32_t>(), dst.step(), c.size, state, c.subband, c.bits, c.style));
  QELJ_FIND(image, qeliDecodeCBProgrSetPassCounter_JPEG2K)(c.coded.passes, state);
  size_t at = 0;
  for (const uint32_t n : c.coded.lengths) {
    trace.status(
        QELJ_FIND(image, qeliDecodeCBProgrStep_JPEG2K)(c.coded.bytes.data() + at, int32_t(n), state));
    at += n;
    int32_t left = 0, plane = 0;
    trace.status(QELJ_FIND(image, qeliDecodeCBProgrGetPassCounter_JPEG2K)(state, &left));
    trace.status(QELJ_FIND(image, qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K)(state, &plane));
    trace.value(left);
    trace.value(plane);
    trace.buffer(dst);
  }
  if (made) trace.status(QELJ_FIND(image, qeliDecodeCBProgrFree_JPEG2K)(made));
};
QELJ_COMPARE(qeliDecodeCBProgrInit_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrInitAlloc_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrFree_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrAttach_JPEG2K_32s_C1R, progressive);
QELJ_COMPARE(qeliDecodeCBProgrSetPassCounter_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrGetPassCounter_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrStep_JPEG2K, progressive);

}  // namespace
}  // namespace qelj::test
