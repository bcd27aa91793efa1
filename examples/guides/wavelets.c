/* The 5/3 wavelet: two levels of a tile in place, and a row through the functions of rows, which extend nothing. */
#include <string.h>

#include "check.h"

enum { width = 19, height = 14, levels = 2 };

static int32_t tile[height][width], copy[height][width];

int main(void) {
  for (int i = 0; i < width * height; ++i) tile[i / width][i % width] = copy[i / width][i % width] = i * i % 509 - 254;

  /* The tile's place on the reference grid; each level works on the low-low band of the one before. */
  QelRect areas[levels + 1] = {{3, 0, width, height}};
  int32_t bytes = 0;
  CALL(qeliWTGetBufSize_B53_JPEG2K_32s_C1IR(&areas[0], &bytes)); /* the first level's is the largest */
  uint8_t* const buffer = malloc((size_t)bytes);
  for (int level = 0; level < levels; ++level) {
    const QelRect area = areas[level];
    CALL(qeliWTFwd_B53_JPEG2K_32s_C1IR(tile[0], sizeof tile[0], &area, buffer));
    /* Coordinates are halved, rounding up: a line from p has its low samples at (p + 1) / 2 and on. */
    const int32_t x = (area.x + 1) / 2, y = (area.y + 1) / 2;
    const QelRect low = {x, y, (area.x + area.width + 1) / 2 - x, (area.y + area.height + 1) / 2 - y};
    areas[level + 1] = low;
  }
  EXPECT(areas[1].width == 9 && areas[1].height == 7); /* odd origin: ten high samples, nine low ones */
  for (int level = levels; level-- > 0;)
    CALL(qeliWTInv_B53_JPEG2K_32s_C1IR(tile[0], sizeof tile[0], &areas[level], buffer));
  EXPECT(!memcmp(tile, copy, sizeof tile));
  free(buffer);

  /* A row of 16 samples, phase 0, with room for what is read beyond it: x[-2] to x[16], mirrored at the ends. */
  enum { n = 16, w = n / 2 };
  int32_t line[2 + n + 1], low[w], high[w];
  int32_t* const x = line + 2;
  for (int k = 0; k < n; ++k) x[k] = copy[1][k];
  x[-1] = x[1], x[-2] = x[2], x[n] = x[n - 2];
  const QelSize size = {w, 1};
  CALL(qeliWTFwdRow_B53_JPEG2K_32s_C1R(x, sizeof line, low, sizeof low, high, sizeof high, size, qelPhaseEven));

  /* The same by the formula. */
  for (int k = 0; k < w; ++k) EXPECT(high[k] == x[2 * k + 1] - ((x[2 * k] + x[2 * k + 2]) >> 1));
  EXPECT(low[1] == x[2] + ((high[0] + high[1] + 2) >> 2));
  EXPECT(low[0] == x[0] + ((high[0] + high[0] + 2) >> 2)); /* the high sample left of the first is its mirror image */
  puts("two levels came back to the bit");
  return 0;
}
