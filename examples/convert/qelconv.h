/* libqelconv: the readers and writers of qelconv, from memory to memory.
 *
 * A conversion is an object that holds what it gave, or why it failed, until it is freed:
 *
 *   QelConv* const read = qelConvRead(bytes, size, NULL);
 *   if (!qelConvError(read)) {
 *     const QelConvPicture* const picture = qelConvGetPicture(read);
 *     ...
 *   }
 *   qelConvFree(read);
 *
 * Options are those of the program, without the dashes, as a list that ends in a null pointer: "quality=90", "lossless".
 * What a file may ask for is limited as in the program ("max-memory"). Large pictures are shared by as many threads as
 * ownGetNumThreads() of qelcore.h says. Calls may run at the same time.
 */
#ifndef QELCONV_H
#define QELCONV_H

#include <stddef.h>
#include <stdint.h>

#ifdef __GNUC__
#  define QELCONV_API __attribute__((visibility("default")))
#else
#  define QELCONV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Values of `colour`: the channels of a pixel. CMYK counts ink: 0 is none. */
enum QelConvColour { qelConvGrey = 0, qelConvGreyAlpha = 1, qelConvRgb = 2, qelConvRgba = 3, qelConvCmyk = 4 };

/* A picture, rows of interleaved channels without gaps. Samples are unsigned: a byte each for up to 8 bits, two in host
 * order for up to 16; or half-precision floats in two bytes. */
typedef struct QelConvPicture {
  int32_t width, height; /* 1 to 65535 */
  int32_t colour;        /* QelConvColour */
  int32_t bits;          /* of a sample, 1 to 16 */
  int32_t isHalf;        /* 1: halves, and bits is 16 */
  const void* data;
} QelConvPicture;

/* A conversion. */
typedef struct QelConv QelConv;

/* Reads the picture of a file, whatever its format. Null where there is no memory for the object itself. */
QELCONV_API QelConv* qelConvRead(const void* file, size_t size, const char* const* options);

/* Makes the file of a picture, in the format of an ending, such as "jpg". */
QELCONV_API QelConv* qelConvWrite(const QelConvPicture* picture, const char* ending, const char* const* options);

/* Why it failed, in a sentence; null where it did not. */
QELCONV_API const char* qelConvError(const QelConv* conversion);

/* What had no place in the new form of the picture, or is missing of one that was read with "partial", a line each; may
 * be empty. */
QELCONV_API const char* qelConvNotes(const QelConv* conversion);

/* What was read; null for another conversion. It is the conversion's. */
QELCONV_API const QelConvPicture* qelConvGetPicture(const QelConv* conversion);

/* What was written, and its size; null for another conversion. It is the conversion's. */
QELCONV_API const void* qelConvGetFile(const QelConv* conversion, size_t* size);

/* Releases it; null is ignored. */
QELCONV_API void qelConvFree(QelConv* conversion);

/* The formats, a line each: the ending, a blank, "r", "w" or "rw"; several endings of one format have lines of their
 * own. */
QELCONV_API const char* qelConvFormats(void);

#ifdef __cplusplus
}
#endif
#endif
