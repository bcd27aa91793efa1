// Baseline blocks: the normal form, whole and in two pieces, and the Direct form.
#include "support/huffman.h"

namespace qelj::fuzz {
namespace {

struct Result {
  std::vector<int16_t> samples;
  std::vector<QelStatus> failures;
  bool operator==(const Result&) const = default;
};

// Decodes block after block; the decoder first knows `known` bytes, and all of them when it has asked for
// more.
Result decode(const std::vector<uint8_t>& data, int32_t known, DecodeTable& dc, DecodeTable& ac, bool restarts) {
  Stream s(data);
  s.length = known;
  Result result;
  int16_t lastDC = 0;
  std::vector<int16_t> block(64);
  for (size_t blocks = 0;; ++blocks) {
    FUZZ_EXPECT(blocks <= 4 * data.size() + 1);  // a block takes two bits at least
    const Stream before = s;
    const int16_t beforeDC = lastDC;
    const QelStatus status = qeliDecodeHuffman8x8_JPEG_1u16s_C1(s.data.data(), s.length, &s.position, block.data(),
                                                                &lastDC, &s.marker, dc.get(), ac.get(), s.state.get());
    s.expectInside(before.position);
    if (status == qelStatusJpegOutOfBuffer && s.length < int32_t(data.size())) {
      s = before;
      lastDC = beforeDC;
      s.length = int32_t(data.size());
      continue;
    }
    result.samples.insert(result.samples.end(), block.begin(), block.end());
    if (status == qelStatusOk) continue;
    result.failures.push_back(status);
    if (status != qelStatusJpegCoeffRange || !restarts || !s.restart()) return result;
    lastDC = 0;
  }
}

void decodeDirect(std::vector<uint8_t> data, DecodeTable& dc, DecodeTable& ac) {
  data.insert(data.end(), {0xFF, 0xD9});  // nothing else bounds it
  int32_t bitPosition = 0, marker = 0, bitCount = 0;
  uint32_t bitBuffer = 0;
  int16_t lastDC = 0;
  std::vector<int16_t> block(64);
  for (size_t blocks = 0; blocks <= 4 * data.size() + 1; ++blocks) {
    const QelStatus status = qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(
        data.data(), &bitPosition, block.data(), &lastDC, &marker, &bitBuffer, &bitCount, dc.get(), ac.get());
    FUZZ_EXPECT(bitPosition >= 0 && bitPosition <= int32_t(8 * data.size()) && bitCount >= 0);
    if (status != qelStatusOk) return;
  }
}

}  // namespace

void run(Input input) {
  DecodeTable dc, ac;
  if (!init(dc, takeLists(input)) || !init(ac, takeLists(input))) return;
  const uint16_t cut = input.take<uint16_t>();
  auto data = input.rest();
  // A source that ends in a 0xFF fails before its last bits are needed, as told in the header; a shorter one
  // doesn't.
  while (!data.empty() && data.back() == 0xFF) data.pop_back();
  const auto length = int32_t(data.size());
  FUZZ_EXPECT(decode(data, length, dc, ac, false) == decode(data, cut % (length + 1), dc, ac, false));
  decode(data, length, dc, ac, true);
  decodeDirect(data, dc, ac);
}

std::vector<Seed> seeds() {
  const auto coded = encode([](uint8_t* dst, int32_t length, int32_t* position, auto* table, auto* state) {
    int16_t lastDC = 0, block[64] = {};
    for (int b = 0; b < 6; ++b) {
      for (int i = 0; i < 64; i += 1 + b * 3) block[i] = int16_t((i * 37 + b * 91) % 401 - 200);
      qeliEncodeHuffman8x8_JPEG_16s1u_C1(block, dst, length, position, &lastDC, table, table, state, 0);
    }
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(block, dst, length, position, &lastDC, table, table, state, 1);
  });
  auto restarts = coded;
  restarts.insert(restarts.end(), {0xFF, 0xFF, 0xD0});
  restarts.insert(restarts.end(), coded.begin(), coded.end());
  return {Seed().byte(0).byte(0).put(uint16_t(9)).bytes(coded),
          Seed().byte(0).byte(0).put(uint16_t(60)).bytes(restarts)};
}

}  // namespace qelj::fuzz
