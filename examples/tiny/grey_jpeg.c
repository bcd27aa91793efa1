/* grey_jpeg IN.pgm OUT.jpg: a complete baseline encoder of grey pictures in about 100 lines. Markers and loops are
 * the program's; everything between samples and bits is the library's. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "qelj.h"
#include "qelj_status.h"
#include "qelj_typical.h"

static uint8_t* put16(uint8_t* p, int value) { return *p++ = (uint8_t)(value >> 8), *p++ = (uint8_t)value, p; }

static uint8_t* putHuffman(uint8_t* p, int head, const uint8_t* bits, const uint8_t* vals, int count) {
  p = put16(p, 0xFFC4);
  p = put16(p, 19 + count);
  *p++ = (uint8_t)head;
  memcpy(p, bits, 16), memcpy(p + 16, vals, (size_t)count);
  return p + 16 + count;
}

/* Everything in front of the coded data. */
static uint8_t* putHeader(uint8_t* p, int width, int height, const uint8_t* quantiser) {
  static const uint8_t jfif[] = {'J', 'F', 'I', 'F', 0, 1, 2, 0, 0, 1, 0, 1, 0, 0};
  p = put16(p, 0xFFD8); /* SOI */
  p = put16(p, 0xFFE0), p = put16(p, 16), memcpy(p, jfif, sizeof jfif), p += sizeof jfif;
  p = put16(p, 0xFFDB), p = put16(p, 67), *p++ = 0, memcpy(p, quantiser, 64), p += 64; /* DQT */
  p = put16(p, 0xFFC0), p = put16(p, 11), *p++ = 8;                                    /* SOF0: 8 bits */
  p = put16(p, height), p = put16(p, width), *p++ = 1, *p++ = 1, *p++ = 0x11, *p++ = 0;
  p = putHuffman(p, 0x00, qelTypicalDcBits[0], qelTypicalDcVals, 12);
  p = putHuffman(p, 0x10, qelTypicalAcBits[0], qelTypicalAcVals[0], 162);
  p = put16(p, 0xFFDA), p = put16(p, 8), *p++ = 1, *p++ = 1, *p++ = 0; /* SOS: component 1, tables 0 */
  *p++ = 0, *p++ = 63, *p++ = 0;
  return p;
}

/* The 8x8 samples at (x, y), the picture's last column and row repeated beyond its edges. */
static void cutBlock(const uint8_t* picture, int width, int height, int x, int y, uint8_t block[64]) {
  for (int i = 0; i < 64; ++i) {
    const int column = x + i % 8 < width ? x + i % 8 : width - 1, row = y + i / 8 < height ? y + i / 8 : height - 1;
    block[i] = picture[(size_t)row * (size_t)width + (size_t)column];
  }
}

int main(int argc, char** argv) {
  int width = 0, height = 0, top = 0;
  FILE* in = argc == 3 ? fopen(argv[1], "rb") : 0;
  if (!in || fscanf(in, "P5 %d %d %d", &width, &height, &top) != 3 || fgetc(in) == EOF || top != 255 || width < 1 ||
      height < 1 || width > 65535 || height > 65535)
    return fprintf(stderr, "usage: grey_jpeg IN.pgm OUT.jpg (8-bit samples)\n"), 2;

  const size_t pixels = (size_t)width * (size_t)height;
  const size_t blocks = (size_t)((width + 7) / 8) * (size_t)((height + 7) / 8);
  const size_t room = 1024 + 570 + blocks * 512; /* a block takes 512 bytes at most; 570 ahead keep the coder fast */
  uint8_t* picture = malloc(pixels);
  uint8_t* file = malloc(room);
  if (!picture || !file || room > INT32_MAX || fread(picture, 1, pixels, in) != pixels)
    return fprintf(stderr, "%s can't be read\n", argv[1]), 1;

  uint8_t raw[64];
  uint16_t table[64];
  QelEncodeHuffmanSpec *dc = 0, *ac = 0;
  QelEncodeHuffmanState* state = 0;
  memcpy(raw, qelTypicalQuantisers[0], 64);
  QelStatus status = qeliQuantFwdRawTableInit_JPEG_8u(raw, 85);
  if (status >= 0) status = qeliQuantFwdTableInit_JPEG_8u16u(raw, table);
  if (status >= 0) status = qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalDcBits[0], qelTypicalDcVals, &dc);
  if (status >= 0) status = qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(qelTypicalAcBits[0], qelTypicalAcVals[0], &ac);
  if (status >= 0) status = qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&state);

  int32_t position = (int32_t)(putHeader(file, width, height, raw) - file);
  int16_t lastDC = 0;
  for (int y = 0; y < height; y += 8)
    for (int x = 0; x < width && status >= 0; x += 8) {
      uint8_t block[64];
      int16_t coefficients[64];
      const uint8_t* samples = picture + (size_t)y * (size_t)width + (size_t)x;
      int32_t step = width;
      if (x + 8 > width || y + 8 > height) {
        cutBlock(picture, width, height, x, y, block);
        samples = block, step = 8;
      }
      status = qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples, step, coefficients, table);
      if (status >= 0)
        status = qeliEncodeHuffman8x8_JPEG_16s1u_C1(coefficients, file, (int32_t)room, &position, &lastDC, dc, ac,
                                                    state, qelFlushNo);
    }
  if (status >= 0)
    status = qeliEncodeHuffman8x8_JPEG_16s1u_C1(0, file, (int32_t)room, &position, &lastDC, dc, ac, state, qelFlushYes);
  put16(file + position, 0xFFD9); /* EOI */

  FILE* out = status >= 0 ? fopen(argv[2], "wb") : 0;
  const int good = out && fwrite(file, 1, (size_t)position + 2, out) == (size_t)position + 2 && fclose(out) == 0;
  if (!good) fprintf(stderr, "%s can't be written (%s)\n", argv[2], qelStatusText(status));
  qeliEncodeHuffmanSpecFree_JPEG_8u(dc), qeliEncodeHuffmanSpecFree_JPEG_8u(ac),
      qeliEncodeHuffmanStateFree_JPEG_8u(state);
  free(picture), free(file), fclose(in);
  return !good;
}
