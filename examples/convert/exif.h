// EXIF data are fields in directories, a TIFF structure: here they are taken out of one, such as a TIFF file, and put into
// another.
#ifndef QELCONV_EXIF_H
#define QELCONV_EXIF_H

#include "image.h"

namespace qelconv {

class Stages;

struct Field {
  unsigned tag = 0, type = 0;
  std::vector<uint8_t> bytes;  // values, big-endian

  // The first value, of a whole number or a fraction; 0 for text.
  double number() const;
  // Of text, without the zero at its end.
  std::string text() const;
};

// Tags of a picture's directory that have nothing to do with how its samples are stored.
enum FieldTag : unsigned {
  kDescription = 270,
  kMake = 271,
  kModel = 272,
  kOrientation = 274,
  kXResolution = 282,
  kYResolution = 283,
  kResolutionUnit = 296,
  kSoftware = 305,
  kDateTime = 306,
  kArtist = 315,
  kHostComputer = 316,
  kCopyright = 33432
};
enum FieldType : unsigned { kByte = 1, kText = 2, kShort = 3, kLong = 4, kFraction = 5, kUndefined = 7 };

Field longField(unsigned tag, uint32_t value);

struct Exif {
  std::vector<Field> picture, taken, place;  // directories: of the picture, of how it was taken and where
  std::vector<const char*> others;           // what else is in the first one, as Metadata has it

  const Field* find(unsigned tag) const;  // in the first one
};

// Of a TIFF structure, a TIFF file or a JPEG XR file; none of no bytes. Thumbnails, makers' notes, which hold places of the
// file that they were in, and what is damaged are left out, and the stages are told.
Exif takeExif(Bytes file, Stages& stages);
// The same as a TIFF structure of their own; empty where they tell nothing but the density.
std::vector<uint8_t> makeExif(const Exif& exif);

// Of a file whose own directories tell all: a profile is not among it.
Metadata metadataOf(const Exif& exif);
// The fields of a picture's directories, its density among them.
Exif fieldsOf(const Metadata& metadata, Stages& stages);
// That of the picture, or that which its EXIF data tell.
Density densityOf(const Metadata& metadata);
// Puts a directory at the end of a file, and gives its place, which is even; 0 for one without fields.
uint64_t appendDirectory(std::vector<uint8_t>& file, const std::vector<Field>& fields, bool bigEndian,
                         bool bigTiff = false);
// Puts the other directories there, and gives the fields of the first one, with their places.
std::vector<Field> appendOthers(std::vector<uint8_t>& file, const Exif& exif, bool bigEndian);

}  // namespace qelconv

#endif
