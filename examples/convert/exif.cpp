#include "exif.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "format.h"

namespace qelconv {
namespace {

// Pointers to directories, and what is in them but belongs to one file only.
enum Pointer : unsigned { kTaken = 34665, kPlace = 34853, kMakersNote = 37500, kInteroperability = 40965 };
constexpr unsigned kStrips = 273, kTiles = 324, kCodestream = 0xBCC0;
constexpr struct {
  unsigned tag;
  const char* name;
} kOthers[] = {{700, "XMP data"}, {33723, "IPTC data"}, {34377, "Photoshop data"}};

// TIFF 6.0, section 2, with a directory's place (13) and the three long types of BigTIFF.
struct Type {
  size_t bytes, unit;  // of a value, and of what byte order is about
};
constexpr Type kTypes[] = {{0, 0}, {1, 1}, {1, 1}, {2, 2}, {4, 4}, {8, 4}, {1, 1}, {1, 1}, {2, 2}, {4, 4},
                           {8, 4}, {4, 4}, {8, 8}, {4, 4}, {0, 0}, {0, 0}, {8, 8}, {8, 8}, {8, 8}};
constexpr Type typeOf(unsigned type) { return type < std::size(kTypes) ? kTypes[type] : Type{}; }
constexpr unsigned kLastOfExif = 12;

void exchange(std::vector<uint8_t>& bytes, size_t unit) {
  for (size_t i = 0; unit > 1 && i + unit <= bytes.size(); i += unit)
    std::reverse(bytes.begin() + ptrdiff_t(i), bytes.begin() + ptrdiff_t(i + unit));
}

bool isKept(unsigned tag) {
  constexpr unsigned kKept[] = {kDescription,    kMake,     kModel,    kOrientation, kXResolution,  kYResolution,
                                kResolutionUnit, kSoftware, kDateTime, kArtist,      kHostComputer, kCopyright};
  return std::find(std::begin(kKept), std::end(kKept), tag) != std::end(kKept);
}

class Directories {
 public:
  explicit Directories(Bytes file) : in_(file), left_(file.size()) {
    const unsigned order = in_.u16be();
    if (order != 0x4D4D && order != 0x4949) throw Damaged("no directory of fields");
    bigEndian_ = order == 0x4D4D;
    const unsigned version = number16();
    constexpr unsigned kTiff = 42, kBigTiff = 43, kJpegXr = 0x1BC, kOldJpegXr = 0xBC;
    if (version != kTiff && version != kBigTiff && version != kJpegXr && version != kOldJpegXr)
      throw Damaged("no directory of fields");
    big_ = version == kBigTiff;
    if (big_) in_.skip(4);
    first_ = place();
  }

  Exif take() {
    uint64_t taken = 0, where = 0;
    visit(first_, [&](const Field& field) {
      if (field.tag == kTaken) taken = pointer(field);
      else if (field.tag == kPlace) where = pointer(field);
      else if (isKept(field.tag)) exif_.picture.push_back(field);
    });
    const uint64_t second = in_.left() >= 8 ? place() : 0;
    if (taken)
      visit(taken, [&](const Field& field) {
        if (field.tag == kMakersNote) lose("the maker's note");
        else if (field.tag != kInteroperability) exif_.taken.push_back(field);
      });
    if (where) visit(where, [&](const Field& field) { exif_.place.push_back(field); });
    if (second && !ofPicture_) lose("the thumbnail");
    return std::move(exif_);
  }
  const std::string& lost() const { return lost_; }

 private:
  unsigned number16() { return bigEndian_ ? in_.u16be() : in_.u16le(); }
  uint64_t number32() { return bigEndian_ ? in_.u32be() : in_.u32le(); }
  uint64_t number64() { return bigEndian_ ? in_.u64be() : in_.u64le(); }
  uint64_t place() { return big_ ? number64() : number32(); }

  static uint64_t pointer(const Field& field) {
    uint64_t value = 0;
    if (field.bytes.size() == typeOf(field.type).unit)
      for (const uint8_t byte : field.bytes) value = value << 8 | byte;
    return value;
  }

  void lose(const std::string& what) {
    if (lost_.find(what) == std::string::npos) lost_ += (lost_.empty() ? "" : ", ") + what;
  }

  // Gives the fields of a directory, and stays behind them.
  template <class Visit>
  void visit(uint64_t at, Visit&& visit) {
    in_.seek(size_t(at));
    for (uint64_t fields = big_ ? number64() : number16(); fields > 0; --fields) {
      Field field;
      field.tag = number16(), field.type = number16();
      const uint64_t count = place();
      Reader value = in_;
      in_.skip(big_ ? 8 : 4);
      const Type type = typeOf(field.type);
      // Structural fields of large files are never looked at.
      const bool wanted = at != first_ || isKept(field.tag) || field.tag == kTaken || field.tag == kPlace;
      ofPicture_ |= at == first_ && (field.tag == kStrips || field.tag == kTiles || field.tag == kCodestream);
      for (const auto& other : kOthers)
        if (at == first_ && field.tag == other.tag) exif_.others.push_back(other.name);
      if (!wanted) continue;
      // Fields may share their values, but together they have no more bytes than the file.
      if (type.bytes == 0 || count > left_ / type.bytes) {
        lose("damaged fields");
        continue;
      }
      const size_t bytes = size_t(count) * type.bytes;
      try {
        if (bytes > (big_ ? 8 : 4)) {
          const Reader behind = in_;
          in_ = value;
          const uint64_t offset = place();
          in_ = behind;
          value.seek(size_t(offset));
        }
        const Bytes from = value.take(bytes);
        field.bytes.assign(from.begin(), from.end());
      } catch (const Truncated&) {
        lose("damaged fields");
        continue;
      }
      left_ -= bytes;
      if (!bigEndian_) exchange(field.bytes, type.unit);
      const bool isPointer = at == first_ && (field.tag == kTaken || field.tag == kPlace);
      if (field.type <= kLastOfExif || isPointer) visit(std::as_const(field));
      else lose("damaged fields");
    }
  }

  Reader in_;
  uint64_t left_;
  bool bigEndian_ = false, big_ = false;
  uint64_t first_ = 0;
  // The first directory has a picture: these are no EXIF data alone, whose second directory has a thumbnail.
  bool ofPicture_ = false;
  Exif exif_;
  std::string lost_;  // what is left out, in words
};

bool isDensity(unsigned tag) { return tag == kXResolution || tag == kYResolution || tag == kResolutionUnit; }

// What every picture may be said to have.
bool saysNothing(const Field& field) {
  return isDensity(field.tag) || (field.tag == kOrientation && field.number() == 1);
}

// TIFF 6.0, section 8: inches are meant where no unit is told. Pictures without a density have to tell one, too: 72.
Density densityOf(const Exif& exif) {
  const Field *const x = exif.find(kXResolution), *const y = exif.find(kYResolution),
                     *const unit = exif.find(kResolutionUnit);
  if (!x || !y) return {};
  const double code = unit ? unit->number() : 2;
  const Density density = {x->number(), y->number(),
                           code == 1   ? Density::kNone
                           : code == 3 ? Density::kCentimetre
                                       : Density::kInch};
  const bool usual = density.x == 72 && density.y == 72 && density.unit == Density::kInch;
  return usual ? Density() : density;
}

// In as small numbers as they can be.
Field fractionField(unsigned tag, double value) {
  uint32_t parts = 1;
  while (parts < 10000 && value * parts != std::floor(value * parts) && value * parts * 10 < 4e9) parts *= 10;
  Field field = longField(tag, uint32_t(std::clamp(std::round(value * parts), 1.0, 4e9)));
  field.type = kFraction;
  const std::vector<uint8_t> below = longField(tag, parts).bytes;
  field.bytes.insert(field.bytes.end(), below.begin(), below.end());
  return field;
}

}  // namespace

double Field::number() const {
  const auto at = [&](size_t first, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[first + i];
    return double(value);
  };
  if (bytes.size() < typeOf(type).bytes) return 0;
  if (type == kShort) return at(0, 2);
  if (type == kLong) return at(0, 4);
  if (type == kFraction) return at(4, 4) > 0 ? at(0, 4) / at(4, 4) : 0;
  return 0;
}

std::string Field::text() const {
  return type == kText ? std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)) : "";
}

const Field* Exif::find(unsigned tag) const {
  const auto found = std::find_if(picture.begin(), picture.end(), [&](const Field& f) { return f.tag == tag; });
  return found == picture.end() ? nullptr : &*found;
}

Exif takeExif(Bytes file, Stages& stages) {
  if (file.empty()) return {};
  try {
    Directories directories(file);
    Exif exif = directories.take();
    if (!directories.lost().empty()) stages.lose("of the EXIF data are dropped: " + directories.lost());
    return exif;
  } catch (const Damaged&) {
    stages.lose("the EXIF data are damaged, and dropped");
    return {};
  }
}

Field longField(unsigned tag, uint32_t value) {
  return {tag, kLong, {uint8_t(value >> 24), uint8_t(value >> 16), uint8_t(value >> 8), uint8_t(value)}};
}

uint64_t appendDirectory(std::vector<uint8_t>& file, const std::vector<Field>& fields, bool bigEndian, bool bigTiff) {
  if (fields.empty()) return 0;
  const auto number = [&](std::vector<uint8_t>& to, uint64_t value, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) to.push_back(uint8_t(value >> 8 * (bigEndian ? bytes - 1 - i : i)));
  };
  const auto even = [&] { file.resize(file.size() + file.size() % 2); };
  std::vector<const Field*> sorted;
  for (const Field& field : fields) sorted.push_back(&field);
  std::stable_sort(sorted.begin(), sorted.end(), [](const Field* a, const Field* b) { return a->tag < b->tag; });
  const size_t placeBytes = bigTiff ? 8 : 4;
  std::vector<uint8_t> directory;
  number(directory, sorted.size(), bigTiff ? 8 : 2);
  for (const Field* field : sorted) {
    const Type type = typeOf(field->type);
    std::vector<uint8_t> value = field->bytes;
    if (!bigEndian) exchange(value, type.unit);
    number(directory, field->tag, 2), number(directory, field->type, 2);
    number(directory, value.size() / type.bytes, placeBytes);
    if (value.size() > placeBytes) {
      even();
      number(directory, file.size(), placeBytes);
      file.insert(file.end(), value.begin(), value.end());
    } else {
      value.resize(placeBytes);
      directory.insert(directory.end(), value.begin(), value.end());
    }
  }
  number(directory, 0, placeBytes);  // no other one
  even();
  const uint64_t place = file.size();
  file.insert(file.end(), directory.begin(), directory.end());
  return place;
}

std::vector<Field> appendOthers(std::vector<uint8_t>& file, const Exif& exif, bool bigEndian) {
  std::vector<Field> first = exif.picture;
  for (const auto& [tag, fields] : {std::pair(kTaken, &exif.taken), std::pair(kPlace, &exif.place)})
    if (const uint64_t at = appendDirectory(file, *fields, bigEndian)) first.push_back(longField(tag, uint32_t(at)));
  return first;
}

Metadata metadataOf(const Exif& exif) {
  Metadata metadata;
  metadata.exif = makeExif(exif);
  metadata.density = densityOf(exif);
  metadata.others = exif.others;
  return metadata;
}

Exif fieldsOf(const Metadata& metadata, Stages& stages) {
  Exif exif = takeExif(metadata.exif, stages);
  const Density& density = metadata.density;
  if (!density.isKnown()) return exif;
  std::erase_if(exif.picture, [](const Field& field) { return isDensity(field.tag); });
  exif.picture.push_back(fractionField(kXResolution, density.x));
  exif.picture.push_back(fractionField(kYResolution, density.y));
  exif.picture.push_back({kResolutionUnit, kShort, {0, uint8_t(1 + density.unit)}});
  return exif;
}

Density densityOf(const Metadata& metadata) {
  if (metadata.density.isKnown()) return metadata.density;
  Stages told;
  return densityOf(takeExif(metadata.exif, told));
}

std::vector<uint8_t> makeExif(const Exif& exif) {
  const bool nothing =
      exif.taken.empty() && exif.place.empty() && std::all_of(exif.picture.begin(), exif.picture.end(), saysNothing);
  if (nothing) return {};
  std::vector<uint8_t> block = {'M', 'M', 0, 42, 0, 0, 0, 0};
  const auto place = longField(0, uint32_t(appendDirectory(block, appendOthers(block, exif, true), true))).bytes;
  std::copy(place.begin(), place.end(), block.begin() + 4);
  return block;
}

}  // namespace qelconv
