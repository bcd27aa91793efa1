/* Texts for the statuses of qelj.h, for messages. */
#ifndef QELJ_STATUS_H
#define QELJ_STATUS_H

#include "qelj.h"

/* A few English words for a status, without a full stop; never null. They lie in static storage. Texts may be reworded
 * from version to version: a program tells statuses apart by their numbers. */
static inline const char* qelStatusText(QelStatus status) {
  switch (status) {
    case qelStatusOddSizeWarning:
      return "odd width or height: the last column or row was left out";
    case qelStatusZeroDivisorWarning:
      return "a divisor in the table is zero";
    case qelStatusOk:
      return "success";
    case qelStatusJpegBlockOverrun:
      return "a run of zeros leads out of the block";
    case qelStatusBadArg:
      return "an argument is out of its domain";
    case qelStatusBadSize:
      return "a width, height or length is too small";
    case qelStatusOutOfRange:
      return "a value is outside what the format can hold";
    case qelStatusNullPointer:
      return "a pointer is null, or no memory for a Huffman record";
    case qelStatusNoMemory:
      return "no memory";
    case qelStatusBadStep:
      return "a step is below 1";
    case qelStatusContextMismatch:
      return "a state record is of another family";
    case qelStatusJpegOutOfBuffer:
      return "the coded data ended, or the room for them";
    case qelStatusJpegCoeffRange:
      return "no valid code, a marker instead of data, or a value without a category";
    case qelStatusJpegHuffTable:
      return "a Huffman table is not usable, or has no code for a symbol";
    case qelStatusJpeg2kBadCodeBlock:
      return "the passes of a code-block are damaged";
    case qelStatusJpeg2kBadPassNumber:
      return "no such coding pass";
    case qelStatusOutOfBuffer:
      return "the source or the destination ended";
    case qelStatusJpeg2kNotAttached:
      return "no buffer is attached to the code-block decoder";
    default:
      return status < 0 ? "unknown failure" : "unknown warning";
  }
}

#endif
