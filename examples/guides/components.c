/* The two component transforms of JPEG 2000: one that comes back to the bit, and one in floats. */
#include <math.h>
#include <string.h>

#include "check.h"

enum { width = 33, height = 5, samples = width * height };

int main(void) {
  int32_t planes[3][samples], copy[3][samples];
  float floats[3][samples], pixels[samples][3], back[samples][3];
  for (int i = 0; i < samples; ++i)
    for (int c = 0; c < 3; ++c) {
      planes[c][i] = copy[c][i] = (i * (7 + 5 * c) + 40 * c) % 256 - 128; /* the level shift is the caller's */
      pixels[i][c] = (float)planes[c][i];
    }

  /* Reversible, in place: R, G, B become Y, U, V. U and V need one bit more than the samples. */
  const QelSize size = {width, height};
  int32_t* const reversible[3] = {planes[0], planes[1], planes[2]};
  CALL(qeliRCTFwd_JPEG2K_32s_P3IR(reversible, width * 4, size));
  for (int i = 0; i < samples; ++i) {
    EXPECT(planes[0][i] == (copy[0][i] + 2 * copy[1][i] + copy[2][i]) >> 2);
    EXPECT(planes[1][i] == copy[2][i] - copy[1][i] && planes[2][i] == copy[0][i] - copy[1][i]);
  }
  CALL(qeliRCTInv_JPEG2K_32s_P3IR(reversible, width * 4, size));
  EXPECT(!memcmp(planes, copy, sizeof planes));

  /* Irreversible, from pixels to planes and back. */
  float* const irreversible[3] = {floats[0], floats[1], floats[2]};
  const float* const sources[3] = {floats[0], floats[1], floats[2]};
  CALL(qeliICTFwd_JPEG2K_32f_C3P3R(pixels[0], width * 12, irreversible, width * 4, size));
  CALL(qeliICTInv_JPEG2K_32f_P3C3R(sources, width * 4, back[0], width * 12, size));
  double far = 0;
  for (int i = 0; i < samples; ++i)
    for (int c = 0; c < 3; ++c) far = fmax(far, fabs((double)back[i][c] - (double)pixels[i][c]));
  printf("reversible: to the bit; irreversible: to within %.4f\n", far);
  return far > 0.01;
}
