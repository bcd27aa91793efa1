/* Encodes one 8x8 block of grey samples: transform, quantisation and Huffman code, into a buffer. */
#include <stdio.h>

#include "qelj.h"
#include "typical.h" /* the typical quantiser and Huffman lists of ISO/IEC 10918-1, Annex K */

int main(void) {
  uint8_t samples[64], raw[64], coded[512];
  uint16_t table[64];
  int16_t coefficients[64], lastDC = 0;
  int32_t position = 0;
  QelEncodeHuffmanSpec *dc, *ac;
  QelEncodeHuffmanState* state;
  for (int i = 0; i < 64; ++i) samples[i] = (uint8_t)(3 * (i % 8) + 5 * (i / 8)), raw[i] = typicalLuminance[i];

  qeliQuantFwdRawTableInit_JPEG_8u(raw, 85); /* scale the quantiser to a quality */
  qeliQuantFwdTableInit_JPEG_8u16u(raw, table);
  qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(typicalDcBits, typicalDcVals, &dc);
  qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(typicalAcBits, typicalAcVals, &ac);
  qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&state);

  qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples, 8, coefficients, table);
  QelStatus status = qeliEncodeHuffman8x8_JPEG_16s1u_C1(coefficients, coded, sizeof coded, &position, &lastDC, dc, ac,
                                                        state, 0);
  qeliEncodeHuffman8x8_JPEG_16s1u_C1(0, coded, sizeof coded, &position, &lastDC, dc, ac, state, 1); /* flush */
  printf("status %d, 64 samples in %d bytes\n", (int)status, (int)position);

  qeliEncodeHuffmanSpecFree_JPEG_8u(dc);
  qeliEncodeHuffmanSpecFree_JPEG_8u(ac);
  qeliEncodeHuffmanStateFree_JPEG_8u(state);
  return status != qelStatusOk;
}
