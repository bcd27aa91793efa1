// JPEG 2000 code-blocks: hostile segments through the decoder of one call and the progressive one, and any
// samples coded and decoded.
#include <initializer_list>

#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

constexpr int32_t kStyles[] = {qelCodeStyleCausal,      qelCodeStyleBypass,       qelCodeStyleTerminate,
                               qelCodeStyleReset,       qelCodeStyleSymbols,      qelCodeStyleCut,
                               qelCodeStyleKeepSamples, qelCodeStyleKeepMidPoint, qelCodeStyleKeepFlags,
                               qelCodeStylePredictable};

std::vector<uint8_t> stateFor(QelSize size) {
  int32_t bytes = 0;
  qeliDecodeGetBufSize_JPEG2K(size, &bytes);
  return std::vector<uint8_t>(size_t(bytes));
}

// A block's samples, with a gap behind every row but the last.
struct Block {
  QelSize size;
  int32_t step;
  std::vector<uint8_t> bytes;
  Block(QelSize s, int32_t gap) : size(s), step(4 * s.width + gap), bytes(size_t(step * s.height - gap), 0xA5) {}
  int32_t* data() { return reinterpret_cast<int32_t*>(bytes.data()); }
  uint32_t sample(int32_t x, int32_t y) const {
    uint32_t value;
    std::memcpy(&value, &bytes[size_t(y * step + 4 * x)], 4);
    return value;
  }
  void expectGaps() const {
    for (int32_t y = 0; y + 1 < size.height; ++y)
      for (int32_t i = 4 * size.width; i < step; ++i) FUZZ_EXPECT(bytes[size_t(y * step + i)] == 0xA5);
  }
};

void decodeSegments(Input& input, QelSize size, int32_t style, int32_t gap) {
  const int32_t subband = input.in(0, 3), planes = input.in(0, 40);
  const uint32_t passes = input.take() & 1 ? input.take<uint32_t>() >> 1 : input.take();
  std::vector<uint32_t> lengths(input.take() % 24);
  for (auto& length : lengths) length = input.take();
  // The segments follow one another; the last takes what is left.
  auto data = input.rest();
  uint32_t total = 0;
  for (auto& length : lengths) {
    length = std::min(length, uint32_t(data.size()) - total);
    if (&length == &lengths.back()) length = uint32_t(data.size()) - total;
    total += length;
  }

  Block once(size, gap), steps(size, gap);
  auto state = stateFor(size), stepState = stateFor(size);
  uint32_t reached = 0;
  data.reserve(1);  // an empty vector has no pointer
  const QelStatus status =
      qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(data.data(), once.data(), once.step, size, subband, uint32_t(planes), passes,
                                           lengths.data(), int32_t(lengths.size()), style, &reached, state.data());
  if (lengths.empty()) return;
  FUZZ_EXPECT(status == qelStatusOk || status == qelStatusJpeg2kBadCodeBlock);
  once.expectGaps();

  QelStatus last = qelStatusOk;
  FUZZ_EXPECT(qeliDecodeCBProgrInit_JPEG2K(stepState.data()) == qelStatusOk);
  qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(steps.data(), steps.step, size, stepState.data(), subband, planes, style);
  qeliDecodeCBProgrSetPassCounter_JPEG2K(int32_t(passes), stepState.data());
  const uint8_t* segment = data.data();
  for (size_t i = 0; i < lengths.size() && last == qelStatusOk; segment += lengths[i++])
    last = qeliDecodeCBProgrStep_JPEG2K(segment, int32_t(lengths[i]), stepState.data());
  FUZZ_EXPECT(last == status);
  if (status == qelStatusOk && style & qelCodeStyleKeepMidPoint) FUZZ_EXPECT(once.bytes == steps.bytes);
}

void roundTrip(Input& input, QelSize size, int32_t style) {
  const int32_t bits = input.in(1, 31), lowest = 31 - bits;
  std::vector<uint32_t> samples(size_t(size.width * size.height));
  for (auto& sample : samples) {
    const uint32_t value = input.take<uint32_t>();
    const uint32_t magnitude = (value & 0x7FFFFFFF) >> (value % 31) >> lowest << lowest;
    sample = magnitude ? magnitude | (value & 0x80000000) : 0;
  }
  QelEncodeStateJPEG2K* encoder = nullptr;
  int32_t planes = 0, passes = 0, segments = 0, notFinished = 1;
  FUZZ_EXPECT(qeliEncodeInitAlloc_JPEG2K(&encoder, size) == qelStatusOk);
  FUZZ_EXPECT(qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(reinterpret_cast<const int32_t*>(samples.data()), 4 * size.width,
                                                     size, encoder, size.width & 3, bits, 0, 0, style, &planes, &passes,
                                                     &segments) == qelStatusOk);
  std::vector<uint8_t> coded;
  while (notFinished) {
    std::vector<uint8_t> piece(97);
    auto length = int32_t(piece.size());
    FUZZ_EXPECT(qeliEncodeStoreBits_JPEG2K_1u(piece.data(), &length, encoder, &notFinished) == qelStatusOk);
    coded.insert(coded.end(), piece.begin(), piece.begin() + length);
  }
  std::vector<uint32_t> lengths(size_t(segments) + 1);
  uint32_t total = 0;
  for (int32_t i = 0; i < segments; ++i) {
    int32_t length = 0;
    FUZZ_EXPECT(qeliEncodeGetTermPassLen_JPEG2K(encoder, i, &length) == qelStatusOk);
    total += lengths[size_t(i)] = uint32_t(length);
  }
  FUZZ_EXPECT(total == coded.size());
  qeliEncodeFree_JPEG2K(encoder);

  Block back(size, 0);
  auto state = stateFor(size);
  coded.reserve(1);
  FUZZ_EXPECT(qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(coded.data(), back.data(), back.step, size, size.width & 3,
                                                   uint32_t(planes), uint32_t(passes), lengths.data(), segments, style,
                                                   nullptr, state.data()) == qelStatusOk);
  for (int32_t y = 0; y < size.height; ++y)
    for (int32_t x = 0; x < size.width; ++x)
      FUZZ_EXPECT(back.sample(x, y) >> lowest == samples[size_t(y * size.width + x)] >> lowest);
}

}  // namespace

void run(Input input) {
  const bool hostile = input.take() & 1;
  const QelSize size{input.in(1, 20), input.in(1, 13)};
  const uint16_t chosen = input.take<uint16_t>();
  int32_t style = 0;
  for (size_t i = 0; i < std::size(kStyles); ++i)
    if (chosen >> i & 1) style |= kStyles[i];
  if (hostile) decodeSegments(input, size, style, input.take() % 4);
  else roundTrip(input, size, style & 0x1F);
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  for (const int style : {0, 2, 4, 6, 31}) {
    Seed samples;
    samples.byte(0).in(1, 6).in(1, 5).put(uint16_t(style)).in(1, 8);
    for (uint32_t i = 0; i < 30; ++i) samples.put(i * 0x9E3779B9u);
    all.push_back(samples);
    Seed hostile;
    hostile.byte(1)
        .in(1, 8)
        .in(1, 8)
        .put(uint16_t(style | 0x80))
        .byte(1)
        .in(0, style & 3)
        .in(0, 9)
        .byte(0)
        .byte(25)
        .byte(8);
    for (int i = 0; i < 8; ++i) hostile.byte(3 + i);
    for (int i = 0; i < 80; ++i) hostile.byte(i * i * 59);
    all.push_back(hostile);
  }
  return all;
}

}  // namespace qelj::fuzz
