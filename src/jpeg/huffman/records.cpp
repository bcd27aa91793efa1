// Huffman records: tables from the lists of a DHT segment, and coder states (ISO/IEC 10918-1, Annex C and F.2.2.3).
#include "jpeg/huffman/records.h"

#include <cstddef>
#include <cstring>

#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/memory.h"

namespace qelj {
namespace {

using namespace jpeg;

// The code lengths and codes of a table, in the order of `vals` (C.2), ended by a length of 0.
struct CodeList {
  int32_t count = 0;
  uint8_t sizes[257] = {};
  uint32_t codes[257] = {};
  bool complete = false;  // a length's codes reach all ones, or pass it
};

QelStatus ownListCodes(const uint8_t* bits, CodeList& list) {
  for (int l = 1; l <= 16; ++l) {
    const int n = bits[l - 1];
    if (list.count + n > 256) return qelStatusJpegHuffTable;
    std::memset(list.sizes + list.count, l, size_t(n));
    list.count += n;
  }
  uint32_t code = 0;  // at most 256 << 15
  int l = list.sizes[0];
  for (int k = 0; list.sizes[k]; ++l, code <<= 1) {
    while (list.sizes[k] == l) list.codes[k++] = code++;
    list.complete |= code >> l != 0;
  }
  return qelStatusOk;
}

QelStatus ownInit(QelDecodeHuffmanSpec* spec, const uint8_t* bits, const uint8_t* vals) {
  std::memset(static_cast<void*>(spec), 0, sizeof *spec);
  CodeList list;
  if (auto s = ownListCodes(bits, list); s) return s;

  for (int l = 1, k = 0; l <= 16; ++l) {
    const int n = bits[l - 1];
    spec->maxCode[l] = 0xFFFF;
    if (n == 0) continue;
    spec->valueIndex[l] = uint16_t(k);
    spec->minCode[l] = uint16_t(list.codes[k]);
    for (int end = k + n; k < end; ++k) spec->symbols[k] = vals[k];
    spec->maxCode[l] = uint16_t(list.codes[k - 1]);
  }
  spec->maxCode[17] = 0xFFFF;

  for (int k = 0; list.sizes[k] && list.sizes[k] <= 8; ++k) {
    const int l = list.sizes[k];
    const uint32_t first = list.codes[k] << (8 - l);
    // Overfull lengths are refused one code behind the table's end; a code right at the end is never met.
    if (first > 256) return qelStatusJpegHuffTable;
    for (uint32_t i = first; i < first + (1u << (8 - l)) && i < 256; ++i) spec->lookup[i] = vals[k] | uint32_t(l) << 16;
  }
  return qelStatusOk;
}

QelStatus ownInit(QelEncodeHuffmanSpec* spec, const uint8_t* bits, const uint8_t* vals) {
  std::memset(static_cast<void*>(spec), 0, sizeof *spec);
  CodeList list;
  if (auto s = ownListCodes(bits, list); s) return s;
  if (list.complete) return qelStatusJpegHuffTable;
  for (int k = 0; k < list.count; ++k) spec->codes[vals[k]] = uint32_t(list.sizes[k]) << 16 | list.codes[k];
  return qelStatusOk;
}

QelStatus ownInit(QelDecodeHuffmanState* state) { return ownZero8u(state, offsetof(QelDecodeHuffmanState, unused)); }
QelStatus ownInit(QelEncodeHuffmanState* state) { return ownZero8u(state, sizeof *state); }

template <class Record, class... Lists>
QelStatus ownInitAlloc(Record** record, Lists... lists) {
  *record = static_cast<Record*>(ownAlloc(sizeof(Record)));
  if (!*record) return qelStatusNullPointer;
  return ownInit(*record, lists...);
}

template <class Record>
QelStatus ownBufSize(int32_t* size) {
  if (!size) return qelStatusNullPointer;
  *size = sizeof(Record);
  return qelStatusOk;
}

}  // namespace

QelStatus ownFreeHuffmanRecord(void* record) {
  if (!record) return qelStatusNullPointer;
  ownFree(record);
  return qelStatusOk;
}

QelStatus qeliDecodeHuffmanSpecGetBufSize_JPEG_8u(int32_t* size) { return ownBufSize<QelDecodeHuffmanSpec>(size); }
QelStatus qeliDecodeHuffmanSpecInit_JPEG_8u(const uint8_t* bits, const uint8_t* vals, QelDecodeHuffmanSpec* spec) {
  if (auto s = nonNull(bits, vals, spec); s) return s;
  return ownInit(spec, bits, vals);
}
QelStatus qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(const uint8_t* bits, const uint8_t* vals,
                                                 QelDecodeHuffmanSpec** spec) {
  if (auto s = nonNull(bits, vals, spec); s) return s;
  return ownInitAlloc(spec, bits, vals);
}

QelStatus qeliEncodeHuffmanSpecGetBufSize_JPEG_8u(int32_t* size) { return ownBufSize<QelEncodeHuffmanSpec>(size); }
QelStatus qeliEncodeHuffmanSpecInit_JPEG_8u(const uint8_t* bits, const uint8_t* vals, QelEncodeHuffmanSpec* spec) {
  if (auto s = nonNull(bits, vals, spec); s) return s;
  return ownInit(spec, bits, vals);
}
QelStatus qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(const uint8_t* bits, const uint8_t* vals,
                                                 QelEncodeHuffmanSpec** spec) {
  if (auto s = nonNull(bits, vals, spec); s) return s;
  return ownInitAlloc(spec, bits, vals);
}

QelStatus qeliDecodeHuffmanStateGetBufSize_JPEG_8u(int32_t* size) { return ownBufSize<QelDecodeHuffmanState>(size); }
QelStatus qeliDecodeHuffmanStateInit_JPEG_8u(QelDecodeHuffmanState* state) {
  if (auto s = nonNull(state); s) return s;
  return ownInit(state);
}
QelStatus qeliDecodeHuffmanStateInitAlloc_JPEG_8u(QelDecodeHuffmanState** state) {
  if (auto s = nonNull(state); s) return s;
  return ownInitAlloc(state);
}

QelStatus qeliEncodeHuffmanStateGetBufSize_JPEG_8u(int32_t* size) { return ownBufSize<QelEncodeHuffmanState>(size); }
QelStatus qeliEncodeHuffmanStateInit_JPEG_8u(QelEncodeHuffmanState* state) {
  if (auto s = nonNull(state); s) return s;
  return ownInit(state);
}
QelStatus qeliEncodeHuffmanStateInitAlloc_JPEG_8u(QelEncodeHuffmanState** state) {
  if (auto s = nonNull(state); s) return s;
  return ownInitAlloc(state);
}

}  // namespace qelj
