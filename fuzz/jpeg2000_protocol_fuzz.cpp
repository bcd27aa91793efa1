// The code-block coders' calls in any order on one encoder and one decoder: questions before a load, loads that are too
// large, bytes taken one by one, steps without a block, counters of any value, failures that nobody heeds.
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

QelSize sizeOf(uint8_t shape) { return {1 + shape % 16, 1 + shape / 16}; }

// The rows of a code-block, in memory of their exact length.
std::vector<int32_t> samples(Input& input, QelSize size) {
  std::vector<int32_t> all(size_t(size.width * size.height));
  const uint8_t kind = input.take();
  for (auto& x : all) x = kind & 1 ? int32_t(input.take<uint32_t>()) : int32_t(int8_t(input.take())) * (1 << kind % 23);
  return all;
}

}  // namespace

void run(Input input) {
  const QelSize largest = sizeOf(input.take());
  QelEncodeStateJPEG2K* encoder = nullptr;
  QelDecodeStateJPEG2K* decoder = nullptr;
  FUZZ_EXPECT(qeliEncodeInitAlloc_JPEG2K(&encoder, largest) == qelStatusOk);
  FUZZ_EXPECT(qeliDecodeCBProgrInitAlloc_JPEG2K(&decoder, largest) == qelStatusOk);
  std::vector<int32_t> block;
  std::vector<uint8_t> coded;
  int32_t planes = 0, passes = 0, segments = 0;
  while (input.left() > 2) {
    const uint8_t code = input.take(), argument = input.take();
    switch (code % 12) {
      case 0:
      case 1: {
        const QelSize size = argument & 128 ? largest : sizeOf(argument);
        const auto src = samples(input, size);
        const int32_t style = input.take() & 0x3F, bits = input.take() % 33 - 1, previous = input.take();
        const QelStatus s =
            qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(src.data(), 4 * size.width, size, encoder, argument & 3, bits,
                                                   previous, 0, style, &planes, &passes, &segments);
        FUZZ_EXPECT(s == qelStatusOk || s == qelStatusBadSize);
        FUZZ_EXPECT(planes >= 0 && planes <= 31 && passes >= 0 && passes <= 91 && segments <= 91);
        if (s == qelStatusOk) coded.clear();
        break;
      }
      case 2:
      case 3: {
        std::vector<uint8_t> piece(size_t(1 + argument));
        int32_t length = 1 + argument, notFinished = 0;
        const QelStatus s = qeliEncodeStoreBits_JPEG2K_1u(piece.data(), &length, encoder, &notFinished);
        if (s == qelStatusOk) {
          FUZZ_EXPECT(length >= 0 && length <= 1 + argument);
          coded.insert(coded.end(), piece.begin(), piece.begin() + length);
        }
        break;
      }
      case 4: {
        int32_t rate = 0, length = 0;
        double distortion = 0;
        qeliEncodeGetRate_JPEG2K(encoder, int8_t(argument), &rate);
        qeliEncodeGetDist_JPEG2K(encoder, int8_t(argument), &distortion);
        qeliEncodeGetTermPassLen_JPEG2K(encoder, int8_t(argument), &length);
        FUZZ_EXPECT(rate >= 0 && length >= 0 && distortion == distortion);
        break;
      }
      case 5:
      case 6: {
        const QelSize size = sizeOf(argument);
        if (size.width > largest.width || size.height > largest.height) break;
        const auto style = int32_t(input.take<uint32_t>() & 0x1F001F);
        // The flags of the last block can be kept for one of the same size only.
        const bool same = block.size() == size_t(size.width * size.height);
        std::vector<int32_t> next(size_t(size.width * size.height), 0x55555555);
        FUZZ_EXPECT(qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(next.data(), 4 * size.width, size, decoder, argument & 3,
                                                           int8_t(input.take()),
                                                           same ? style : style & ~0x80000) == qelStatusOk);
        block = std::move(next);
        break;
      }
      case 7:
        qeliDecodeCBProgrSetPassCounter_JPEG2K(int8_t(argument) * (code & 16 ? 1 << 20 : 1), decoder);
        break;
      case 8:
      case 9:
      case 10: {
        const size_t length = std::min<size_t>(argument, coded.size());
        const std::vector<uint8_t> segment = code & 32
                                                 ? input.bytes(argument % 40)
                                                 : std::vector<uint8_t>(coded.begin(), coded.begin() + int64_t(length));
        const uint8_t none = 0;
        qeliDecodeCBProgrStep_JPEG2K(segment.empty() ? &none : segment.data(), int32_t(segment.size()), decoder);
        int32_t plane = 0, left = 0;
        qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(decoder, &plane);
        qeliDecodeCBProgrGetPassCounter_JPEG2K(decoder, &left);
        FUZZ_EXPECT(plane >= -1 && plane <= 31);
        break;
      }
      default:
        // Each is no state of the other.
        FUZZ_EXPECT(qeliDecodeCBProgrSetPassCounter_JPEG2K(1, encoder) == qelStatusContextMismatch);
        int32_t rate = 0;
        FUZZ_EXPECT(qeliEncodeGetRate_JPEG2K(reinterpret_cast<QelEncodeStateJPEG2K*>(decoder), 0, &rate) ==
                    qelStatusContextMismatch);
    }
  }
  qeliDecodeCBProgrFree_JPEG2K(decoder);
  qeliEncodeFree_JPEG2K(encoder);
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  for (const int style : {0, 2, 4, 6, 0x1F}) {
    Seed seed;
    seed.byte(0x77);
    for (int times = 0; times < 2; ++times) {
      seed.byte(0).byte(0x34).byte(8);
      for (int i = 0; i < 5 * 4; ++i) seed.byte(i * i * 31 + times);
      seed.byte(style).byte(20).byte(0);
      seed.byte(2).byte(9).byte(3).byte(200).byte(4).byte(times);
      seed.byte(5).byte(0x34).put(uint32_t(style)).byte(13).byte(7).byte(40);
      seed.byte(8).byte(5).byte(9).byte(200).byte(40).byte(17).byte(4).byte(200).byte(11).byte(0);
    }
    all.push_back(seed);
  }
  return all;
}

}  // namespace qelj::fuzz
