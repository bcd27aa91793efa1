// What the bit reader and the bit writer share: words in stream order, and the search for 0xFF bytes in them.
#ifndef QELJ_JPEG_HUFFMAN_BITS_H
#define QELJ_JPEG_HUFFMAN_BITS_H

#include <bit>

#include "frame/arith.h"

namespace qelj::jpeg {

static_assert(std::endian::native == std::endian::little);

// A word loaded from memory with its first byte as the most significant one, and back.
template <class Word>
inline Word streamOrder(Word word) {
  if constexpr (sizeof(Word) == 8) return __builtin_bswap64(word);
  if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
  if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
}

// Whether a byte of the word is 0xFF: the complement has a zero byte.
template <class Word>
inline bool hasFF(Word word) {
  constexpr Word kOnes = Word(~Word(0)) / 255;
  return (Word(Word(~word) - kOnes) & word & Word(kOnes << 7)) != 0;
}

}  // namespace qelj::jpeg

#endif
