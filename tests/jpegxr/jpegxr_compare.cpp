#include "support/compare.h"

namespace qelj::test {
namespace {

// --- transform ---------------------------------------------------------------------------------------------

template <class T>
void fillSamples(Random& random, Guarded& image, size_t width) {
  if constexpr (std::is_floating_point_v<T>)  // no NaN among them
    for (size_t y = 0; y < image.rows(); ++y)
      for (size_t x = 0; x < width; ++x) {
        const T v = T(random.in(-1000000, 1000000)) / T(random.in(1, 1000));
        std::memcpy(image.data(y) + x * sizeof v, &v, sizeof v);
      }
}

template <class T, int width = 0, int height = 0>
constexpr auto transform = [](auto* function, Random& random, Trace& trace) {
  const auto w = size_t(width ? width : 4 * random.in(1, 25)),
             h = size_t(height ? height : 4 * random.in(1, 11));
  Guarded image(random, w * sizeof(T), h, w * sizeof(T) + size_t(random.in(0, 70)), size_t(random.in(0, 33)));
  fillSamples<T>(random, image, w);
  if constexpr (width)
    trace.status(function(image.data<T>(), image.step()));
  else
    trace.status(function(image.data<T>(), image.step(), {int32_t(w), int32_t(h)}));
  trace.buffer(image);
};

#define QELJ_COMPARE_PCT(direction, tag, T)                                          \
  QELJ_COMPARE(qeliPCT##direction##_JPEGXR_##tag##_C1IR, transform<T>);              \
  QELJ_COMPARE(qeliPCT##direction##16x16_JPEGXR_##tag##_C1IR, transform<T, 16, 16>); \
  QELJ_COMPARE(qeliPCT##direction##8x16_JPEGXR_##tag##_C1IR, transform<T, 8, 16>);   \
  QELJ_COMPARE(qeliPCT##direction##8x8_JPEGXR_##tag##_C1IR, transform<T, 8, 8>)
QELJ_COMPARE_PCT(Fwd, 16s, int16_t);
QELJ_COMPARE_PCT(Fwd, 32s, int32_t);
QELJ_COMPARE_PCT(Fwd, 32f, float);
QELJ_COMPARE_PCT(Inv, 16s, int16_t);
QELJ_COMPARE_PCT(Inv, 32s, int32_t);
QELJ_COMPARE_PCT(Inv, 32f, float);

// --- state -------------------------------------------------------------------------------------------------

// A record and a bit position of one image. What follows the pointers in the record is plain data.
struct Coder {
  Coder(const Image& image, Random& random) : record(random, 2208, 1, 0, size_t(random.in(0, 9))) {
    const auto reset = QELJ_FIND(image, qeliVLCScanReset_JPEGXR);
    QELJ_FIND(image, qeliVLCInit_JPEGXR)(state());
    for (int i = 0; i < 3; ++i) reset(state(), i);
    QELJ_FIND(image, qeliVLCScanSet_JPEGXR)(state(), uint32_t(random.in(0, 2)));
    adapt = QELJ_FIND(image, qeliVLCAdapt_JPEGXR);
    bytes.resize(1 << 16);
    random.fill(bytes.data(), bytes.size());
    out = bytes.data(), in = bytes.data();
    bitCount = int32_t(random.in(0, 32));
    bitBuffer = uint32_t((random.bits() & 0xFFFFFFFF) >> (32 - bitCount) << (32 - bitCount));
  }
  VLCState* state() { return record.data<VLCState>(); }
  void sometimesAdapt(Random& random) {
    if (random.chance(20)) adapt(state(), int32_t(random.in(0, 1)));
  }
  void traceAll(Trace& trace) {
    trace.bytes(record.data() + 848, 2204 - 848);
    trace.value(out - bytes.data()), trace.value(in - bytes.data());
    trace.value(bitBuffer), trace.value(bitCount);
    trace.bytes(bytes.data(), bytes.size());
  }

  Guarded record;
  std::vector<uint8_t> bytes;
  uint8_t* out;
  const uint8_t* in;
  uint32_t bitBuffer;
  int32_t bitCount;
  decltype(&qeliVLCAdapt_JPEGXR) adapt;
};

// Mostly zeros and small values, now and then one of any size.
template <class T>
T coefficient(Random& random) {
  const int64_t kind = random.in(0, 9);
  return T(kind < 5 ? 0 : kind < 9 ? random.in(-40, 40) : int64_t(random.bits()) >> random.in(0, 63));
}
template <class T>
Guarded block(Random& random) {
  Guarded b(random, 4 * sizeof(T), 4, 4 * sizeof(T) + size_t(random.in(0, 9)), size_t(random.in(0, 9)));
  for (size_t y = 0; y < 4; ++y)
    for (size_t x = 0; x < 4; ++x) {
      const T v = coefficient<T>(random);
      std::memcpy(b.data(y) + x * sizeof v, &v, sizeof v);
    }
  return b;
}

QELJ_COMPARE(qeliVLCGetStateSize_JPEGXR, [](auto* size, Random&, Trace& trace) {
  int32_t bytes = 0;
  trace.status(size(&bytes));
  trace.value(bytes);
});
constexpr auto wholeState = [](auto*, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 30; ++i) {
    for (size_t d = 0; d < 42; ++d) {  // discriminants beyond every bound
      const auto v = int32_t(random.in(-90, 90));
      std::memcpy(coder.record.data() + 848 + 420 + 4 * d, &v, 4);
    }
    trace.status(coder.adapt(coder.state(), int32_t(random.in(-1, 2))));
    trace.status(QELJ_FIND(image, qeliVLCScanReset_JPEGXR)(coder.state(), int32_t(random.in(-1, 3))));
    trace.status(QELJ_FIND(image, qeliVLCScanSet_JPEGXR)(coder.state(), uint32_t(random.in(0, 3))));
    coder.traceAll(trace);
  }
};
QELJ_COMPARE(qeliVLCInit_JPEGXR, wholeState);
QELJ_COMPARE(qeliVLCAdapt_JPEGXR, wholeState);
QELJ_COMPARE(qeliVLCScanReset_JPEGXR, wholeState);
QELJ_COMPARE(qeliVLCScanSet_JPEGXR, wholeState);

QELJ_COMPARE(qeliVLCScan4x4DC_JPEGXR_32s, [](auto* scan, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 30; ++i) {
    Guarded src = block<int32_t>(random), residual(random, 64, 1, 0, size_t(random.in(0, 5))),
            pairs(random, 120);
    std::vector<int32_t> linear(16);
    for (size_t y = 0; y < 4; ++y) std::memcpy(&linear[4 * y], src.data(y), 16);
    int32_t count = 0;
    trace.status(scan(linear.data(), uint32_t(random.in(0, 16)), residual.data<uint32_t>(),
                      pairs.data<int32_t>(), &count, coder.state()));
    trace.value(count);
    trace.buffer(residual), trace.buffer(pairs);
  }
  coder.traceAll(trace);
});

// --- block coders ------------------------------------------------------------------------------------------

template <class T, bool flex>
constexpr auto encode = [](auto* function, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 100; ++i) {
    Guarded src = block<T>(random), residual(random, 64, 1, 0, size_t(random.in(0, 5)));
    const auto chroma = int32_t(random.in(0, 1)), modelBits = int32_t(random.in(0, 15)) >> random.in(0, 4);
    int32_t count = 0;
    if constexpr (flex)
      trace.status(function(src.data<T>(), src.step(), chroma, uint32_t(modelBits),
                            uint32_t(random.in(0, 15)), residual.data<uint32_t>(), &coder.out,
                            &coder.bitBuffer, &coder.bitCount, &count, coder.state()));
    else
      trace.status(function(src.data<T>(), src.step(), chroma, uint32_t(modelBits), &coder.out,
                            &coder.bitBuffer, &coder.bitCount, &count, coder.state()));
    trace.value(count);
    trace.buffer(residual);
    coder.sometimesAdapt(random);
  }
  coder.traceAll(trace);
};
QELJ_COMPARE(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, encode<int16_t, false>);
QELJ_COMPARE(qeliVLCEncode4x4_JPEGXR_32s1u_C1R, encode<int32_t, false>);
QELJ_COMPARE(qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R, encode<int16_t, true>);
QELJ_COMPARE(qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R, encode<int32_t, true>);

// Random bits, which are a corrupt stream sooner or later.
template <class T>
constexpr auto decode = [](auto* function, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 100; ++i) {
    Guarded dst = block<T>(random);
    int32_t count = -1;
    trace.status(function(&coder.in, &coder.bitBuffer, &coder.bitCount, T(random.bits() >> random.in(40, 63)),
                          dst.template data<T>(), dst.step(), int32_t(random.in(0, 1)), &count,
                          coder.state()));
    trace.value(count);
    trace.buffer(dst);
    coder.sometimesAdapt(random);
  }
  coder.traceAll(trace);
};
QELJ_COMPARE(qeliVLCDecode4x4_JPEGXR_1u16s_C1R, decode<int16_t>);
QELJ_COMPARE(qeliVLCDecode4x4_JPEGXR_1u32s_C1R, decode<int32_t>);

// Pair lists that may not fit the block at all.
template <bool chroma, int most>
constexpr auto encodeDC = [](auto* function, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 60; ++i) {
    int32_t pairs[32];
    const bool wild = random.chance(10);
    for (int k = 0; k < 32; k += 2) {
      pairs[k] = wild ? coefficient<int32_t>(random) : int32_t(random.in(0, 2));
      pairs[k + 1] = coefficient<int32_t>(random);
    }
    const auto count = int32_t(random.in(-1, most + 1));
    if constexpr (chroma)
      trace.status(function(pairs, count, int32_t(random.in(0, 1)), &coder.out, &coder.bitBuffer,
                            &coder.bitCount, coder.state()));
    else
      trace.status(function(pairs, count, &coder.out, &coder.bitBuffer, &coder.bitCount, coder.state()));
    coder.sometimesAdapt(random);
  }
  coder.traceAll(trace);
};
QELJ_COMPARE(qeliVLCEncodeDC444_JPEGXR_32s1u, encodeDC<true, 16>);
QELJ_COMPARE(qeliVLCEncodeDC422_JPEGXR_32s1u, encodeDC<false, 14>);
QELJ_COMPARE(qeliVLCEncodeDC420_JPEGXR_32s1u, encodeDC<false, 6>);

template <bool chroma, int values>
constexpr auto decodeDC = [](auto* function, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 100; ++i) {
    Guarded dst(random, 4 * values, 1, 0, size_t(random.in(0, 5)));
    int32_t count = -1;
    if constexpr (chroma)
      trace.status(function(&coder.in, &coder.bitBuffer, &coder.bitCount, dst.data<int32_t>(),
                            int32_t(random.in(0, 1)), &count, coder.state()));
    else
      trace.status(
          function(&coder.in, &coder.bitBuffer, &coder.bitCount, dst.data<int32_t>(), &count, coder.state()));
    trace.value(count);
    trace.value(dst.intact());
    trace.buffer(dst);
    coder.sometimesAdapt(random);
  }
  coder.traceAll(trace);
};
QELJ_COMPARE(qeliVLCDecodeDC444_JPEGXR_1u32s, decodeDC<true, 16>);
QELJ_COMPARE(qeliVLCDecodeDC422_JPEGXR_1u32s, decodeDC<false, 14>);
QELJ_COMPARE(qeliVLCDecodeDC420_JPEGXR_1u32s, decodeDC<false, 6>);

template <class T, bool decoding>
constexpr auto fixedLength = [](auto* function, const Image& image, Random& random, Trace& trace) {
  Coder coder(image, random);
  for (int i = 0; i < 60; ++i) {
    Guarded samples = block<T>(random), residual(random, 64, 1, 0, size_t(random.in(0, 5)));
    const auto flexBits = uint32_t(random.in(0, 15));
    const auto form = int32_t(random.in(0, 1));
    if constexpr (decoding)
      trace.status(function(&coder.in, &coder.bitBuffer, &coder.bitCount, samples.data<T>(), samples.step(),
                            flexBits, T(random.bits() >> random.in(40, 63)), form));
    else
      trace.status(function(samples.data<T>(), samples.step(), residual.data<uint32_t>(), &coder.out,
                            &coder.bitBuffer, &coder.bitCount, flexBits, uint32_t(random.in(0, 15)), form));
    trace.buffer(samples);
  }
  coder.traceAll(trace);
};
QELJ_COMPARE(qeliFLCEncode4x4_JPEGXR_16s1u_C1R, fixedLength<int16_t, false>);
QELJ_COMPARE(qeliFLCEncode4x4_JPEGXR_32s1u_C1R, fixedLength<int32_t, false>);
QELJ_COMPARE(qeliFLCDecode4x4_JPEGXR_1u16s_C1IR, fixedLength<int16_t, true>);
QELJ_COMPARE(qeliFLCDecode4x4_JPEGXR_1u32s_C1IR, fixedLength<int32_t, true>);

}  // namespace
}  // namespace qelj::test
