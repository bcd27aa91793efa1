#include "orientation.h"

#include <utility>

namespace qelconv {
namespace {

// Big-endian EXIF data with this one field: a short number (TIFF 6.0, section 2).
constexpr uint8_t kAlone[] = {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 1, 0x12, 0, 3, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
constexpr unsigned kField = 0x112, kShort = 3;

// Where the number stands, and its byte order; 0 where there is none.
size_t placeOf(const std::vector<uint8_t>& exif, bool& bigEndian) {
  try {
    Reader in(exif);
    const uint16_t order = in.u16be();
    if (order != 0x4D4D && order != 0x4949) return 0;
    bigEndian = order == 0x4D4D;
    const auto number16 = [&] { return bigEndian ? in.u16be() : in.u16le(); };
    const auto number32 = [&] { return bigEndian ? in.u32be() : in.u32le(); };
    if (number16() != 42) return 0;
    in.seek(number32());
    for (int fields = number16(); fields > 0; --fields) {
      const unsigned field = number16(), kind = number16();
      const uint32_t count = number32();
      if (field == kField && kind == kShort && count == 1) {
        number16();
        return in.position() - 2;
      }
      in.skip(4);
    }
    return 0;
  } catch (const Truncated&) {
    return 0;
  }
}

}  // namespace

int orientationOf(const Metadata& metadata) {
  bool bigEndian = false;
  const size_t at = placeOf(metadata.exif, bigEndian);
  if (!at) return 1;
  const int orientation = metadata.exif[at] << (bigEndian ? 8 : 0) | metadata.exif[at + 1] << (bigEndian ? 0 : 8);
  return orientation >= 1 && orientation <= 8 ? orientation : 1;
}

void setOrientation(Metadata& metadata, int orientation) {
  if (metadata.exif.empty() && orientation != 1) metadata.exif.assign(std::begin(kAlone), std::end(kAlone));
  bool bigEndian = false;
  if (const size_t at = placeOf(metadata.exif, bigEndian)) {
    metadata.exif[at] = 0, metadata.exif[at + 1] = 0;
    metadata.exif[at + bigEndian] = uint8_t(orientation);
  }
}

Image upright(Image image) {
  const int orientation = orientationOf(image.metadata);
  if (orientation == 1) return image;
  // Where a pixel comes from: columns and rows change places from 5 on; then either may be counted from its end.
  const bool turned = orientation >= 5;
  const bool fromRight = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool fromBottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  Shape shape = image;
  if (turned) std::swap(shape.width, shape.height), std::swap(shape.metadata.density.x, shape.metadata.density.y);
  Image result(shape, image.colour, image.bits);
  result.missing = image.missing;
  setOrientation(result.metadata, 1);
  const auto pixel = size_t(image.pixelBytes());
  for (int32_t y = 0; y < result.height; ++y)
    for (int32_t x = 0; x < result.width; ++x) {
      const int32_t column = turned ? y : x, row = turned ? x : y;
      std::memcpy(result.row(y) + size_t(x) * pixel,
                  image.row(fromBottom ? image.height - 1 - row : row) +
                      size_t(fromRight ? image.width - 1 - column : column) * pixel,
                  pixel);
    }
  return result;
}

}  // namespace qelconv
