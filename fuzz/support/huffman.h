// Huffman tables and states for the fuzz targets.
#ifndef QELJ_FUZZ_HUFFMAN_H
#define QELJ_FUZZ_HUFFMAN_H

#include <numeric>

#include "support/fuzz.h"

namespace qelj::fuzz {

// The lists of a DHT segment: either those of the input, or a table with a code for each of the 256 symbols.
struct Lists {
  std::vector<uint8_t> bits, vals;
};
inline Lists flatLists() {
  Lists l{std::vector<uint8_t>(16), std::vector<uint8_t>(256)};
  l.bits[7] = 254, l.bits[8] = 2;  // leaves the code of all ones free
  std::iota(l.vals.begin(), l.vals.end(), uint8_t(0));
  return l;
}
inline Lists takeLists(Input& input) {
  if (input.take() % 2 == 0) return flatLists();
  Lists l{input.bytes(16), {}};
  const auto count = std::accumulate(l.bits.begin(), l.bits.end(), size_t(0));
  l.vals = input.bytes(std::min(count, size_t(256)));
  return l;
}

using DecodeTable = Record<QelDecodeHuffmanSpec, qeliDecodeHuffmanSpecGetBufSize_JPEG_8u>;
using DecodeState = Record<QelDecodeHuffmanState, qeliDecodeHuffmanStateGetBufSize_JPEG_8u>;
using EncodeTable = Record<QelEncodeHuffmanSpec, qeliEncodeHuffmanSpecGetBufSize_JPEG_8u>;
using EncodeState = Record<QelEncodeHuffmanState, qeliEncodeHuffmanStateGetBufSize_JPEG_8u>;

inline bool init(DecodeTable& table, const Lists& l) {
  return qeliDecodeHuffmanSpecInit_JPEG_8u(l.bits.data(), l.vals.data(), table.get()) == qelStatusOk;
}
inline void init(DecodeState& state) { qeliDecodeHuffmanStateInit_JPEG_8u(state.get()); }

// A seed's coded segment: `code` calls an encoder with destination, length, position, table and state.
template <class Code>
std::vector<uint8_t> encode(Code code) {
  EncodeTable table;
  EncodeState state;
  const Lists l = flatLists();
  qeliEncodeHuffmanSpecInit_JPEG_8u(l.bits.data(), l.vals.data(), table.get());
  qeliEncodeHuffmanStateInit_JPEG_8u(state.get());
  std::vector<uint8_t> coded(8192);
  int32_t position = 0;
  code(coded.data(), int32_t(coded.size()), &position, table.get(), state.get());
  coded.resize(size_t(position));
  return coded;
}

// A position in coded data with the decoder's state, and copies of both to go back to.
struct Stream {
  std::vector<uint8_t> data;
  int32_t length = 0, position = 0, marker = 0;
  DecodeState state;

  explicit Stream(std::vector<uint8_t> all) : data(std::move(all)), length(int32_t(data.size())) { init(state); }
  // Goes on behind a restart marker, as a decoder of a damaged file does.
  bool restart() {
    if (marker < 0xD0 || marker > 0xD7) return false;
    marker = 0;
    init(state);
    return true;
  }
  void expectInside(int32_t from) const { FUZZ_EXPECT(position >= from && position <= length); }
};

}  // namespace qelj::fuzz

#endif
