// Writing TIFF files: rows as they come are put together to segments, which are strips or tiles.
#include <algorithm>

#include "orientation.h"
#include "tiff.h"

namespace qelconv::tiff {
namespace {

// The fields of EXIF data, whose own directories lie in the file already.
struct Described {
  Exif exif;
  uint64_t taken = 0, place = 0;
};

void describePicture(File& out, const Described& described) {
  const auto set = [&](uint32_t tag, auto value) { out.expect(TIFFSetField(out, tag, value)); };
  constexpr unsigned kTexts[] = {kDescription, kMake, kModel, kSoftware, kDateTime, kArtist, kHostComputer, kCopyright};
  for (const unsigned tag : kTexts)
    if (const Field* field = described.exif.find(tag); field && !field->text().empty()) set(tag, field->text().c_str());
  for (const unsigned tag : {kXResolution, kYResolution}) {
    const Field* const field = described.exif.find(tag);
    set(tag, field && field->number() > 0 ? field->number() : 72.0);
  }
  const Field* const unit = described.exif.find(kResolutionUnit);
  set(TIFFTAG_RESOLUTIONUNIT, unit && unit->number() == 1   ? RESUNIT_NONE
                              : unit && unit->number() == 3 ? RESUNIT_CENTIMETER
                                                            : RESUNIT_INCH);
  if (described.taken) set(TIFFTAG_EXIFIFD, described.taken);
  if (described.place) set(TIFFTAG_GPSIFD, described.place);
}

// What the options say.
struct Plan {
  Plan(const Shape& shape, const Options& options, Stages& stages) : described{fieldsOf(shape.metadata, stages)} {
    constexpr unsigned kCompressions[] = {COMPRESSION_PACKBITS, COMPRESSION_NONE, COMPRESSION_LZW,
                                          COMPRESSION_ADOBE_DEFLATE};
    compression = kCompressions[options.choice("packing", {"packbits", "none", "lzw", "deflate"}, 0)];
    tiles = options.size("tiles", {0, 0});
    if (tiles.first % 16 || tiles.second % 16) throw Error("--tiles takes multiples of 16 for TIFF");
    bigEndian = options.has("big-endian"), bigTiff = options.has("big-tiff");
  }
  Described described;
  unsigned compression;
  std::pair<int, int> tiles;
  bool bigEndian, bigTiff;
};

// A new file, with the directories of EXIF data that stand in front of all.
std::shared_ptr<File> begin(Plan& plan, Destination& out) {
  auto file = std::make_shared<File>(out, plan.bigEndian, plan.bigTiff);
  Described& described = plan.described;
  described.taken = file->append(described.exif.taken), described.place = file->append(described.exif.place);
  return file;
}

// A picture in a file: its segments in order, and then its directory.
class Sink : public RowSink {
 public:
  Sink(std::shared_ptr<File> file, const Shape& shape, const Plan& plan)
      : file_(std::move(file)),
        shape_(shape),
        tiled_(plan.tiles.first > 0),
        packs_(plan.compression == COMPRESSION_PACKBITS),
        plain_(plan.compression == COMPRESSION_NONE),
        across_(tiled_ ? plan.tiles.first : shape.width),
        down_(tiled_ ? plan.tiles.second : std::clamp(65536 / shape.step(), 1, shape.height)),
        columns_((shape.width + across_ - 1) / across_),
        pieceBytes_(size_t(across_) * size_t(shape.pixelBytes())),
        segments_(static_cast<size_t>(columns_)) {
    describe(plan);
  }

  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) override {
    std::vector<Step> steps;
    if (packs_) {
      packed_.resize(size_t(slots));
      steps.push_back({"PackBits", false, [=, this, &rows](int32_t strip) {
                         pack(rows, strips.first(strip), strips.behind(strip), packed_[size_t(strip % slots)]);
                       }});
    }
    steps.push_back({"write TIFF", true, [=, this, &rows](int32_t strip) {
                       put(rows, strips.first(strip), strips.behind(strip),
                           packs_ ? &packed_[size_t(strip % slots)] : nullptr);
                     }});
    return steps;
  }

  void finish() override { file_->expect(TIFFWriteDirectory(*file_)); }

 private:
  // The rows of a strip in PackBits, a piece for each segment across.
  struct Pieces {
    std::vector<uint8_t> bytes;
    std::vector<size_t> ends;
  };

  void describe(const Plan& plan) {
    File& out = *file_;
    const auto set = [&](uint32_t tag, auto value) { out.expect(TIFFSetField(out, tag, value)); };
    set(TIFFTAG_IMAGEWIDTH, uint32_t(shape_.width));
    set(TIFFTAG_IMAGELENGTH, uint32_t(shape_.height));
    set(TIFFTAG_BITSPERSAMPLE, shape_.bits);
    set(TIFFTAG_SAMPLESPERPIXEL, shape_.channels());
    set(TIFFTAG_SAMPLEFORMAT, shape_.half ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    set(TIFFTAG_COMPRESSION, plan.compression);
    set(TIFFTAG_PHOTOMETRIC, shape_.colour == Colour::cmyk ? PHOTOMETRIC_SEPARATED
                             : shape_.channels() <= 2      ? PHOTOMETRIC_MINISBLACK
                                                           : PHOTOMETRIC_RGB);
    set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    describePicture(out, plan.described);
    if (plan.compression == COMPRESSION_LZW || plan.compression == COMPRESSION_ADOBE_DEFLATE)
      set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    const Metadata& metadata = shape_.metadata;
    if (!metadata.profile.empty())
      out.expect(TIFFSetField(out, TIFFTAG_ICCPROFILE, uint32_t(metadata.profile.size()), metadata.profile.data()));
    set(TIFFTAG_ORIENTATION, orientationOf(metadata));
    if (shape_.hasAlpha()) {
      const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
      out.expect(TIFFSetField(out, TIFFTAG_EXTRASAMPLES, 1, &alpha));
    }
    if (tiled_) set(TIFFTAG_TILEWIDTH, uint32_t(across_)), set(TIFFTAG_TILELENGTH, uint32_t(down_));
    else set(TIFFTAG_ROWSPERSTRIP, uint32_t(down_));
  }

  // A row's piece in a segment; what a tile has beyond the picture repeats the last pixel.
  Bytes piece(const Rows& rows, int32_t y, int32_t column, std::vector<uint8_t>& scratch) const {
    const auto pixel = size_t(shape_.pixelBytes());
    const int32_t left = column * across_, inside = std::min(across_, shape_.width - left);
    const Bytes there(rows.row(y) + size_t(left) * pixel, size_t(inside) * pixel);
    if (inside == across_) return there;
    scratch.assign(there.begin(), there.end());
    for (int32_t x = inside; x < across_; ++x)
      scratch.insert(scratch.end(), there.end() - ptrdiff_t(pixel), there.end());
    return scratch;
  }

  void pack(const Rows& rows, int32_t first, int32_t end, Pieces& packed) const {
    const size_t most = pieceBytes_ + (pieceBytes_ + 127) / 128;
    packed.bytes.resize(std::max(packed.bytes.size(), size_t(end - first) * size_t(columns_) * most));
    packed.ends.clear();
    const bool swapped = shape_.bits == 16 && TIFFIsByteSwapped(*file_);
    std::vector<uint8_t> scratch, planes;
    size_t at = 0;
    for (int32_t y = first; y < end; ++y)
      for (int32_t column = 0; column < columns_; ++column) {
        Bytes samples = piece(rows, y, column, scratch);
        if (swapped) {
          if (samples.data() != scratch.data()) scratch.assign(samples.begin(), samples.end());
          swapBytes(scratch.data(), int32_t(scratch.size() / 2), planes);
          samples = scratch;
        }
        uint32_t bytes = 0;
        expectOk(qeliPackBitsRow_TIFF_8u_C1(samples.data(), int32_t(samples.size()), &packed.bytes[at], &bytes,
                                            int32_t(most)),
                 "packing a row");
        packed.ends.push_back(at += bytes);
      }
  }

  // From rows or from what they are packed to.
  void put(const Rows& rows, int32_t first, int32_t end, const Pieces* packed) {
    std::vector<uint8_t> scratch;
    size_t number = 0, begin = 0;
    for (int32_t y = first; y < end; ++y) {
      if (const int32_t behind = std::min(y + down_, shape_.height); y % down_ == 0 && behind <= end) {
        const Bytes whole = wholeStrip(rows, y, behind, packed, begin, number);
        if (!whole.empty()) {
          putSegment(const_cast<uint8_t*>(whole.data()), whole.size());
          begin += whole.size(), number += size_t(behind - y);
          y = behind - 1;
          continue;
        }
      }
      for (int32_t column = 0; column < columns_; ++column, ++number) {
        Bytes bytes;
        if (packed) bytes = Bytes(packed->bytes).subspan(begin, packed->ends[number] - begin);
        else bytes = piece(rows, y, column, scratch);
        begin += bytes.size();
        auto& segment = segments_[size_t(column)];
        const int repeated = tiled_ && y + 1 == shape_.height ? (down_ - shape_.height % down_) % down_ : 0;
        for (int i = 0; i <= repeated; ++i) segment.insert(segment.end(), bytes.begin(), bytes.end());
      }
      if ((y + 1) % down_ == 0 || y + 1 == shape_.height)
        for (auto& segment : segments_) {
          putSegment(segment.data(), segment.size());
          segment.clear();
        }
    }
  }
  // A strip as it lies in memory, where it does and libtiff leaves it as it is; else nothing.
  Bytes wholeStrip(const Rows& rows, int32_t y, int32_t behind, const Pieces* packed, size_t begin,
                   size_t number) const {
    if (tiled_) return {};
    if (packed) return Bytes(packed->bytes).subspan(begin, packed->ends[number + size_t(behind - y) - 1] - begin);
    const bool changes = !plain_ || (shape_.bits == 16 && TIFFIsByteSwapped(*file_));
    if (changes || !rows.inOnePiece(y, behind - y)) return {};
    return {rows.row(y), size_t(behind - y) * pieceBytes_};
  }
  void putSegment(uint8_t* bytes, size_t count) {
    const auto putOne = packs_   ? tiled_ ? TIFFWriteRawTile : TIFFWriteRawStrip
                        : tiled_ ? TIFFWriteEncodedTile
                                 : TIFFWriteEncodedStrip;
    file_->expect(putOne(*file_, index_++, bytes, tmsize_t(count)) >= 0);
  }

  const std::shared_ptr<File> file_;
  const Shape shape_;
  const bool tiled_, packs_, plain_;
  const int32_t across_, down_, columns_;  // of a segment, and how many are side by side
  const size_t pieceBytes_;
  std::vector<Pieces> packed_;                  // by slot
  std::vector<std::vector<uint8_t>> segments_;  // side by side, as far as they are there
  uint32_t index_ = 0;
};

// --- byte planes: a 16-bit picture as two 8-bit ones, high bytes first -------------------------------------

std::array<Image, 2> split(const Image& wide) {
  std::array<Image, 2> planes = {Image(wide, wide.colour, 8), Image(wide, wide.colour, 8)};
  for (int32_t y = 0; y < wide.height; ++y) {
    uint8_t* const rows[] = {planes[0].row(y), planes[1].row(y)};
    expectOk(
        qeliSplitRow_TIFF_16u8u_C1(reinterpret_cast<const uint16_t*>(wide.row(y)), rows, wide.width * wide.channels()),
        "splitting samples");
  }
  return planes;
}

}  // namespace

std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options& options, Stages& stages, Destination& out) {
  if ((shape.bits != 8 && shape.bits != 16) || options.has("byte-planes")) return nullptr;
  Plan plan(shape, options, stages);
  return std::make_unique<Sink>(begin(plan, out), shape, plan);
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  const Image image =
      original.half ? original
                    : wholeBytes(adapt(original, stages,
                                       {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha, Colour::cmyk}));
  Plan plan(image, options, stages);
  const bool byPlanes = options.has("byte-planes");
  if (byPlanes && (image.bits != 16 || image.half)) throw Error("only pictures of more than 8 bits have byte planes");
  MemoryOutput out;
  const auto file = begin(plan, out);
  file->lookAt(out.bytes);
  const auto put = [&](const Image& picture) {
    Sink sink(file, picture, plan);
    writeWhole(picture, StripRows::rowsOfStrip(picture), sink, stages);
  };
  if (byPlanes)
    for (const Image& plane : split(image)) put(plane);
  else put(image);
  return std::move(out.bytes);
}

}  // namespace qelconv::tiff
