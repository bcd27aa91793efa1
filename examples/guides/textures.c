/* A texture for a game's build: mipmaps, each in the format that its pixels ask for, in bands that threads may share. */
#include <math.h>
#include <string.h>

#include "check.h"

enum { width = 80, height = 52 };

static uint8_t level[width * height * 4], blocks[width * height], again[width * height], decoded[width * height * 4];

static size_t bytesOfLevel(QelSize size, size_t block) {
  return (size_t)((size.width + 3) / 4) * (size_t)((size.height + 3) / 4) * block;
}

static int isOpaque(const uint8_t* rgba, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i)
    if (rgba[4 * i + 3] != 255) return 0;
  return 1;
}

/* Half of the size: the mean of 2x2 pixels, the last ones repeated where a side is odd. In place. */
static QelSize halve(uint8_t* rgba, QelSize size) {
  const QelSize half = {size.width > 1 ? size.width / 2 : 1, size.height > 1 ? size.height / 2 : 1};
  for (int y = 0; y < half.height; ++y)
    for (int x = 0; x < half.width; ++x)
      for (int c = 0; c < 4; ++c) {
        const int x1 = 2 * x + 1 < size.width ? 2 * x + 1 : size.width - 1, x0 = 2 * x < x1 ? 2 * x : x1;
        const int y1 = 2 * y + 1 < size.height ? 2 * y + 1 : size.height - 1, y0 = 2 * y < y1 ? 2 * y : y1;
        rgba[4 * (y * half.width + x) + c] =
            (uint8_t)((rgba[4 * (y0 * size.width + x0) + c] + rgba[4 * (y0 * size.width + x1) + c] +
                       rgba[4 * (y1 * size.width + x0) + c] + rgba[4 * (y1 * size.width + x1) + c] + 2) /
                      4);
      }
  return half;
}

static double psnr(const uint8_t* a, const uint8_t* b, size_t samples) {
  double sum = 0;
  for (size_t i = 0; i < samples; ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum > 0 ? 10 * log10(255.0 * 255.0 * (double)samples / sum) : 99;
}

int main(void) {
  for (int i = 0; i < width * height; ++i) {
    const int x = i % width, y = i / width;
    level[4 * i] = (uint8_t)(3 * x), level[4 * i + 1] = (uint8_t)(4 * y), level[4 * i + 2] = (uint8_t)(255 - x - y);
    level[4 * i + 3] = (uint8_t)(x < 60 ? 255 : 255 - 12 * (x - 60));
  }

  /* BC7 and DXT5 take a byte a pixel, DXT1 half of one. */
  size_t total = 0;
  for (QelSize size = {width, height};; size = halve(level, size)) {
    const size_t pixels = (size_t)size.width * (size_t)size.height;
    const int32_t step = 4 * size.width;
    CALL(qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(level, step, size, blocks));
    CALL(qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blocks, decoded, step, size));
    const double best = psnr(level, decoded, 4 * pixels);
    const int opaque = isOpaque(level, pixels);
    if (opaque) {
      CALL(qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(level, step, size, blocks));
      CALL(qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(blocks, decoded, step, size));
    } else {
      CALL(qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(level, step, size, blocks));
      CALL(qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R(blocks, decoded, step, size));
    }
    const double fast = psnr(level, decoded, 4 * pixels);
    printf("%2d x %2d: BC7 %.1f dB, %s %.1f dB\n", (int)size.width, (int)size.height, best, opaque ? "DXT1" : "DXT5",
           fast);
    EXPECT(size.width < 20 || (best > 36 && fast > 27));
    total += bytesOfLevel(size, 16);
    if (size.width == width) {
      /* Bands of whole block rows give the bytes of the whole picture: one call a thread. */
      for (int32_t y = 0; y < height; y += 16) {
        const QelSize band = {width, height - y < 16 ? height - y : 16};
        CALL(qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(level + (size_t)y * (size_t)step, step, band,
                                                          again + (size_t)(y / 4) * (width / 4) * 16));
      }
      EXPECT(!memcmp(blocks, again, bytesOfLevel(size, 16)));
    }
    if (size.width == 1 && size.height == 1) break;
  }
  printf("all levels in %zu bytes of BC7\n", total);
  return 0;
}
