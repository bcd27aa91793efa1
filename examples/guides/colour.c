/* RGB pixels to planes Y, Cb, Cr and back; and the arithmetic of the header, pixel by pixel. */
#include <string.h>

#include "check.h"

enum { width = 19, height = 2 };

static int clamped(int x) { return x < 0 ? 0 : x > 255 ? 255 : x; }

int main(void) {
  uint8_t rgb[height][width * 3], y[height][width], cb[height][width], cr[height][width], back[height][width * 3];
  for (int i = 0; i < (int)sizeof rgb; ++i) rgb[i / (width * 3)][i % (width * 3)] = (uint8_t)(i * 37 + i / 3 * 11);

  const QelSize size = {width, height};
  uint8_t* const planes[3] = {y[0], cb[0], cr[0]};
  CALL(qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb[0], width * 3, planes, width, size));

  /* Form A on whole groups of 8 pixels, form B behind them: 15 and 14 fractional bits of the same weights. */
  for (int i = 0; i < height * width; ++i) {
    const int x = i % width, row = i / width;
    const int r = rgb[row][3 * x], g = rgb[row][3 * x + 1], b = rgb[row][3 * x + 2];
    const int main_part = x < width - width % 8;
    EXPECT(y[row][x] == (main_part ? (9798 * r + 19235 * g + 3736 * b + 16266) >> 15
                                   : (4899 * r + 9617 * g + 1868 * b + 8192) >> 14));
    EXPECT(cb[row][x] == clamped((main_part ? (-5529 * r - 10855 * g + 16384 * b + 16384) >> 15
                                            : (-2764 * r - 5428 * g + 8192 * b + 8192) >> 14) +
                                 128));
  }

  /* Back: rounding errors of the two directions add up. A colour comes back to within a few units. */
  const uint8_t* const sources[3] = {y[0], cb[0], cr[0]};
  CALL(qeliYCbCrToRGB_JPEG_8u_P3C3R(sources, width, back[0], width * 3, size));
  int far = 0;
  for (int row = 0; row < height; ++row)
    for (int x = 0; x < width * 3; ++x) {
      const int d = abs(back[row][x] - rgb[row][x]);
      far = d > far ? d : far;
    }
  printf("a round trip changes samples by %d at most\n", far);
  return far > 3;
}
