// Declares every front, qelj::<name>, with the type of the public declaration of the same name. A front that
// is defined with another type is another function, and the link fails for want of the declared one.
#ifndef QELJ_FRAME_FRONTS_H
#define QELJ_FRAME_FRONTS_H

#include "qelj.h"

namespace qelj {
#define QELJ_EXPORT(name) decltype(::name) name;
#define QELJ_EXPORT_AS(name, implementation)
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS

// Serves the Free of all four kinds of Huffman record.
QelStatus ownFreeHuffmanRecord(void* record);
}  // namespace qelj

#endif
