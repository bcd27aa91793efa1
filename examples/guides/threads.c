/* Threads of the program's own, each with its records and without teams; and a child of fork(). */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "check.h"
#include "qelcore.h"

enum { width = 640, height = 480, threads = 4, band = height / threads };

static uint8_t rgb[height][width][3], planes[3][height][width], once[3][height][width];

//! [band]
/* One band of rows. Its calls stay on this thread: a team for each of four threads would only be in the way. */
static void* convertBand(void* number) {
  const int y = *(const int*)number * band;
  const QelSize size = {width, band};
  uint8_t* const dst[3] = {planes[0][y], planes[1][y], planes[2][y]};
  qelSetNumThreads(1);
  CALL(qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb[y][0], sizeof rgb[0], dst, width, size));
  return 0;
}
//! [band]

int main(void) {
  for (int i = 0; i < width * height; ++i)
    for (int c = 0; c < 3; ++c) rgb[i / width][i % width][c] = (uint8_t)(i * 7 + i / 1000 + 50 * c);

  pthread_t thread[threads];
  int number[threads];
  for (int t = 0; t < threads; ++t) {
    number[t] = t;
    EXPECT(pthread_create(&thread[t], 0, convertBand, &number[t]) == 0);
  }
  for (int t = 0; t < threads; ++t) pthread_join(thread[t], 0);

  /* The whole picture in one call gives the same bytes, whatever the number of threads. */
  const QelSize size = {width, height};
  uint8_t* const dst[3] = {once[0][0], once[1][0], once[2][0]};
  CALL(qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb[0][0], sizeof rgb[0], dst, width, size));
  EXPECT(!memcmp(planes, once, sizeof planes));

  //! [rows]
  /* Row by row, as a decoder of lines works: a call of one row gains nothing by a team. */
  const int32_t before = qelSetNumThreads(1);
  const QelSize one = {width, 1};
  for (int y = 0; y < height; ++y) CALL(qeliRGBToY_JPEG_8u_C3C1R(rgb[y][0], sizeof rgb[0], once[0][y], width, one));
  qelSetNumThreads(before);
  //! [rows]
  EXPECT(!memcmp(planes[0], once[0], sizeof planes[0]));

  //! [fork]
  /* A child: libqelcore answers 1 there, so that no call waits for a team that only the parent has. */
  const pid_t child = fork();
  if (child == 0) {
    if (ownGetNumThreads() != 1) _exit(2);
    _exit(qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb[0][0], sizeof rgb[0], dst, width, size) != qelStatusOk);
  }
  int status = 1;
  EXPECT(child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0);
  //! [fork]
  puts("the same bytes from four threads, rows and a child");
  return 0;
}
