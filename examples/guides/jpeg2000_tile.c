/* A colour tile through the reversible way of JPEG 2000: component transform, one level of 5/3, a code-block a band. */
#include <string.h>

#include "check.h"

enum { width = 50, height = 36, magnitudeBits = 12, shift = 31 - magnitudeBits, room = 8192 };

static int32_t planes[3][height][width], copy[3][height][width];

/* A band of a plane, which holds all four; its code-block's bytes. */
typedef struct Block {
  QelSize size;
  int32_t* samples;
  int32_t subband, numPlanes, numPasses, length;
  uint8_t bytes[room];
} Block;

static Block blocks[3][4];

static void encode(Block* block, QelEncodeStateJPEG2K* state) {
  /* The coder takes sign and magnitude, left-aligned. */
  static int32_t coded[height * width];
  for (int i = 0; i < block->size.width * block->size.height; ++i) {
    const int32_t v = block->samples[i / block->size.width * width + i % block->size.width];
    coded[i] = (int32_t)((v < 0 ? 0x80000000u : 0) | (uint32_t)abs(v) << shift);
  }
  int32_t segments, more;
  CALL(qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(coded, block->size.width * 4, block->size, state, block->subband,
                                              magnitudeBits, 0, 0, qelCodeStyleLossless, &block->numPlanes,
                                              &block->numPasses, &segments));
  block->length = room;
  CALL(qeliEncodeStoreBits_JPEG2K_1u(block->bytes, &block->length, state, &more));
  EXPECT(!more);
}

static void decode(Block* block, uint8_t* memory) {
  static int32_t coded[height * width];
  const uint32_t length = (uint32_t)block->length;
  CALL(qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(block->bytes, coded, block->size.width * 4, block->size, block->subband,
                                            (uint32_t)block->numPlanes, (uint32_t)block->numPasses, &length, 1, 0, 0,
                                            memory));
  for (int i = 0; i < block->size.width * block->size.height; ++i) {
    const int32_t magnitude = (coded[i] & INT32_MAX) >> shift;
    block->samples[i / block->size.width * width + i % block->size.width] = coded[i] < 0 ? -magnitude : magnitude;
  }
}

int main(void) {
  for (int i = 0; i < width * height; ++i)
    for (int c = 0; c < 3; ++c) planes[c][i / width][i % width] = (i % width * (3 + c) + i / width * 5) % 256 - 128;
  memcpy(copy, planes, sizeof planes);

  /* Samples are level-shifted by now. R, G, B become Y, U, V. */
  const QelSize size = {width, height};
  int32_t* const components[3] = {planes[0][0], planes[1][0], planes[2][0]};
  CALL(qeliRCTFwd_JPEG2K_32s_P3IR(components, sizeof planes[0][0], size));

  const QelRect tile = {0, 0, width, height}; /* its place on the reference grid decides what is low-pass */
  int32_t bytes;
  CALL(qeliWTGetBufSize_B53_JPEG2K_32s_C1IR(&tile, &bytes));
  uint8_t* const buffer = malloc((size_t)bytes);
  QelEncodeStateJPEG2K* state;
  CALL(qeliEncodeInitAlloc_JPEG2K(&state, size));
  int total = 0;
  for (int c = 0; c < 3; ++c) {
    CALL(qeliWTFwd_B53_JPEG2K_32s_C1IR(planes[c][0], sizeof planes[c][0], &tile, buffer));
    for (int b = 0; b < 4; ++b) {
      Block* const block = &blocks[c][b];
      static const int32_t subbands[4] = {qelSubbandLL, qelSubbandHL, qelSubbandLH, qelSubbandHH};
      const int across = b % 2, down = b / 2, lowWidth = (width + 1) / 2, lowHeight = (height + 1) / 2;
      block->subband = subbands[b];
      block->size.width = across ? width - lowWidth : lowWidth;
      block->size.height = down ? height - lowHeight : lowHeight;
      block->samples = &planes[c][down ? lowHeight : 0][across ? lowWidth : 0];
      encode(block, state);
      total += block->length;
    }
  }
  memset(planes, 0, sizeof planes);

  /* The way back, from the bytes alone. */
  int32_t bytesOfState;
  CALL(qeliDecodeGetBufSize_JPEG2K(size, &bytesOfState));
  uint8_t* const memory = malloc((size_t)bytesOfState);
  for (int c = 0; c < 3; ++c) {
    for (int b = 0; b < 4; ++b) decode(&blocks[c][b], memory);
    CALL(qeliWTInv_B53_JPEG2K_32s_C1IR(planes[c][0], sizeof planes[c][0], &tile, buffer));
  }
  CALL(qeliRCTInv_JPEG2K_32s_P3IR(components, sizeof planes[0][0], size));
  EXPECT(!memcmp(planes, copy, sizeof planes));
  printf("%d samples in %d bytes, to the bit\n", 3 * width * height, total);
  free(buffer), free(memory);
  CALL(qeliEncodeFree_JPEG2K(state));
  return 0;
}
