/* A baseline scan of colour MCUs (4:2:0) with restart intervals: coded, decoded, and decoded again with a damaged
 * segment. */
#include <string.h>

#include "check.h"
#include "qelj_typical.h"

enum { mcus = 12, interval = 4, blocksPerMcu = 6, room = 16384 };
static const int component[blocksPerMcu] = {0, 0, 0, 0, 1, 2};

static QelDecodeHuffmanSpec *dcTables[2], *acTables[2]; /* luminance, chrominance */
static QelDecodeHuffmanState* state;

/* Where the next marker's 0xFF stands, or length. */
static int32_t nextMarker(const uint8_t* data, int32_t length, int32_t position) {
  for (; position + 1 < length; ++position)
    if (data[position] == 0xFF && data[position + 1] != 0 && data[position + 1] != 0xFF) return position;
  return length;
}

/* Decodes a scan; returns the number of damaged segments, whose blocks are as far as they came. */
static int decodeScan(const uint8_t* data, int32_t length, int16_t (*blocks)[64]) {
  int damaged = 0;
  int32_t position = 0;
  for (int first = 0; first < mcus; first += interval) {
    /* Nothing is carried over a restart: predictions, marker and pending bits begin anew. */
    int16_t lastDC[3] = {0, 0, 0};
    int32_t marker = qelMarkerNone;
    CALL(qeliDecodeHuffmanStateInit_JPEG_8u(state));

    /* The number of blocks ends a segment, not a marker, which may be seen early or not at all. */
    QelStatus status = qelStatusOk;
    const int last = first + interval < mcus ? first + interval : mcus;
    for (int b = first * blocksPerMcu; b < last * blocksPerMcu && status >= 0; ++b) {
      const int c = component[b % blocksPerMcu];
      status = qeliDecodeHuffman8x8_JPEG_1u16s_C1(data, length, &position, blocks[b], &lastDC[c], &marker,
                                                  dcTables[c > 0], acTables[c > 0], state);
    }
    damaged += status < 0;

    /* The marker is behind us if it was met; else it is still ahead. Others than the expected one are bytes of a
     * damaged segment. */
    const int expected = last < mcus ? qelMarkerRst0 + first / interval % 8 : qelMarkerEoi;
    while (marker != expected && position < length) {
      position = nextMarker(data, length, position);
      if (position < length) marker = data[position + 1], position += 2;
    }
  }
  return damaged;
}

static int32_t encodeScan(int16_t (*blocks)[64], uint8_t* data) {
  QelEncodeHuffmanSpec *dc[2], *ac[2];
  QelEncodeHuffmanState* encoder;
  for (int t = 0; t < 2; ++t) {
    CALL(qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalDcBits[t], qelTypicalDcVals, &dc[t]));
    CALL(qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalAcBits[t], qelTypicalAcVals[t], &ac[t]));
  }
  CALL(qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&encoder));
  int32_t position = 0;
  int16_t lastDC[3] = {0, 0, 0};
  for (int m = 0; m < mcus; ++m) {
    for (int b = 0; b < blocksPerMcu; ++b) {
      const int c = component[b];
      CALL(qeliEncodeHuffman8x8_JPEG_16s1u_C1(blocks[m * blocksPerMcu + b], data, room, &position, &lastDC[c],
                                              dc[c > 0], ac[c > 0], encoder, qelFlushNo));
    }
    if ((m + 1) % interval && m + 1 < mcus) continue;
    CALL(qeliEncodeHuffman8x8_JPEG_16s1u_C1(0, data, room, &position, 0, 0, 0, encoder, qelFlushYes));
    memset(lastDC, 0, sizeof lastDC);
    data[position++] = 0xFF;
    data[position++] = (uint8_t)(m + 1 < mcus ? qelMarkerRst0 + m / interval % 8 : qelMarkerEoi);
  }
  for (int t = 0; t < 2; ++t) qeliEncodeHuffmanSpecFree_JPEG_8u(dc[t]), qeliEncodeHuffmanSpecFree_JPEG_8u(ac[t]);
  qeliEncodeHuffmanStateFree_JPEG_8u(encoder);
  return position;
}

int main(void) {
  static int16_t blocks[mcus * blocksPerMcu][64], back[mcus * blocksPerMcu][64];
  static uint8_t data[room];
  for (int b = 0; b < mcus * blocksPerMcu; ++b)
    for (int i = 0; i < 12; ++i) blocks[b][i * 5] = (int16_t)((b * 13 + i * 7) % 19 - 9);
  const int32_t length = encodeScan(blocks, data);

  for (int t = 0; t < 2; ++t) {
    CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalDcBits[t], qelTypicalDcVals, &dcTables[t]));
    CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalAcBits[t], qelTypicalAcVals[t], &acTables[t]));
  }
  CALL(qeliDecodeHuffmanStateInitAlloc_JPEG_8u(&state));
  EXPECT(decodeScan(data, length, back) == 0);
  EXPECT(!memcmp(blocks, back, sizeof blocks));

  /* The second segment is damaged: the others are not. */
  const int32_t second = nextMarker(data, length, 0) + 2;
  memset(data + second + 20, 0xFF, 40);
  memset(back, 0, sizeof back);
  EXPECT(decodeScan(data, length, back) == 1);
  enum { segment = interval * blocksPerMcu };
  EXPECT(!memcmp(blocks, back, segment * sizeof *blocks));
  EXPECT(memcmp(blocks[segment], back[segment], segment * sizeof *blocks));
  EXPECT(!memcmp(blocks[2 * segment], back[2 * segment], segment * sizeof *blocks));
  printf("%d bytes; a damaged segment costs its own MCUs only\n", (int)length);
  for (int t = 0; t < 2; ++t)
    qeliDecodeHuffmanSpecFree_JPEG_8u(dcTables[t]), qeliDecodeHuffmanSpecFree_JPEG_8u(acTables[t]);
  qeliDecodeHuffmanStateFree_JPEG_8u(state);
  return 0;
}
