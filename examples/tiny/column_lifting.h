/* The wavelet down the columns of a picture of any height, row by row: the loops around qeliWT...ColLift. A
 * program with a source of rows puts it in the place of ROW and BAND; a few rows are all that these loops
 * keep.
 *
 * Rows have `width` samples without a gap. The first row stands at position `first`, 0 or 1; even positions
 * are low-pass ones. `rows` is 2 or more. (A single row is the low band as it is, at position 0; at position
 * 1 it is the high band, doubled.) The low band has (rows + 1 - first) / 2 rows, the high band the others. */
#ifndef COLUMN_LIFTING_H
#define COLUMN_LIFTING_H

#include <stddef.h>
#include <string.h>

#include "qelj.h"

/* A position beyond either end stands for its mirror image, which has the same parity. */
static inline int32_t mirrored(int32_t position, int32_t first, int32_t rows) {
  const int32_t last = first + rows - 1;
  while (position < first || position > last) position = 2 * (position < first ? first : last) - position;
  return position;
}

/* The picture's row at a position; and the row of a band: the low one at even positions, the high one at odd
 * ones. */
#define ROW(picture, position) ((picture) + (size_t)(mirrored(position, first, rows) - first) * (size_t)width)
#define BAND(band, position) ((band) + (size_t)((mirrored(position, first, rows) - first) / 2) * (size_t)width)

/* Whether a position lies in the picture, so that what comes out for it is wanted. */
static inline int inside(int32_t position, int32_t first, int32_t rows) {
  return position >= first && position < first + rows;
}

/* 5/3. A call makes high row 2k + 1 and low row 2k. The first low row needs the high one above it, so that
 * calls begin one pair early. work: 3 rows. */
static inline QelStatus forward53(const int32_t* picture, int32_t width, int32_t rows, int32_t first, int32_t* low,
                                  int32_t* high, int32_t* work) {
  int32_t *scratch = work, *highPrev = scratch + width, *highNext = highPrev + width;
  const size_t bytes = (size_t)width * sizeof *work;
  memset(work, 0, 3 * bytes);
  for (int32_t k = -1; 2 * k < first + rows; ++k) {
    QelStatus status = qeliWTFwdColLift_B53_JPEG2K_32s_C1(ROW(picture, 2 * k), ROW(picture, 2 * k + 1),
                                                          ROW(picture, 2 * k + 2), scratch, highPrev, highNext, width);
    if (status < 0) return status;
    if (inside(2 * k, first, rows)) memcpy(BAND(low, 2 * k), scratch, bytes);
    if (inside(2 * k + 1, first, rows)) memcpy(BAND(high, 2 * k + 1), highNext, bytes);
    int32_t* const done = highPrev;
    highPrev = highNext, highNext = done;
  }
  return qelStatusOk;
}

/* The inverse. A call makes row 2k and the odd row above it, which needs the even ones on both sides, so that
 * calls end one pair late. work: 3 rows. */
static inline QelStatus inverse53(const int32_t* low, const int32_t* high, int32_t width, int32_t rows, int32_t first,
                                  int32_t* picture, int32_t* work) {
  int32_t *odd = work, *evenPrev = odd + width, *even = evenPrev + width;
  const size_t bytes = (size_t)width * sizeof *work;
  memset(work, 0, 3 * bytes);
  for (int32_t k = 0; 2 * k - 1 < first + rows; ++k) {
    QelStatus status = qeliWTInvColLift_B53_JPEG2K_32s_C1(BAND(low, 2 * k), BAND(high, 2 * k - 1),
                                                          BAND(high, 2 * k + 1), evenPrev, odd, even, width);
    if (status < 0) return status;
    if (inside(2 * k - 1, first, rows)) memcpy(ROW(picture, 2 * k - 1), odd, bytes);
    if (inside(2 * k, first, rows)) memcpy(ROW(picture, 2 * k), even, bytes);
    int32_t* const done = evenPrev;
    evenPrev = even, even = done;
  }
  return qelStatusOk;
}

/* 9/7. A call takes rows 2k to 2k + 2 and finishes low row 2k - 2 and high row 2k - 3: calls begin two pairs
 * early and end when the last row has come out. What comes out before position `first` is made of nothing.
 * work: 5 rows. */
static inline QelStatus forward97(const float* picture, int32_t width, int32_t rows, int32_t first, float* low,
                                  float* high, float* work) {
  float *lowDone = work, *lowNext = lowDone + width;
  float *highDone = lowNext + width, *highOpen = highDone + width, *highNext = highOpen + width;
  const size_t bytes = (size_t)width * sizeof *work;
  memset(work, 0, 5 * bytes);
  for (int32_t k = -2; 2 * k - 3 < first + rows; ++k) {
    QelStatus status =
        qeliWTFwdColLift_D97_JPEG2K_32f_C1(ROW(picture, 2 * k), ROW(picture, 2 * k + 1), ROW(picture, 2 * k + 2),
                                           lowDone, lowNext, highDone, highOpen, highNext, width);
    if (status < 0) return status;
    if (inside(2 * k - 2, first, rows)) memcpy(BAND(low, 2 * k - 2), lowDone, bytes);
    if (inside(2 * k - 3, first, rows)) memcpy(BAND(high, 2 * k - 3), highDone, bytes);
    float *const freeLow = lowDone, *const freeHigh = highDone;
    lowDone = lowNext, lowNext = freeLow;
    highDone = highOpen, highOpen = highNext, highNext = freeHigh;
  }
  return qelStatusOk;
}

/* The inverse. A call takes low row 2k with its neighbours, and finishes rows 2k - 2 and 2k - 3. work: 5
 * rows. */
static inline QelStatus inverse97(const float* low, const float* high, int32_t width, int32_t rows, int32_t first,
                                  float* picture, float* work) {
  float *evenDone = work, *evenOpen = evenDone + width, *evenNext = evenOpen + width;
  float *oddOpen = evenNext + width, *oddNext = oddOpen + width;
  const size_t bytes = (size_t)width * sizeof *work;
  memset(work, 0, 5 * bytes);
  for (int32_t k = -1; 2 * k - 3 < first + rows; ++k) {
    QelStatus status =
        qeliWTInvColLift_D97_JPEG2K_32f_C1(BAND(low, 2 * k), BAND(high, 2 * k - 1), BAND(high, 2 * k + 1), evenDone,
                                           oddOpen, evenOpen, oddNext, evenNext, width);
    if (status < 0) return status;
    if (inside(2 * k - 3, first, rows)) memcpy(ROW(picture, 2 * k - 3), oddOpen, bytes);
    if (inside(2 * k - 2, first, rows)) memcpy(ROW(picture, 2 * k - 2), evenOpen, bytes);
    float *const freeEven = evenDone, *const freeOdd = oddOpen;
    evenDone = evenOpen, evenOpen = evenNext, evenNext = freeEven;
    oddOpen = oddNext, oddNext = freeOdd;
  }
  return qelStatusOk;
}

#undef ROW
#undef BAND

#endif
