/* Blocks of one component in four scans of a progressive image, each with tables made for it, and back. */
#include <string.h>

#include "check.h"

enum { blocks = 40, room = 65536 };

static int16_t source[blocks][64], back[blocks][64];
static uint8_t data[room];

/* A table from counts: the two lists of a DHT segment, then the records. */
static void makeTables(const int32_t* counts, QelEncodeHuffmanSpec** encoder, QelDecodeHuffmanSpec** decoder) {
  uint8_t bits[16], vals[256];
  CALL(qeliEncodeHuffmanRawTableInit_JPEG_8u(counts, bits, vals));
  CALL(qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, encoder));
  CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, decoder));
}

/* DC: all but the lowest bit first, then that. */
static int32_t codeDC(QelEncodeHuffmanState* e, QelDecodeHuffmanState* d) {
  int32_t counts[256] = {0}, position = 0, marker = 0;
  int16_t lastDC = 0;
  QelEncodeHuffmanSpec* encoder;
  QelDecodeHuffmanSpec* decoder;
  for (int b = 0; b < blocks; ++b) CALL(qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(source[b], counts, &lastDC, 1));
  makeTables(counts, &encoder, &decoder);

  lastDC = 0;
  for (int b = 0; b < blocks; ++b)
    CALL(qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(source[b], data, room, &position, &lastDC, 1, encoder, e,
                                                    qelFlushNo));
  CALL(qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(0, data, room, &position, 0, 1, encoder, e, qelFlushYes));
  const int32_t refinement = position;
  for (int b = 0; b < blocks; ++b)
    CALL(qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(source[b], data, room, &position, 0, e, qelFlushNo));
  CALL(qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(0, data, room, &position, 0, e, qelFlushYes));

  int32_t from = 0;
  lastDC = 0;
  CALL(qeliDecodeHuffmanStateInit_JPEG_8u(d));
  for (int b = 0; b < blocks; ++b)
    CALL(qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(data, refinement, &from, back[b], &lastDC, &marker, 1, decoder, d));
  from = refinement;
  CALL(qeliDecodeHuffmanStateInit_JPEG_8u(d)); /* a scan begins anew */
  for (int b = 0; b < blocks; ++b)
    CALL(qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(data, position, &from, back[b], &marker, 0, d));
  qeliEncodeHuffmanSpecFree_JPEG_8u(encoder), qeliDecodeHuffmanSpecFree_JPEG_8u(decoder);
  return position;
}

/* A band: its first scan with al 1, then the refinement to al 0. The state carries runs of blocks that have ended. */
static int32_t codeBand(QelEncodeHuffmanState* e, QelDecodeHuffmanState* d, int32_t ss, int32_t se) {
  int32_t total = 0, marker = 0;
  for (int al = 1; al >= 0; --al) {
    const int refine = al == 0;
    int32_t counts[256] = {0}, position = 0, from = 0;
    QelEncodeHuffmanSpec* encoder;
    QelDecodeHuffmanSpec* decoder;
    for (int b = 0; b <= blocks; ++b) /* one call more, for the run that is pending */
      CALL(
          (refine ? qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 : qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)(
              b < blocks ? source[b] : 0, counts, ss, se, (uint32_t)al, e, b == blocks));
    makeTables(counts, &encoder, &decoder);
    for (int b = 0; b <= blocks; ++b)
      CALL((refine ? qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1 : qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1)(
          b < blocks ? source[b] : 0, data, room, &position, ss, se, (uint32_t)al, encoder, e, b == blocks));
    CALL(qeliDecodeHuffmanStateInit_JPEG_8u(d));
    for (int b = 0; b < blocks; ++b)
      CALL((refine ? qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1 : qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1)(
          data, position, &from, back[b], &marker, ss, se, (uint32_t)al, decoder, d));
    qeliEncodeHuffmanSpecFree_JPEG_8u(encoder), qeliDecodeHuffmanSpecFree_JPEG_8u(decoder);
    total += position;
  }
  return total;
}

int main(void) {
  for (int b = 0; b < blocks; ++b)
    for (int i = 0; i < (b % 5 ? 9 : 1); ++i) source[b][i * 6 % 64] = (int16_t)((b * 17 + i * 29) % 41 - 20);
  QelEncodeHuffmanState* e;
  QelDecodeHuffmanState* d;
  CALL(qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&e));
  CALL(qeliDecodeHuffmanStateInitAlloc_JPEG_8u(&d));
  const int32_t bytes = codeDC(e, d) + codeBand(e, d, 1, 5) + codeBand(e, d, 6, 63);
  EXPECT(!memcmp(source, back, sizeof source));
  printf("%d blocks in %d bytes\n", blocks, (int)bytes);
  qeliEncodeHuffmanStateFree_JPEG_8u(e), qeliDecodeHuffmanStateFree_JPEG_8u(d);
  return 0;
}
