/* The same bytes again: with another number of threads, in pieces, and in another rounding mode. */
#include <fenv.h>
#include <string.h>

#include "check.h"
#include "qelcore.h"

enum { width = 203, height = 97 };

static uint8_t rgb[height][width][3];

typedef struct Planes {
  uint8_t sample[3][height][width];
} Planes;

/* Columns x0 to x1 of the picture. */
static void convert(Planes* planes, int x0, int x1) {
  uint8_t* const dst[3] = {&planes->sample[0][0][x0], &planes->sample[1][0][x0], &planes->sample[2][0][x0]};
  const QelSize size = {x1 - x0, height};
  CALL(qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb[0][x0], sizeof rgb[0], dst, width, size));
}

int main(void) {
  static Planes whole, again;
  for (int i = 0; i < width * height; ++i)
    for (int c = 0; c < 3; ++c) rgb[i / width][i % width][c] = (uint8_t)(i * (i + c) % 251);
  convert(&whole, 0, width);

  qelSetNumThreads(2);
  convert(&again, 0, width);
  EXPECT(!memcmp(&whole, &again, sizeof whole));

  /* Functions without 32f in their name don't look at the rounding mode. */
  fesetround(FE_UPWARD);
  convert(&again, 0, width);
  EXPECT(!memcmp(&whole, &again, sizeof whole) && fegetround() == FE_UPWARD);
  fesetround(FE_TONEAREST);

  /* Pieces, cut at multiples of 8 pixels. */
  convert(&again, 0, 64);
  convert(&again, 64, 184);
  convert(&again, 184, width);
  EXPECT(!memcmp(&whole, &again, sizeof whole));

  /* Cut elsewhere, the last pixels of a piece have the arithmetic of a row's end: some differ by one. */
  convert(&again, 0, 103);
  convert(&again, 103, width);
  int differ = 0;
  for (int p = 0; p < 3; ++p)
    for (int i = 0; i < width * height; ++i) {
      const int d = abs(whole.sample[p][i / width][i % width] - again.sample[p][i / width][i % width]);
      EXPECT(d <= 1);
      differ += d;
    }
  printf("cut at column 103, %d of %zu samples differ by one\n", differ, sizeof whole);
  return differ == 0;
}
