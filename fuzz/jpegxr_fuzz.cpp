// JPEG XR coefficient decoders: calls of every kind on one state and one stream.
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

// No call reads this far behind the `stream` that it was given.
constexpr size_t kMargin = 256;

}  // namespace

void run(Input input) {
  Record<VLCState, qeliVLCGetStateSize_JPEGXR> state;
  qeliVLCInit_JPEGXR(state.get());
  for (int scan = 0; scan < 3; ++scan) qeliVLCScanReset_JPEGXR(state.get(), scan);

  const auto script = input.bytes(size_t(1 + input.take() % 64));
  std::vector<uint8_t> data = input.rest();
  const size_t size = data.size();
  data.resize(size + kMargin);
  const uint8_t* stream = data.data();
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0;

  // Four rows of four samples, two bytes apart, and nothing behind the last.
  std::vector<int16_t> narrow(4 * 5 - 1);
  std::vector<int32_t> wide(4 * 5 - 1), dc(16);
  for (size_t i = 0; i < 4 * script.size() && stream < data.data() + size; ++i) {
    const uint8_t* const from = stream;
    const int code = script[i % script.size()], argument = code >> 4;
    int32_t count = 0;
    QelStatus status = qelStatusOk;
    switch (code & 15) {
      case 0:
      case 1:
      case 2:
        status = qeliVLCDecode4x4_JPEGXR_1u16s_C1R(&stream, &bitBuffer, &bitCount, int16_t(argument - 7), narrow.data(),
                                                   10, argument & 1, &count, state.get());
        break;
      case 3:
      case 4:
      case 5:
        status = qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&stream, &bitBuffer, &bitCount, argument * 0x1234567, wide.data(),
                                                   20, argument & 1, &count, state.get());
        break;
      case 6:
        status = qeliVLCDecodeDC444_JPEGXR_1u32s(&stream, &bitBuffer, &bitCount, dc.data(), argument & 1, &count,
                                                 state.get());
        break;
      case 7: {
        std::vector<int32_t> exact(14);
        status = qeliVLCDecodeDC422_JPEGXR_1u32s(&stream, &bitBuffer, &bitCount, exact.data(), &count, state.get());
        break;
      }
      case 8: {
        std::vector<int32_t> exact(6);
        status = qeliVLCDecodeDC420_JPEGXR_1u32s(&stream, &bitBuffer, &bitCount, exact.data(), &count, state.get());
        break;
      }
      case 9:
        status = qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(&stream, &bitBuffer, &bitCount, narrow.data(), 10,
                                                    uint32_t(argument), int16_t(code), argument & 1);
        break;
      case 10:
        status = qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(&stream, &bitBuffer, &bitCount, wide.data(), 20, uint32_t(argument),
                                                    code, argument & 1);
        break;
      case 11:
      case 12:
        qeliVLCAdapt_JPEGXR(state.get(), argument & 1);
        break;
      case 13:
        qeliVLCScanReset_JPEGXR(state.get(), argument % 3);
        break;
      default:
        qeliVLCScanSet_JPEGXR(state.get(), uint32_t(argument % 3));
    }
    FUZZ_EXPECT(status == qelStatusOk);
    FUZZ_EXPECT(count >= 0 && count <= 16 && bitCount >= 0 && bitCount <= 32);
    FUZZ_EXPECT(stream >= from && stream <= data.data() + data.size());
    FUZZ_EXPECT(bitCount == 32 || bitBuffer << bitCount == 0);
  }
}

std::vector<Seed> seeds() {
  Record<VLCState, qeliVLCGetStateSize_JPEGXR> state;
  qeliVLCInit_JPEGXR(state.get());
  for (int scan = 0; scan < 3; ++scan) qeliVLCScanReset_JPEGXR(state.get(), scan);
  std::vector<uint8_t> coded(4096);
  uint8_t* stream = coded.data();
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0, pairs = 0;
  qeliVLCScanSet_JPEGXR(state.get(), qelVLCScanHighPassTop);
  for (int block = 0; block < 12; ++block) {
    int16_t samples[16] = {};
    for (int i = 1; i < 16; i += 1 + block % 5) samples[i] = int16_t((i * 23 + block * 7) % 41 - 20);
    qeliVLCEncode4x4_JPEGXR_16s1u_C1R(samples, 8, block & 1, 0, &stream, &bitBuffer, &bitCount, &pairs, state.get());
  }
  coded.resize(size_t(stream - coded.data()));
  for (int shift = 24; shift >= 0; shift -= 8) coded.push_back(uint8_t(bitBuffer >> shift));
  const auto script = [&](std::vector<uint8_t> codes) {
    return Seed().byte(int(codes.size()) - 1).bytes(codes).bytes(coded);
  };
  return {script({0x0E, 0x80, 0x90}), script({0x0E, 0x03, 0x13, 0x0B, 0x1B}),
          script({0x06, 0x16, 0x07, 0x08, 0x79, 0x5A})};
}

}  // namespace qelj::fuzz
