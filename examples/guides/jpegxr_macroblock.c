/* A macroblock of JPEG XR luma: two stages of the transform, its bands coded and decoded, and back to the bit. */
#include <string.h>

#include "check.h"

enum { modelBits = 3, margin = 112 };

/* What a file says of a macroblock: its DC, which blocks have levels at all, and the coded bits. */
typedef struct Macroblock {
  int32_t dc;
  int lowCoded, highCoded; /* a bit a block */
  uint8_t data[98 + 16 * (98 + 32) + 4 + margin];
} Macroblock;

/* Where position p of the scans stands in a 4x4 block. */
static const int column[16] = {0, 1, 0, 1, 3, 2, 3, 2, 0, 1, 0, 1, 3, 2, 3, 2};
static const int row[16] = {0, 0, 1, 1, 0, 0, 1, 1, 3, 3, 2, 2, 3, 3, 2, 2};

static int32_t samples[16][16], copy[16][16], low[4][4];

/* The record of an encoder or a decoder. Both make the same calls on it. */
static VLCState* newState(void) {
  int32_t bytes;
  CALL(qeliVLCGetStateSize_JPEGXR(&bytes));
  VLCState* const state = malloc((size_t)bytes);
  CALL(qeliVLCInit_JPEGXR(state));
  for (int32_t scan = qelVLCScanHighPassTop; scan <= qelVLCScanLowPass; ++scan)
    CALL(qeliVLCScanReset_JPEGXR(state, scan));
  return state;
}

//! [transform]
static void forward(void) {
  CALL(qeliPCTFwd16x16_JPEGXR_32s_C1IR(samples[0], sizeof samples[0]));
  for (int b = 0; b < 16; ++b) low[b / 4][b % 4] = samples[b / 4 * 4][b % 4 * 4]; /* gather the blocks' DCs */
  const QelSize one = {4, 4};
  CALL(qeliPCTFwd_JPEGXR_32s_C1IR(low[0], sizeof low[0], one));
}

static void inverse(void) {
  const QelSize one = {4, 4};
  CALL(qeliPCTInv_JPEGXR_32s_C1IR(low[0], sizeof low[0], one));
  for (int b = 0; b < 16; ++b) samples[b / 4 * 4][b % 4 * 4] = low[b / 4][b % 4];
  CALL(qeliPCTInv16x16_JPEGXR_32s_C1IR(samples[0], sizeof samples[0]));
}
//! [transform]

//! [coding]
static int32_t encode(Macroblock* m, VLCState* state) {
  uint8_t* stream = m->data;
  uint32_t bitBuffer = 0, residual[16];
  int32_t bitCount = 0, byPosition[16], pairs[30], count;

  /* The low-pass band: 15 coefficients along scan 2, as pairs of a run and a level. The DC is the caller's. */
  m->dc = low[0][0];
  for (int p = 0; p < 16; ++p) byPosition[p] = low[row[p]][column[p]];
  CALL(qeliVLCScan4x4DC_JPEGXR_32s(byPosition, 0, residual, pairs, &count, state));
  CALL(qeliVLCEncodeDC444_JPEGXR_32s1u(pairs, count, qelVLCPlaneLuma, &stream, &bitBuffer, &bitCount, state));
  m->lowCoded = count > 0;

  /* The high-pass band: levels adaptively, then the modelBits low bits at a fixed length. */
  CALL(qeliVLCScanSet_JPEGXR(state, qelVLCScanHighPass));
  m->highCoded = 0;
  for (int b = 0; b < 16; ++b) {
    const int32_t* const block = &samples[b / 4 * 4][b % 4 * 4];
    CALL(qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(block, sizeof samples[0], qelVLCPlaneLuma, modelBits, 0, residual,
                                               &stream, &bitBuffer, &bitCount, &count, state));
    CALL(qeliFLCEncode4x4_JPEGXR_32s1u_C1R(block, sizeof samples[0], residual, &stream, &bitBuffer, &bitCount,
                                           modelBits, 0, qelFLCSourceResidual));
    m->highCoded |= (count > 0) << b;
  }
  CALL(qeliVLCAdapt_JPEGXR(state, qelVLCGroupLowPass));
  CALL(qeliVLCAdapt_JPEGXR(state, qelVLCGroupHighPass));

  /* What is still held stands at the top of bitBuffer. */
  for (; bitCount > 0; bitCount -= 8, bitBuffer <<= 8) *stream++ = (uint8_t)(bitBuffer >> 24);
  return (int32_t)(stream - m->data);
}

static void decode(const Macroblock* m, VLCState* state) {
  const uint8_t* stream = m->data; /* 112 readable bytes stand behind what was coded */
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0, byPosition[16] = {0}, count;

  /* The decoder walks scan 2 itself; a band without levels has no bits. */
  CALL(qeliVLCScanSet_JPEGXR(state, qelVLCScanLowPass));
  if (m->lowCoded)
    CALL(qeliVLCDecodeDC444_JPEGXR_1u32s(&stream, &bitBuffer, &bitCount, byPosition, qelVLCPlaneLuma, &count, state));
  for (int p = 1; p < 16; ++p) low[row[p]][column[p]] = byPosition[p];
  low[0][0] = m->dc;

  CALL(qeliVLCScanSet_JPEGXR(state, qelVLCScanHighPass));
  for (int b = 0; b < 16; ++b) {
    int32_t* const block = &samples[b / 4 * 4][b % 4 * 4];
    if (m->highCoded >> b & 1)
      CALL(qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&stream, &bitBuffer, &bitCount, 1 << modelBits, block, sizeof samples[0],
                                             qelVLCPlaneLuma, &count, state));
    CALL(qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(&stream, &bitBuffer, &bitCount, block, sizeof samples[0], modelBits, 1,
                                            qelFLCModeRefine));
  }
  CALL(qeliVLCAdapt_JPEGXR(state, qelVLCGroupLowPass));
  CALL(qeliVLCAdapt_JPEGXR(state, qelVLCGroupHighPass));
}
//! [coding]

int main(void) {
  VLCState *const encoder = newState(), *const decoder = newState();
  for (int n = 0; n < 5; ++n) { /* five macroblocks, while the tables adapt */
    for (int i = 0; i < 256; ++i) samples[i / 16][i % 16] = (i % 16 * (7 + n) + i / 16 * 5 + i * i % 23) * 4 - 300;
    memcpy(copy, samples, sizeof samples);
    static Macroblock m;
    forward();
    const int32_t bytes = encode(&m, encoder);
    memset(samples, 0, sizeof samples), memset(low, 0, sizeof low);
    decode(&m, decoder);
    inverse();
    EXPECT(!memcmp(samples, copy, sizeof samples));
    printf("macroblock %d: 256 samples in %d bytes\n", n, (int)bytes);
  }
  free(encoder), free(decoder);
  return 0;
}
