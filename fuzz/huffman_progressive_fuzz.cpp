// Progressive blocks: scans of any kind over four blocks, one after another.
#include "support/huffman.h"

namespace qelj::fuzz {
namespace {

enum Kind { kDCFirst, kDCRefine, kACFirst, kACRefine, kKinds };
constexpr int kBlocks = 4;

}  // namespace

void run(Input input) {
  DecodeTable table;
  if (!init(table, takeLists(input))) return;
  struct Scan {
    int kind, ss, se;
    uint32_t al;
  };
  std::vector<Scan> scans(input.take() % 16);
  for (auto& scan : scans) {
    scan.kind = input.take() % kKinds;
    scan.ss = int8_t(input.take()), scan.se = int8_t(input.take());
    scan.al = input.take() % 16;
  }
  Stream s(input.rest());
  std::vector<int16_t> blocks[kBlocks];
  for (auto& block : blocks) block.resize(64);
  for (const Scan& scan : scans) {
    int16_t lastDC = 0;
    init(s.state);
    s.marker = 0;
    for (auto& block : blocks) {
      const int32_t from = s.position;
      QelStatus status = qelStatusOk;
      switch (scan.kind) {
        case kDCFirst:
          status = qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(s.data.data(), s.length, &s.position, block.data(),
                                                              &lastDC, &s.marker, scan.al, table.get(), s.state.get());
          break;
        case kDCRefine:
          status = qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(s.data.data(), s.length, &s.position, block.data(),
                                                               &s.marker, scan.al, s.state.get());
          break;
        case kACFirst:
          status =
              qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data.data(), s.length, &s.position, block.data(), &s.marker,
                                                         scan.ss, scan.se, scan.al, table.get(), s.state.get());
          break;
        default:
          status =
              qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(s.data.data(), s.length, &s.position, block.data(), &s.marker,
                                                          scan.ss, scan.se, scan.al, table.get(), s.state.get());
      }
      s.expectInside(from);
      if (scan.kind >= kACFirst && (scan.ss < 1 || scan.ss > 63 || scan.se < scan.ss || scan.se > 63))
        FUZZ_EXPECT(status < 0);
      if (status != qelStatusOk) break;
    }
  }
}

std::vector<Seed> seeds() {
  int16_t blocks[kBlocks][64] = {};
  for (int b = 0; b < kBlocks; ++b)
    for (int i = 0; i < 64; i += 1 + b * 5) blocks[b][i] = int16_t((i * 29 + b * 57) % 61 - 30);
  Seed seed;
  seed.byte(0).byte(4);
  for (const int scan : {kDCFirst, kDCRefine, kACFirst, kACRefine})
    seed.byte(scan).byte(scan < kACFirst ? 0 : 1).byte(scan < kACFirst ? 0 : 63).byte(scan % 2 == 0);
  const auto coded = encode([&](uint8_t* dst, int32_t length, int32_t* position, auto* table, auto* state) {
    int16_t lastDC = 0;
    for (int flush = 0; flush < 2; ++flush)
      for (int b = 0; b < (flush ? 1 : kBlocks); ++b)
        qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(blocks[b], dst, length, position, &lastDC, 1, table, state, flush);
    for (int flush = 0; flush < 2; ++flush)
      for (int b = 0; b < (flush ? 1 : kBlocks); ++b)
        qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(blocks[b], dst, length, position, 0, state, flush);
    for (int flush = 0; flush < 2; ++flush)
      for (int b = 0; b < (flush ? 1 : kBlocks); ++b)
        qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(blocks[b], dst, length, position, 1, 63, 1, table, state, flush);
    for (int flush = 0; flush < 2; ++flush)
      for (int b = 0; b < (flush ? 1 : kBlocks); ++b)
        qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(blocks[b], dst, length, position, 1, 63, 0, table, state, flush);
  });
  return {seed.bytes(coded)};
}

}  // namespace qelj::fuzz
