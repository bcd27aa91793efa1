/* Transforms the columns of a picture row by row, and back: losslessly by 5/3, closely by 9/7. */
#include "column_lifting.h"

#include <stdio.h>

enum { width = 40, rows = 31 };

int main(void) {
  static int32_t picture[rows * width], low[rows * width], high[rows * width], back[rows * width], work[3 * width];
  static float pictureF[rows * width], lowF[rows * width], highF[rows * width], backF[rows * width], workF[5 * width];
  for (int i = 0; i < rows * width; ++i) pictureF[i] = (float)(picture[i] = i * i % 251 - 125);

  QelStatus status = forward53(picture, width, rows, 0, low, high, work);
  if (status >= 0) status = inverse53(low, high, width, rows, 0, back, work);
  if (status >= 0) status = forward97(pictureF, width, rows, 0, lowF, highF, workF);
  if (status >= 0) status = inverse97(lowF, highF, width, rows, 0, backF, workF);

  int differ = 0;
  float far = 0;
  for (int i = 0; i < rows * width; ++i) {
    const float d = backF[i] > pictureF[i] ? backF[i] - pictureF[i] : pictureF[i] - backF[i];
    differ += back[i] != picture[i], far = d > far ? d : far;
  }
  printf("status %d; 5/3: %d samples differ; 9/7: by %g at most\n", (int)status, differ, (double)far);
  return status != qelStatusOk || differ || far > 0.001f;
}
