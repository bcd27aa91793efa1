/* A JPEG 2000 code-block: all passes coded, cut where a rate allows it, decoded at once and piece by piece. */
#include <string.h>

#include "check.h"

enum { width = 32, height = 32, magnitudeBits = 9, shift = 31 - magnitudeBits };

static int32_t samples[height][width], decoded[height][width], stepped[height][width];

/* The squared error, in the units of the lowest plane. */
static double squaredError(int32_t block[height][width]) {
  double sum = 0;
  for (int i = 0; i < width * height; ++i) {
    const int32_t s = samples[i / width][i % width], d = block[i / width][i % width];
    const double wanted = (double)(s & INT32_MAX) / (1 << shift), got = (double)(d & INT32_MAX) / (1 << shift);
    const double difference = (s < 0 ? -wanted : wanted) - (d < 0 ? -got : got);
    sum += difference * difference;
  }
  return sum;
}

int main(void) {
  /* Sign and magnitude, left-aligned: bit 31 is the sign. */
  for (int i = 0; i < width * height; ++i) {
    const int32_t v = (i * i % 397 - 198) / (1 + i % width / 4);
    samples[i / width][i % width] = (int32_t)((v < 0 ? 0x80000000u : 0) | (uint32_t)abs(v) << shift);
  }

  const QelSize size = {width, height};
  QelEncodeStateJPEG2K* encoder;
  int32_t planes, passes, segments;
  CALL(qeliEncodeInitAlloc_JPEG2K(&encoder, size));
  CALL(qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(samples[0], sizeof samples[0], size, encoder, qelSubbandHL, magnitudeBits,
                                              0, 0, 0, &planes, &passes, &segments));
  EXPECT(passes == 3 * (planes - shift) - 2 && segments == 1);

  /* All bytes, in as many calls as the buffers need. */
  uint8_t bytes[4096];
  int32_t length = 0, more = 1;
  while (more) {
    int32_t part = 100;
    CALL(qeliEncodeStoreBits_JPEG2K_1u(bytes + length, &part, encoder, &more));
    length += part;
  }

  /* Cut behind the last pass that fits into 300 bytes; what every pass brings, an allocator weighs by the distortion. */
  int32_t taken = 0, rate = 0;
  for (int32_t pass = 0, r; pass < passes; ++pass) {
    CALL(qeliEncodeGetRate_JPEG2K(encoder, pass, &r));
    if (r <= 300) taken = pass + 1, rate = r;
  }
  double gain, all;
  CALL(qeliEncodeGetDist_JPEG2K(encoder, taken - 1, &gain));
  CALL(qeliEncodeGetDist_JPEG2K(encoder, passes - 1, &all));
  EXPECT(taken > 0 && taken < passes && gain < all);

  int32_t bytesOfState;
  CALL(qeliDecodeGetBufSize_JPEG2K(size, &bytesOfState));
  uint8_t* const memory = malloc((size_t)bytesOfState);
  uint32_t lengths[1] = {(uint32_t)rate};
  CALL(qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(bytes, decoded[0], sizeof decoded[0], size, qelSubbandHL, (uint32_t)planes,
                                            (uint32_t)taken, lengths, 1, qelCodeStyleKeepMidPoint, 0, memory));
  printf("%d of %d passes in %d of %d bytes: squared error %.0f\n", (int)taken, (int)passes, (int)rate, (int)length,
         squaredError(decoded));
  EXPECT(squaredError(decoded) > 0);

  /* The same by the progressive decoder, whose samples always hold what is known. */
  QelDecodeStateJPEG2K* state;
  CALL(qeliDecodeCBProgrInitAlloc_JPEG2K(&state, size));
  CALL(qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(stepped[0], sizeof stepped[0], size, state, qelSubbandHL, planes, 0));
  CALL(qeliDecodeCBProgrSetPassCounter_JPEG2K(taken, state));
  CALL(qeliDecodeCBProgrStep_JPEG2K(bytes, rate, state));
  EXPECT(!memcmp(stepped, decoded, sizeof decoded));

  /* All passes: the samples. */
  lengths[0] = (uint32_t)length;
  CALL(qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(bytes, decoded[0], sizeof decoded[0], size, qelSubbandHL, (uint32_t)planes,
                                            (uint32_t)passes, lengths, 1, 0, 0, memory));
  EXPECT(squaredError(decoded) == 0);
  free(memory);
  CALL(qeliDecodeCBProgrFree_JPEG2K(state));
  CALL(qeliEncodeFree_JPEG2K(encoder));
  return 0;
}
