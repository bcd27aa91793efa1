// Declares every front, qelj::<name>, with the type of the public declaration of the same name. A front that
// is defined with another type is another function, and the link fails for want of the declared one.
#ifndef QELJ_FRAME_FRONTS_H
#define QELJ_FRAME_FRONTS_H

#include "qelj.h"

// Where there are thunks (frame/thunks.S), the exports are those, and the fronts lie behind their table. Elsewhere each
// front is the export itself: functions of C linkage and one name are one function, whatever namespace names them.
#if (defined(__x86_64__) && defined(__LP64__) || defined(__aarch64__)) && defined(__ELF__)
#  define QELJ_THUNKS 1
#  define QELJ_FRONT
#else
#  define QELJ_THUNKS 0
#  define QELJ_FRONT extern "C" QELJ_API
#endif

namespace qelj {
#define QELJ_EXPORT(name) QELJ_FRONT decltype(::name) name;
#define QELJ_EXPORT_AS(name, implementation)
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS

// Serves the Free of all four kinds of Huffman record.
QelStatus ownFreeHuffmanRecord(void* record);
}  // namespace qelj

#endif
