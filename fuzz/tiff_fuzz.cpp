// PackBits: hostile tokens, and any row packed and unpacked.
#include "support/fuzz.h"

namespace qelj::fuzz {

void run(Input input) {
  std::vector<uint8_t> dst(size_t(input.in(1, 600)));
  const uint32_t start = input.take();
  auto src = input.rest();
  const auto srcLen = int32_t(src.size()), dstLen = int32_t(dst.size());

  std::vector<uint8_t> tokens = src;
  tokens.push_back(0);  // the value of a run that the last token begins may be read
  uint32_t position = start;
  const QelStatus status = qeliUnpackBitsRow_TIFF_8u_C1(tokens.data(), &position, srcLen, dst.data(), dstLen);
  FUZZ_EXPECT(position >= start && position <= std::max(start, uint32_t(srcLen) + 1));
  FUZZ_EXPECT(srcLen > 0 || status == qelStatusBadSize);

  if (srcLen == 0) return;
  std::vector<uint8_t> packed(src.size() + (src.size() + 127) / 128), back(src.size());
  uint32_t packedBytes = 0, unpackedFrom = 0;
  FUZZ_EXPECT(qeliPackBitsRow_TIFF_8u_C1(src.data(), srcLen, packed.data(), &packedBytes, int32_t(packed.size())) ==
              qelStatusOk);
  packed.resize(packedBytes);
  FUZZ_EXPECT(qeliUnpackBitsRow_TIFF_8u_C1(packed.data(), &unpackedFrom, int32_t(packedBytes), back.data(), srcLen) ==
              qelStatusOk);
  FUZZ_EXPECT(back == src && unpackedFrom == packedBytes);

  // With less room the tokens that fit are stored, and nothing behind them.
  std::vector<uint8_t> small(dst.size());
  uint32_t smallBytes = 0;
  qeliPackBitsRow_TIFF_8u_C1(src.data(), srcLen, small.data(), &smallBytes, dstLen);
  FUZZ_EXPECT(smallBytes <= small.size() &&
              std::equal(packed.begin(), packed.begin() + std::min(smallBytes, packedBytes), small.begin()));
}

std::vector<Seed> seeds() {
  return {Seed().in(1, 12).byte(0).bytes({2, 'a', 'b', 'c', 0xFD, 'x', 4, '1', '2', '3', '4', '5'}),
          Seed().in(1, 600).byte(0).bytes({0x81, 7, 0x80, 0, 0x80, 0x81, 9, 127, 1, 2, 3}),
          Seed().in(1, 3).byte(1).bytes({0, 0xFE, 5, 0xFF})};
}

}  // namespace qelj::fuzz
