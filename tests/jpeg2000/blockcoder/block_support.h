// Code-blocks for tests: samples, the encoder's results, and the way back.
#ifndef QELJ_TESTS_BLOCK_SUPPORT_H
#define QELJ_TESTS_BLOCK_SUPPORT_H

#include <memory>
#include <vector>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {

struct CodedBlock {
  QelStatus status = 0;
  int32_t planes = 0, passes = 0, segments = 0;
  std::vector<uint8_t> bytes;
  std::vector<uint32_t> lengths;
  std::vector<int32_t> rates;
  std::vector<double> distortions;
};

// The functions of the image under test.
struct BlockFunctions {
  decltype(&::qeliEncodeInitAlloc_JPEG2K) initAlloc = qeliEncodeInitAlloc_JPEG2K;
  decltype(&::qeliEncodeFree_JPEG2K) free = qeliEncodeFree_JPEG2K;
  decltype(&::qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R) load = qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R;
  decltype(&::qeliEncodeStoreBits_JPEG2K_1u) store = qeliEncodeStoreBits_JPEG2K_1u;
  decltype(&::qeliEncodeGetRate_JPEG2K) rate = qeliEncodeGetRate_JPEG2K;
  decltype(&::qeliEncodeGetDist_JPEG2K) dist = qeliEncodeGetDist_JPEG2K;
  decltype(&::qeliEncodeGetTermPassLen_JPEG2K) length = qeliEncodeGetTermPassLen_JPEG2K;
};

// Magnitudes of `bits` bits, left-aligned; small ones are the many, as in a wavelet's bands.
inline std::vector<int32_t> randomBlock(Random& random, QelSize size, int bits) {
  std::vector<int32_t> samples(size_t(size.width) * size_t(size.height));
  for (auto& s : samples) {
    const int kept = int(random.in(0, bits));
    const auto magnitude = uint32_t(random.bits() & ((uint64_t(1) << kept) - 1)) << (31 - bits);
    s = int32_t(magnitude | (magnitude && random.chance(50) ? 0x80000000u : 0));
  }
  return samples;
}

// Codes a block; `room`: bytes for each store.
inline CodedBlock encodeBlock(const std::vector<int32_t>& samples, QelSize size, int subband, int bits,
                              int style, int32_t room = 1 << 20, int prevByte = 0,
                              const BlockFunctions& f = {}) {
  CodedBlock b;
  QelEncodeStateJPEG2K* state = nullptr;
  if ((b.status = f.initAlloc(&state, size)) != 0) return b;
  b.status = f.load(samples.data(), size.width * 4, size, state, subband, bits, prevByte, 0, style, &b.planes,
                    &b.passes, &b.segments);
  auto part = std::vector<uint8_t>(size_t(room));
  for (int32_t more = 1; more && !b.status;) {
    int32_t n = room;
    b.status = f.store(part.data(), &n, state, &more);
    b.bytes.insert(b.bytes.end(), part.begin(), part.begin() + n);
    if (more && n < 1) b.status = -1000;
  }
  for (int32_t i = 0; i < b.passes; ++i) {
    b.rates.push_back(-1), b.distortions.push_back(-1);
    f.rate(state, i, &b.rates.back());
    f.dist(state, i, &b.distortions.back());
  }
  for (int32_t i = 0; i < b.segments; ++i) {
    int32_t length = -1;
    f.length(state, i, &length);
    b.lengths.push_back(uint32_t(length));
  }
  f.free(state);
  return b;
}

inline size_t stateSize(QelSize size) {
  int32_t bytes = 0;
  qeliDecodeGetBufSize_JPEG2K(size, &bytes);
  return size_t(bytes);
}

}  // namespace qelj::test

#endif
