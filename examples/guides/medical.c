/* Lossless JPEG of 16-bit samples, as medical pictures have them: differences, a table made for them, codes; and back. */
#include <string.h>

#include "check.h"

enum { width = 61, height = 40, room = 2 * ((31 * width + 7) / 8) * height + 64 };
enum { precision = 16, pointTransform = 0, predictor = qelPredictorLeft };

static uint16_t picture[height][width], again[height][width];
static int16_t differences[height][width];
static uint8_t data[room];

/* Samples of 16 bits are passed with the top bit flipped, and so is the first difference: then all predictors give the
 * standard's differences. With fewer bits neither is needed. */
static int16_t passed(uint16_t sample) { return (int16_t)(sample ^ 0x8000); }

static void differ(void) {
  int16_t rows[2][width];
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) rows[y % 2][x] = passed(picture[y][x]);
    if (y == 0) CALL(qeliDiffPredFirstRow_JPEG_16s_C1(rows[0], differences[0], width, precision, pointTransform));
    else CALL(qeliDiffPredRow_JPEG_16s_C1(rows[y % 2], rows[(y + 1) % 2], differences[y], width, predictor));
  }
  differences[0][0] = (int16_t)(differences[0][0] ^ INT16_MIN);
}

static void reconstruct(void) {
  int16_t rows[2][width];
  differences[0][0] = (int16_t)(differences[0][0] ^ INT16_MIN);
  for (int y = 0; y < height; ++y) {
    if (y == 0)
      CALL(qeliReconstructPredFirstRow_JPEG_16s_C1(differences[0], rows[0], width, precision, pointTransform));
    else CALL(qeliReconstructPredRow_JPEG_16s_C1(differences[y], rows[(y + 1) % 2], rows[y % 2], width, predictor));
    for (int x = 0; x < width; ++x) again[y][x] = (uint16_t)(rows[y % 2][x] ^ 0x8000);
  }
}

int main(void) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) picture[y][x] = (uint16_t)(1000 * x + 37 * y * y + (x * y * 7919) % 200);
  differ();

  /* The lists of a DHT segment that code these differences in the fewest bits. */
  int32_t counts[256] = {0};
  uint8_t bits[16], vals[256];
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) CALL(qeliGetHuffmanStatisticsOne_JPEG_16s_C1(&differences[y][x], counts));
  CALL(qeliEncodeHuffmanRawTableInit_JPEG_8u(counts, bits, vals));
  QelEncodeHuffmanSpec* encoder;
  QelDecodeHuffmanSpec* decoder;
  QelEncodeHuffmanState* e;
  QelDecodeHuffmanState* d;
  CALL(qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &encoder));
  CALL(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &decoder));
  CALL(qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&e));
  CALL(qeliDecodeHuffmanStateInitAlloc_JPEG_8u(&d));

  /* One component: an array of one plane and one table. */
  int32_t position = 0;
  const QelEncodeHuffmanSpec* const encoders[1] = {encoder};
  for (int y = 0; y < height; ++y) {
    const int16_t* const rows[1] = {differences[y]};
    CALL(qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, width, 1, data, room, &position, encoders, e, qelFlushNo));
  }
  CALL(qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(0, 0, 0, data, room, &position, 0, e, qelFlushYes));

  memset(differences, 0, sizeof differences);
  int32_t from = 0, marker = qelMarkerNone;
  const QelDecodeHuffmanSpec* const decoders[1] = {decoder};
  for (int y = 0; y < height; ++y) {
    int16_t* const rows[1] = {differences[y]};
    CALL(qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(data, position, &from, rows, width, 1, &marker, decoders, d));
  }
  reconstruct();
  EXPECT(!memcmp(picture, again, sizeof picture));
  printf("%d samples of 16 bits in %d bytes\n", width * height, (int)position);

  qeliEncodeHuffmanSpecFree_JPEG_8u(encoder), qeliDecodeHuffmanSpecFree_JPEG_8u(decoder);
  qeliEncodeHuffmanStateFree_JPEG_8u(e), qeliDecodeHuffmanStateFree_JPEG_8u(d);
  return 0;
}
