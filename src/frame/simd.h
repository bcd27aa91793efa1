// Vectors of 16, 32 and 64 bytes, and the few operations on them that codecs need.
//
// A vector is a compiler vector type, so + - * & | ^ ~ << >> and the comparisons (which give a mask of 0 and -1
// lanes) are the language's own. Signed lanes must not overflow: use addWrap, subWrap, mulWrap, or unsigned
// lanes. What the language lacks is in simd/: each operation once, by its definition (plain.h), which any processor
// runs, and by the forms of the processors that have instructions for it (a file a family). Operations marked "by
// blocks" work in each 16 bytes of a vector separately, as processors do.
//
//   family.h   chooses the family, and with it kBytes, kWideBytes, kEnabled and kShuffles
//   vector.h   vectors as the language has them
//   x86.h, neon.h, wasm.h
//              the processors' forms, all with one list of operations: overloads for the sizes and lanes of vectors
//              that a processor has, which come before the definitions where both fit
//   plain.h    the definitions, which serve whatever has no form: templates for every vector
//   pixels.h   pixels of three and four bytes, of those operations
//   loops.h    vectors at the ends of rows, loops that cover them
//
// To make a form of an operation, copy the head of its definition and narrow its vectors.
#ifndef QELJ_FRAME_SIMD_H
#define QELJ_FRAME_SIMD_H

#include "frame/simd/loops.h"
#include "frame/simd/pixels.h"
#include "frame/simd/plain.h"

#endif
