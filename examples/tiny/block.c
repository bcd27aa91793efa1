/* Encodes one 8x8 block of grey samples: transform, quantisation and Huffman code, into a buffer. */
#include <stdio.h>

#include "qelj.h"
#include "qelj_status.h"
#include "qelj_typical.h" /* the typical quantisers and Huffman lists of ISO/IEC 10918-1, Annex K */

int main(void) {
  uint8_t samples[64], raw[64], coded[570]; /* room for any block, so that the encoder takes its fast way */
  uint16_t table[64];
  int16_t coefficients[64], lastDC = 0;
  int32_t position = 0;
  QelEncodeHuffmanSpec *dc = 0, *ac = 0;
  QelEncodeHuffmanState* state = 0;
  for (int i = 0; i < 64; ++i) samples[i] = (uint8_t)(3 * (i % 8) + 5 * (i / 8)), raw[i] = qelTypicalQuantisers[0][i];

  QelStatus status = qeliQuantFwdRawTableInit_JPEG_8u(raw, 85); /* scale the quantiser to a quality */
  if (status >= 0) status = qeliQuantFwdTableInit_JPEG_8u16u(raw, table);
  if (status >= 0) status = qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalDcBits[0], qelTypicalDcVals, &dc);
  if (status >= 0) status = qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalAcBits[0], qelTypicalAcVals[0], &ac);
  if (status >= 0) status = qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&state);

  if (status >= 0) status = qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples, 8, coefficients, table);
  if (status >= 0)
    status = qeliEncodeHuffman8x8_JPEG_16s1u_C1(coefficients, coded, sizeof coded, &position, &lastDC, dc, ac, state,
                                                qelFlushNo);
  if (status >= 0)
    status = qeliEncodeHuffman8x8_JPEG_16s1u_C1(0, coded, sizeof coded, &position, &lastDC, dc, ac, state, qelFlushYes);
  printf("%s: 64 samples in %d bytes\n", qelStatusText(status), (int)position);

  qeliEncodeHuffmanSpecFree_JPEG_8u(dc); /* refuses a null pointer, and does nothing then */
  qeliEncodeHuffmanSpecFree_JPEG_8u(ac);
  qeliEncodeHuffmanStateFree_JPEG_8u(state);
  return status != qelStatusOk;
}
