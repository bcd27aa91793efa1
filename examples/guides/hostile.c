/* Streams that mean harm: cut short, changed at random, without an end. What a caller adds for decoders that know none. */
#include <stddef.h>
#include <string.h>

#include "check.h"
#include "qelj_typical.h"

enum { margin = 112 };

static uint32_t seed = 1;
static uint8_t drawn(void) { return (uint8_t)((seed = seed * 1664525 + 1013904223) >> 24); }

//! [jpeg]
/* A block decoder with a length may be given anything. Its status says how far it came. */
static int jpegBlocks(const uint8_t* data, int32_t length, int wanted, const QelDecodeHuffmanSpec* dc,
                      const QelDecodeHuffmanSpec* ac, QelDecodeHuffmanState* state) {
  int32_t position = 0, marker = qelMarkerNone;
  int16_t block[64], lastDC = 0;
  int decoded = 0;
  CALL(qeliDecodeHuffmanStateInit_JPEG_8u(state));
  while (decoded < wanted &&
         qeliDecodeHuffman8x8_JPEG_1u16s_C1(data, length, &position, block, &lastDC, &marker, dc, ac, state) >= 0)
    ++decoded;
  return decoded; /* a loop that is counted by blocks ends, whatever the stream holds */
}
//! [jpeg]

//! [margin]
/* Decoders of JPEG XR know no end. The last bytes of a packet are copied to where 112 readable ones stand behind them;
 * behind each block the caller compares. */
static int jpegXrBlocks(const uint8_t* packet, size_t length, int wanted, VLCState* state) {
  uint8_t* const data = calloc(1, length + margin);
  if (!data) return -1;
  if (length) memcpy(data, packet, length);
  const uint8_t* stream = data;
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0, count = 0, block[16], decoded = 0;
  while (decoded < wanted) {
    CALL(qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&stream, &bitBuffer, &bitCount, 1, block, 16, qelVLCPlaneLuma, &count,
                                           state));
    if (count == qelVLCCountOverrun) break;                            /* corrupt */
    if (8 * (stream - data) - bitCount > 8 * (ptrdiff_t)length) break; /* beyond the end: not to be used */
    ++decoded;
  }
  free(data);
  return decoded;
}
//! [margin]

//! [segments]
/* A code-block decoder believes the lengths of segments: their sum has to lie in the packet. */
static QelStatus codeBlock(const uint8_t* packet, size_t length, const uint32_t* lengths, int32_t segments,
                           uint32_t passes, int32_t* samples, QelSize size, uint8_t* memory) {
  size_t left = length;
  for (int32_t s = 0; s < segments; ++s) {
    if (lengths[s] > left) return qelStatusOutOfRange;
    left -= lengths[s];
  }
  return qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(packet, samples, size.width * 4, size, qelSubbandLL, 20, passes, lengths,
                                              segments, qelCodeStyleSymbols | qelCodeStyleTerminate, 0, memory);
}
//! [segments]

int main(void) {
  QelDecodeHuffmanSpec *dc, *ac;
  QelDecodeHuffmanState* state;
  CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalDcBits[0], qelTypicalDcVals, &dc));
  CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalAcBits[0], qelTypicalAcVals[0], &ac));
  CALL(qeliDecodeHuffmanStateInitAlloc_JPEG_8u(&state));
  int32_t bytes;
  CALL(qeliVLCGetStateSize_JPEGXR(&bytes));
  VLCState* const adaptive = malloc((size_t)bytes);
  const QelSize size = {16, 16};
  CALL(qeliDecodeGetBufSize_JPEG2K(size, &bytes));
  uint8_t* const memory = malloc((size_t)bytes);
  int32_t samples[16 * 16];

  int whole = 0, refused = 0;
  for (int round = 0; round < 2000; ++round) {
    /* Memory of exactly the packet's size: a sanitizer would see a byte more. */
    const size_t length = drawn() % 64u;
    uint8_t* const packet = malloc(length ? length : 1);
    for (size_t i = 0; i < length; ++i) packet[i] = drawn();
    whole += jpegBlocks(packet, (int32_t)length, 8, dc, ac, state) == 8;
    CALL(qeliVLCInit_JPEGXR(adaptive));
    for (int32_t scan = 0; scan < 3; ++scan) CALL(qeliVLCScanReset_JPEGXR(adaptive, scan));
    EXPECT(jpegXrBlocks(packet, length, 16, adaptive) <= 16);
    const uint32_t lengths[2] = {drawn() % 40u, drawn() % 40u};
    refused += codeBlock(packet, length, lengths, 2, 2, samples, size, memory) < 0;
    free(packet);
  }
  printf("of 2000 packets, %d gave eight whole JPEG blocks and %d were refused as code-blocks\n", whole, refused);
  qeliDecodeHuffmanSpecFree_JPEG_8u(dc), qeliDecodeHuffmanSpecFree_JPEG_8u(ac),
      qeliDecodeHuffmanStateFree_JPEG_8u(state);
  free(adaptive), free(memory);
  return whole == 2000 || refused == 0;
}
