// Inputs of hostile kinds, each 1, 2 and 4 times as long, through every call whose input has a length and every reader of
// the converter: run under callgrind (scripts/bench --check), which shows that time grows no faster than the input.
#include <valgrind/callgrind.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "format.h"
#include "jpeg/huffman/huffman_support.h"
#include "qelj.h"

namespace {

using namespace qelj::test;
using Bytes = std::vector<uint8_t>;
using Texts = std::map<std::string, std::string>;

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

// --- readers of the converter -------------------------------------------------------------------------------

qelconv::Image picture(int32_t height, bool half) {
  qelconv::Image image(64, height, qelconv::Colour::rgb, half ? 16 : 8);
  image.half = half;
  for (size_t i = 0; i < image.data.size(); ++i) image.data[i] = uint8_t(i / 7 * (i % 13) >> i % 3) & 0x3F;
  return image;
}

Bytes written(const char* ending, const qelconv::Image& image, const Texts& texts = {}) {
  qelconv::Options options;
  for (const auto& [name, value] : texts) options.set(name, value);
  qelconv::Stages stages;
  return qelconv::formatOfName(ending)->write(image, options, stages);
}

// A file that grows with n.
void measureReader(const std::string& name, size_t n, const std::function<Bytes(size_t)>& made) {
  std::map<size_t, Bytes> files;
  measure(name, n, [&](size_t size) {
    Bytes& file = files[size];
    if (file.empty()) file = made(size);  // the first time, which isn't counted
    qelconv::Stages stages;
    qelconv::formatOfContent(file)->read(file, {}, stages);
  });
}

// The file with n times `piece` in front of the first `mark`.
Bytes repeated(Bytes file, size_t n, std::initializer_list<int> mark, std::initializer_list<int> piece) {
  const auto all = pattern(n * piece.size(), piece);
  const auto at = std::search(file.begin(), file.end(), mark.begin(), mark.end());
  if (at == file.end()) std::abort();
  file.insert(at, all.begin(), all.end());
  return file;
}

void measureReaders() {
  const struct {
    const char *name, *ending;
    Texts options;
  } kFiles[] = {{"pnm", ".ppm", {}},
                {"pfm", ".pfm", {}},
                {"png", ".png", {}},
                {"jpeg", ".jpg", {}},
                {"jpeg_intervals", ".jpg", {{"restart", "1"}}},
                {"jpeg_progressive", ".jpg", {{"progressive", "1"}}},
                {"jpeg_lossless", ".jpg", {{"lossless", "1"}}},
                {"jpeg2000_lossless", ".j2k", {{"layers", "3"}}},
                {"jpeg2000_lossy", ".jp2", {{"irreversible", "1"}, {"rate", "2"}, {"order", "PCRL"}}},
                {"jpeg2000_tiles", ".j2k", {{"tiles", "32x32"}}},
                {"jpegxr_lossless", ".jxr", {{"quality", "100"}}},
                {"jpegxr_lossy", ".jxr", {{"quality", "70"}}},
                {"tiff", ".tif", {}},
                {"tiff_planes", ".tif", {{"byte-planes", "1"}}},
                {"dds_bc1", ".dds", {{"block", "bc1"}}},
                {"dds_bc3", ".dds", {{"block", "bc3"}}}};
  for (const auto& file : kFiles)
    measureReader(std::string("read_") + file.name, 64, [&](size_t n) {
      auto image = picture(int32_t(n), file.ending == std::string(".pfm"));
      if (file.options.contains("byte-planes")) image = picture(int32_t(n), true), image.half = false;
      return written(file.ending, image, file.options);
    });

  // What a file may repeat beside its picture.
  const auto small = picture(8, false);
  const auto repeats = [&](const char* name, const char* ending, std::initializer_list<int> mark,
                           std::initializer_list<int> piece) {
    measureReader(std::string("read_") + name, 1 << 15,
                  [&](size_t n) { return repeated(written(ending, small), n, mark, piece); });
  };
  repeats("pnm_comments", ".ppm", {'6', '4', ' '}, {'#', '\n'});
  repeats("jpeg_segments", ".jpg", {0xFF, 0xDB}, {0xFF, 0xFE, 0, 2});
  repeats("jpeg_fill", ".jpg", {0xFF, 0xDB}, {0xFF});
  repeats("jpeg_tables", ".jpg", {0xFF, 0xDA}, {0xFF, 0xC4, 0, 19, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  repeats("jpeg2000_segments", ".j2k", {0xFF, 0x90}, {0xFF, 0x64, 0, 4, 0, 1});
  repeats("jpeg2000_tile_parts", ".j2k", {0xFF, 0x90}, {0xFF, 0x90, 0, 10, 0, 0, 0, 0, 0, 14, 0, 2, 0xFF, 0x93});
  repeats("jp2_boxes", ".jp2", {0, 0, 0, 0x2D, 'j', 'p', '2', 'h'}, {0, 0, 0, 8, 'f', 'r', 'e', 'e'});
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
  measureReaders();
  return 0;
}
