/* The forward DCT beside its definition (ISO/IEC 10918-1, A.3.3), and an image at half of its size. */
#include <math.h>

#include "check.h"

static const double pi = 3.14159265358979323846;

static double definition(uint8_t samples[8][8], int v, int u) {
  double sum = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      sum += (samples[y][x] - 128) * cos((2 * x + 1) * u * pi / 16) * cos((2 * y + 1) * v * pi / 16);
  return sum / 4 * (u ? 1 : sqrt(0.5)) * (v ? 1 : sqrt(0.5));
}

int main(void) {
  uint8_t samples[8][8], raw[64], back[8][8], half[4][4];
  uint16_t forward[64], inverse[64];
  int16_t coefficients[8][8];
  for (int i = 0; i < 64; ++i) samples[i / 8][i % 8] = (uint8_t)(40 + 17 * (i % 8) + i * i % 53), raw[i] = 3;
  CALL(qeliQuantFwdTableInit_JPEG_8u16u(raw, forward)); /* 32768 / 3, rounded */
  CALL(qeliQuantInvTableInit_JPEG_8u16u(raw, inverse)); /* 3 */

  CALL(qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples[0], 8, coefficients[0], forward));
  for (int v = 0; v < 8; ++v)
    for (int u = 0; u < 8; ++u) EXPECT(fabs(coefficients[v][u] - definition(samples, v, u) / 3) < 1);

  CALL(qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(coefficients[0], back[0], 8, inverse));
  for (int i = 0; i < 64; ++i) EXPECT(abs(back[i / 8][i % 8] - samples[i / 8][i % 8]) <= 6);

  /* A block of 4x4 samples is the mean of 2x2 each, but for rounding. */
  CALL(qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(coefficients[0], half[0], 4, inverse));
  for (int i = 0; i < 16; ++i) {
    const int y = i / 4 * 2, x = i % 4 * 2;
    const int mean = (back[y][x] + back[y][x + 1] + back[y + 1][x] + back[y + 1][x + 1] + 2) / 4;
    EXPECT(abs(half[i / 4][i % 4] - mean) <= 2);
  }
  puts("a coefficient is within one of the definition's");
  return 0;
}
