/* Rows of a TIFF: PackBits to and from, with the byte that guards a hostile strip; and the byte planes of samples. */
#include <string.h>

#include "check.h"

int main(void) {
  const uint8_t row[12] = {7, 7, 7, 7, 7, 1, 2, 3, 9, 9, 9, 9};
  const uint8_t tokens[8] = {(uint8_t)(1 - 5), 7, 3 - 1, 1, 2, 3, (uint8_t)(1 - 4), 9};
  uint8_t packed[sizeof row + 1 + 1]; /* a row of n bytes takes n + ceil(n / 128) at most; one more for the guard */
  uint8_t unpacked[sizeof row];

  uint32_t end = 0;
  CALL(qeliPackBitsRow_TIFF_8u_C1(row, sizeof row, packed, &end, sizeof packed - 1));
  EXPECT(end == sizeof tokens && !memcmp(packed, tokens, sizeof tokens));

  uint32_t position = 0;
  CALL(qeliUnpackBitsRow_TIFF_8u_C1(packed, &position, (int32_t)end, unpacked, sizeof unpacked));
  EXPECT(position == end && !memcmp(unpacked, row, sizeof row));

  /* A strip that ends inside a run. The value would be read one byte behind it: -128, which is no token, stands there and
   * is counted. A token that takes it leaves the position at the end. */
  end -= 1;
  packed[end] = (uint8_t)-128;
  position = 0;
  const QelStatus status = qeliUnpackBitsRow_TIFF_8u_C1(packed, &position, (int32_t)end + 1, unpacked, sizeof unpacked);
  EXPECT(status == qelStatusOk && position == end + 1); /* the row is full, and was cut short */

  const uint16_t samples[5] = {0x0102, 0x0203, 0xFFFE, 0x8000, 0x00FF};
  uint8_t high[5], low[5];
  uint16_t joined[5];
  uint8_t* const planes[2] = {high, low};
  const uint8_t* const sources[2] = {high, low};
  CALL(qeliSplitRow_TIFF_16u8u_C1(samples, planes, 5));
  EXPECT(high[2] == 0xFF && low[2] == 0xFE);
  CALL(qeliJoinRow_TIFF_8u16u_C1(sources, joined, 5));
  EXPECT(!memcmp(samples, joined, sizeof samples));
  puts("12 bytes in 8");
  return 0;
}
