// Which way up a picture is held, as EXIF data (and TIFF) tell it: 1, as it is, to 8.
#ifndef QELCONV_ORIENTATION_H
#define QELCONV_ORIENTATION_H

#include "image.h"

namespace qelconv {

int orientationOf(const Metadata& metadata);
// In the EXIF data, where there are any; otherwise in ones with nothing else, unless it is 1.
void setOrientation(Metadata& metadata, int orientation);
// The picture turned upright.
Image upright(Image image);

}  // namespace qelconv

#endif
