// Inputs of hostile kinds, each 1, 2 and 4 times as long, through every call whose input has a length: run under callgrind
// (scripts/bench --check), which shows that time grows no faster than the input.
#include <valgrind/callgrind.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "jpeg/huffman/huffman_support.h"
#include "qelj.h"

namespace {

using namespace qelj::test;
using Bytes = std::vector<uint8_t>;

Bytes pattern(size_t n, std::initializer_list<int> bytes) {
  Bytes all(n);
  for (size_t i = 0; i < n; ++i) all[i] = uint8_t(bytes.begin()[i % bytes.size()]);
  return all;
}

// Dumps the instructions of work(n), work(2 n) and work(4 n).
void measure(const std::string& name, size_t n, const std::function<void(size_t)>& work) {
  for (const size_t times : {1, 2, 4}) {
    work(times * n);  // for the first time, whatever is done once
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    work(times * n);
    CALLGRIND_TOGGLE_COLLECT;
    static std::deque<std::string> names;  // they are read later
    CALLGRIND_DUMP_STATS_AT(names.emplace_back(name + "_" + std::to_string(times)).c_str());
  }
}

// Blocks of every kind until the segment ends; each call that fails is tried again at once, as nobody should.
void decodeBlocks(const Bytes& src, Tables& table, bool progressive) {
  DecodeState state;
  const auto length = int32_t(src.size());
  int32_t position = 0, marker = 0, failures = 0;
  int16_t block[64] = {}, lastDC = 0;
  for (size_t blocks = 0; blocks <= src.size() && failures < 3; ++blocks) {
    const QelStatus s = progressive
                            ? qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(src.data(), length, &position, block, &marker,
                                                                         1, 63, 0, table.decoder(), state)
                            : qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), length, &position, block, &lastDC, &marker,
                                                                 table.decoder(), table.decoder(), state);
    failures += s != qelStatusOk;
  }
}

void decodeCodeBlock(const Bytes& src, const std::vector<uint32_t>& lengths, QelSize size, uint32_t passes,
                     int32_t style) {
  int32_t bytes = 0;
  qeliDecodeGetBufSize_JPEG2K(size, &bytes);
  Bytes state(static_cast<size_t>(bytes));
  std::vector<int32_t> samples(size_t(size.width * size.height));
  uint32_t reached = 0;
  qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(src.data(), samples.data(), 4 * size.width, size, 0, 31, passes, lengths.data(),
                                       int32_t(lengths.size()), style, &reached, state.data());
}

}  // namespace

int main() {
  Tables flat(Lists::flat());
  measure("huffman_zeros", 1 << 14, [&](size_t n) { decodeBlocks(pattern(n, {0}), flat, false); });
  measure("huffman_fill", 1 << 14, [&](size_t n) { decodeBlocks(pattern(n, {0xFF}), flat, false); });
  measure("huffman_stuffed", 1 << 14, [&](size_t n) { decodeBlocks(pattern(n, {0xFF, 0}), flat, false); });
  measure("huffman_progressive", 1 << 14,
          [&](size_t n) { decodeBlocks(pattern(n, {0x12, 0xE0, 0xFF, 0}), flat, true); });
  measure("huffman_row", 1 << 13, [&](size_t n) {
    const Bytes src = pattern(2 * n, {3, 0xFF, 0, 0x5A});
    std::vector<int16_t> row(n);
    int16_t* const planes[] = {row.data()};
    const QelDecodeHuffmanSpec* const tables[] = {flat.decoder()};
    DecodeState state;
    int32_t position = 0, marker = 0;
    qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(src.data(), int32_t(src.size()), &position, planes, int32_t(n), 1, &marker,
                                         tables, state);
  });
  measure("packbits_nothing", 1 << 14, [](size_t n) {
    const Bytes src = pattern(n, {0x80});
    Bytes dst(100);
    uint32_t position = 0;
    qeliUnpackBitsRow_TIFF_8u_C1(src.data(), &position, int32_t(n) - 1, dst.data(), 100);
  });
  measure("packbits_runs", 1 << 14, [](size_t n) {
    const Bytes src = pattern(n, {0, 7, 0xFF, 9});
    Bytes dst(2 * n);
    uint32_t position = 0;
    qeliUnpackBitsRow_TIFF_8u_C1(src.data(), &position, int32_t(n) - 1, dst.data(), int32_t(dst.size()));
  });
  measure("codeblock_samples", 16,
          [](size_t n) { decodeCodeBlock(pattern(4096, {0x5A, 0xC3, 0x11}), {4096}, {64, int32_t(n)}, 91, 0); });
  measure("codeblock_bytes", 1 << 14,
          [](size_t n) { decodeCodeBlock(pattern(n, {0xA5}), {uint32_t(n)}, {16, 16}, 91, 2); });
  measure("codeblock_segments", 1 << 12,
          [](size_t n) { decodeCodeBlock(pattern(1, {0}), std::vector<uint32_t>(n), {4, 4}, ~0u, 4); });
  measure("codeblock_passes", 1 << 12,
          [](size_t n) { decodeCodeBlock(pattern(64, {7}), {64}, {16, 16}, uint32_t(n), 0); });
  measure("texture_bc7", 1 << 10, [](size_t n) {
    const Bytes src = pattern(16 * n, {0x40, 1, 0x80, 2, 0, 0, 0x55});
    Bytes dst(64 * n);
    qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(src.data(), dst.data(), int32_t(16 * n), {int32_t(4 * n), 4});
  });
  return 0;
}
