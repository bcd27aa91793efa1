/* One MCU of 4:2:0, 16x16 pixels, to quantised blocks and back to pixels. */
#include <stdalign.h>
#include <string.h>

#include "check.h"
#include "qelj_typical.h"

/* Four blocks of luma, one each of Cb and Cr, on 16-byte boundaries: some conversions give other values elsewhere. */
static alignas(16) int16_t blocks[6][64];

int main(void) {
  uint8_t pixels[16][16][3], back[16][16][3];
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x)
      pixels[y][x][0] = (uint8_t)(12 * x), pixels[y][x][1] = (uint8_t)(100 + 4 * y),
      pixels[y][x][2] = (uint8_t)(8 * (x + y) / 2);

  /* A luminance and a chrominance quantiser at quality 90, in both forms. */
  uint16_t forward[2][64], inverse[2][64];
  for (int t = 0; t < 2; ++t) {
    uint8_t raw[64];
    memcpy(raw, qelTypicalQuantisers[t], 64);
    CALL(qeliQuantFwdRawTableInit_JPEG_8u(raw, 90));
    CALL(qeliQuantFwdTableInit_JPEG_8u16u(raw, forward[t]));
    CALL(qeliQuantInvTableInit_JPEG_8u16u(raw, inverse[t]));
  }

  int16_t* const planes[3] = {blocks[0], blocks[4], blocks[5]};
  CALL(qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R(pixels[0][0], sizeof pixels[0], planes));
  for (int b = 0; b < 6; ++b) CALL(qeliDCTQuantFwd8x8_JPEG_16s_C1I(blocks[b], forward[b >= 4]));

  /* Here the blocks would be coded, in this order: Y Y Y Y Cb Cr. */
  for (int b = 0; b < 6; ++b) CALL(qeliDCTQuantInv8x8_JPEG_16s_C1I(blocks[b], inverse[b >= 4]));
  const int16_t* const sources[3] = {blocks[0], blocks[4], blocks[5]};
  CALL(qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R(sources, back[0][0], sizeof back[0]));

  double sum = 0;
  for (int i = 0; i < 16 * 16 * 3; ++i) {
    const int d = pixels[i / 48][i / 3 % 16][i % 3] - back[i / 48][i / 3 % 16][i % 3];
    sum += d * d;
  }
  printf("mean squared error %.1f\n", sum / sizeof pixels);
  return sum / sizeof pixels > 60;
}
