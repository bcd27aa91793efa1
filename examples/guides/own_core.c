/* A program that brings its own core library: memory from a region of its own, of a size that it has set aside, and its
 * own say in threads. All five functions are replaced; libqelcore's, which is linked as ever, are not used. */
#include "check.h"
#include "qelcore.h"

//! [functions]
#define ALIGNMENT 64

static _Alignas(ALIGNMENT) uint8_t region[1 << 16];
static int32_t used, blocks, asked, threads = 1;

/* Blocks follow one another, and the region is free again when its last block is. Calls of one thread only. */
void* qelMalloc(int32_t bytes) {
  if (bytes > (int32_t)sizeof region - used) return 0;
  void* const block = region + used;
  used += (bytes + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
  ++blocks;
  return block;
}

void qelFree(void* block) {
  if (block && --blocks == 0) used = 0;
}

/* Asked in every call of a function that may fork, on small images too. */
int32_t ownGetNumThreads(void) {
  ++asked;
  return threads;
}

/* Not known. */
int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  *bytes = 0;
  return -7;
}

/* Asked while libqelj is being loaded, before constructors of the program have run. */
uint64_t qelGetEnabledCpuFeatures(void) { return 0; }
//! [functions]

int main(void) {
  /* Records come from the region, until it is full. */
  QelEncodeStateJPEG2K* coder;
  const QelSize block = {16, 16};
  CALL(qeliEncodeInitAlloc_JPEG2K(&coder, block));
  EXPECT((uint8_t*)coder == region && blocks == 1);
  QelStatus status = qelStatusOk;
  QelEncodeHuffmanState* states[sizeof region / 1024] = {0};
  int32_t count = 0;
  while (status == qelStatusOk) status = qeliEncodeHuffmanStateInitAlloc_JPEG_8u(&states[count++]);
  EXPECT(status == qelStatusNullPointer && !states[count - 1] && blocks == count);
  printf("%d records in %d bytes, then: %s\n", (int)blocks, (int)used, qelStatusText(status));
  for (int32_t i = 0; i < count - 1; ++i) CALL(qeliEncodeHuffmanStateFree_JPEG_8u(states[i]));
  CALL(qeliEncodeFree_JPEG2K(coder));
  EXPECT(blocks == 0 && used == 0);

  /* The answer is taken as it is: one thread here. */
  static uint8_t rgb[128][128][3], luma[128][128];
  const QelSize size = {128, 128};
  CALL(qeliRGBToY_JPEG_8u_C3C1R(rgb[0][0], sizeof rgb[0], luma[0], sizeof luma[0], size));
  EXPECT(asked == 1);
  return 0;
}
