// The overlap filters of JPEG XR (ITU-T T.832, 9.9.8), which smooth what blocks would leave at their edges.
#ifndef QELCONV_JPEGXR_OVERLAP_H
#define QELCONV_JPEGXR_OVERLAP_H

#include "jpegxr.h"

namespace qelconv::jxr {

enum class Filter { pre, post };  // in front of a forward transform; behind an inverse one

// Filters the windows of one macroblock row of a plane whose centres lie on its first row or inside; the row behind the
// last one has those of the lower edge. They reach `blocks(plane) / 2` rows up.
void overlapSamples(Plane& plane, const Header& header, int32_t row, Filter filter);
// The same on the values of the second transform.
void overlapLow(Plane& plane, const Header& header, int32_t row, Filter filter);

}  // namespace qelconv::jxr

#endif
