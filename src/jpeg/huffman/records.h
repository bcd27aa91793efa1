// The four Huffman records, and the categories of values, which every entropy coder of JPEG shares.
//
// A record may stand at any address in the caller's memory, so the structures are packed.
#ifndef QELJ_JPEG_HUFFMAN_RECORDS_H
#define QELJ_JPEG_HUFFMAN_RECORDS_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include "qelj.h"

// Decoding by table look-up, and by the search of F.2.2.3 for codes of more than 8 bits.
struct __attribute__((packed)) QelDecodeHuffmanSpec {
  uint16_t symbols[256];    // in code order
  uint32_t lookup[256];     // by the next 8 bits: length << 16 | symbol, or 0 where no short code begins so
  uint16_t minCode[18];     // by code length, 1 to 16
  uint16_t maxCode[18];     // 0xFFFF where the length has no code
  uint16_t valueIndex[18];  // of the length's first code, in `symbols`
};

struct __attribute__((packed)) QelEncodeHuffmanSpec {
  uint32_t codes[256];  // by symbol: length << 16 | code, or 0 for a symbol without a code
};

struct __attribute__((packed)) QelDecodeHuffmanState {
  uint32_t bitBuffer;     // the next bit is bit bitCount - 1
  uint32_t stuffFlag;     // always 0
  int32_t bitCount;       // 0 to 32
  int32_t eobRun;         // blocks left in the end-of-band run
  int32_t blockPosition;  // positions handled in the last block; 0 after an error
  uint32_t unused;
};

struct __attribute__((packed)) QelEncodeHuffmanState {
  uint32_t bitBuffer;            // the pending bits, downwards from bit 23
  uint32_t stuffFlag;            // always 0
  int32_t bitCount;              // 0 to 7
  int32_t eobRun;                // blocks in the pending end-of-band run
  int32_t correctionCount;       // pending correction bits
  uint8_t correctionBits[1024];  // one a byte
  uint32_t unused;
};

static_assert(sizeof(QelDecodeHuffmanSpec) == 1644 && sizeof(QelEncodeHuffmanSpec) == 1024);
static_assert(sizeof(QelDecodeHuffmanState) == 24 && sizeof(QelEncodeHuffmanState) == 1048);

namespace qelj::jpeg {

// The category of a value (F.1.2.1), which is the bit length of its magnitude, and the bits that follow a
// symbol of this category: the value, or value - 1 for a negative one.
struct ValueCode {
  size_t category;
  uint64_t bits;
};
constexpr ValueCode ownValueCode(int32_t value) {
  const auto category = size_t(31 ^ std::countl_zero(uint32_t(value < 0 ? -value : value) * 2 + 1));
  return {category, uint64_t(int64_t(value) + (value >> 31)) & ((uint64_t(1) << category) - 1)};
}
inline int ownCategory(int32_t value) { return int(ownValueCode(value).category); }

}  // namespace qelj::jpeg

#endif
