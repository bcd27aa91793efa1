/* RGB to planes of 4:2:0 and back: by the conversions of planes, and with smooth chroma by the triangle filter. */
#include <string.h>

#include "check.h"

enum { width = 37, height = 21 }; /* odd on purpose */
enum {
  evenWidth = (width + 1) & ~1,
  evenHeight = (height + 1) & ~1,
  halfWidth = evenWidth / 2,
  halfHeight = evenHeight / 2
};

/* The picture, its last column and row repeated to even sizes. */
static uint8_t rgb[evenHeight][evenWidth][3], flat[evenHeight][evenWidth][3], smooth[evenHeight][evenWidth][3];
static uint8_t luma[evenHeight][evenWidth], wide[2][evenHeight][evenWidth];

/* Chroma with a border of one sample on every side, which up-sampling of planes reads. */
enum { border = 1, chromaStep = halfWidth + 2 * border };
static uint8_t chroma[2][halfHeight + 2 * border][chromaStep];

static void repeatEdges(uint8_t plane[halfHeight + 2 * border][chromaStep]) {
  for (int y = border; y < halfHeight + border; ++y) {
    plane[y][0] = plane[y][border];
    plane[y][chromaStep - 1] = plane[y][chromaStep - 1 - border];
  }
  memcpy(plane[0], plane[border], chromaStep);
  memcpy(plane[halfHeight + border], plane[halfHeight], chromaStep);
}

static double squaredError(uint8_t picture[evenHeight][evenWidth][3]) {
  double sum = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 3; ++c) {
        const int d = picture[y][x][c] - rgb[y][x][c];
        sum += d * d;
      }
  return sum / (width * height * 3);
}

int main(void) {
  for (int y = 0; y < evenHeight; ++y)
    for (int x = 0; x < evenWidth; ++x) {
      const int column = x < width ? x : width - 1, row = y < height ? y : height - 1;
      rgb[y][x][0] = (uint8_t)(6 * column), rgb[y][x][1] = (uint8_t)(120 + 4 * row),
      rgb[y][x][2] = (uint8_t)(255 - 6 * column);
    }

  /* Down. Each plane has a step of its own; chroma begins behind its border. */
  const QelSize size = {evenWidth, evenHeight};
  uint8_t* const planes[3] = {luma[0], &chroma[0][border][border], &chroma[1][border][border]};
  const int32_t steps[3] = {evenWidth, chromaStep, chromaStep};
  CALL(qeliRGBToYCbCr411_JPEG_8u_C3P3R(rgb[0][0], sizeof rgb[0], planes, steps, size));

  /* Up, each chroma sample serving its four pixels as it is. */
  const uint8_t* sources[3] = {luma[0], &chroma[0][border][border], &chroma[1][border][border]};
  CALL(qeliYCbCr411ToRGB_JPEG_8u_P3C3R(sources, steps, flat[0][0], sizeof flat[0], size));

  /* Up by the triangle filter. It reads a sample beside each row, a row above and one below: the border. */
  const QelSize half = {halfWidth, halfHeight};
  for (int c = 0; c < 2; ++c) {
    repeatEdges(chroma[c]);
    CALL(qeliSampleUpH2V2_JPEG_8u_C1R(&chroma[c][border][border], chromaStep, half, wide[c][0], evenWidth, size));
    sources[1 + c] = wide[c][0];
  }
  CALL(qeliYCbCrToRGB_JPEG_8u_P3C3R(sources, evenWidth, smooth[0][0], sizeof smooth[0], size));

  printf("mean squared error: %.2f with chroma repeated, %.2f with the triangle filter\n", squaredError(flat),
         squaredError(smooth));
  EXPECT(squaredError(smooth) < squaredError(flat));

  /* The functions of rows have an edge rule instead, the same, and read nothing outside. Odd output rows have the next row for
   * the far one, even ones the row before. */
  uint8_t row[evenWidth];
  const uint8_t* near = &chroma[0][border + 2][border];
  CALL(qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(near, near + chromaStep, halfWidth, row));
  EXPECT(!memcmp(row, wide[0][5], evenWidth));

  /* An odd width given as it is: the last column is left out, and a warning says so. */
  const QelSize odd = {width, evenHeight};
  EXPECT(qeliRGBToYCbCr411_JPEG_8u_C3P3R(rgb[0][0], sizeof rgb[0], planes, steps, odd) == qelStatusOddSizeWarning);
  return 0;
}
