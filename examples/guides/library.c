/* What a program asks the library before it begins, and how it treats statuses. */
#include <string.h>

#include "check.h"
#include "qelcore.h"

int main(void) {
  const QelLibVersion* const version = qeljGetLibVersion();
  const char* const image = qelGetImageName(version);
  printf("version %s, image %s, %d threads\n", version->versionText, image, (int)ownGetNumThreads());
  if (version->versionMajor != 7 || !qelCanRunImage(image)) return puts("this processor cannot run that image"), 1;

  /* Negative statuses are failures: nothing was written. Positive ones are warnings: the output is complete. */
  uint8_t raw[64] = {0}, nothing[64] = {0};
  uint16_t table[64];
  QelStatus status = qeliQuantFwdRawTableInit_JPEG_8u(raw, 0);
  EXPECT(status == qelStatusBadArg && !memcmp(raw, nothing, 64));
  status = qeliQuantFwdTableInit_JPEG_8u16u(raw, table);
  EXPECT(status == qelStatusZeroDivisorWarning && table[0] == 0xFFFF);
  printf("%d: %s\n", (int)status, qelStatusText(status));

  /* Records in memory of your own: any address, no release. */
  int32_t bytes;
  CALL(qeliDecodeHuffmanStateGetBufSize_JPEG_8u(&bytes));
  uint8_t memory[32];
  EXPECT(bytes == 24);
  void* const state = memory + 1;
  CALL(qeliDecodeHuffmanStateInit_JPEG_8u(state));

  /* Calls of this thread stay on it from here on. */
  const int32_t before = qelSetNumThreads(1);
  EXPECT(before == 0 && ownGetNumThreads() == 1);
  qelSetNumThreads(before);
  return 0;
}
