// PNG, through libpng: 8 and 16 bits, every colour type; palettes and small depths are spread to 8 bits.
#include <png.h>

#include <cmath>
#include <cstdlib>
#include <ostream>

#include "exif.h"
#include "file_limits.h"
#include "format.h"
#include "rows.h"

namespace qelconv {
namespace {

struct Place {
  Bytes file;
  size_t at;
};

void fail(png_structp, png_const_charp message) { throw Damaged(std::string("not a readable PNG: ") + message); }
void ignore(png_structp, png_const_charp) {}

void pull(png_structp png, png_bytep to, size_t n) {
  auto& place = *static_cast<Place*>(png_get_io_ptr(png));
  if (n > place.file.size() - place.at) throw Truncated();
  std::memcpy(to, place.file.data() + place.at, n);
  place.at += n;
}
void push(png_structp png, png_bytep from, size_t n) { static_cast<Destination*>(png_get_io_ptr(png))->put({from, n}); }
void flush(png_structp) {}

// libpng makes room for a chunk by its stated length before it looks for the bytes; rows and whole profiles need less.
png_voidp makeRoom(png_structp, png_alloc_size_t bytes) {
  constexpr png_alloc_size_t kMost = 8 << 20;
  return bytes <= kMost ? std::malloc(bytes) : nullptr;
}
void releaseRoom(png_structp, png_voidp room) { std::free(room); }

// libpng's records, released on every way out.
struct ReadRecord {
  png_structp png =
      png_create_read_struct_2(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore, nullptr, makeRoom, releaseRoom);
  png_infop info = png_create_info_struct(png);
  ~ReadRecord() { png_destroy_read_struct(&png, &info, nullptr); }
};
struct WriteRecord {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
  png_infop info = png_create_info_struct(png);
  ~WriteRecord() { png_destroy_write_struct(&png, &info); }
};

Metadata metadataOf(const ReadRecord& r) {
  Metadata metadata;
  png_charp name = nullptr;
  int kind = 0;
  png_bytep bytes = nullptr;
  png_uint_32 length = 0;
  if (png_get_iCCP(r.png, r.info, &name, &kind, &bytes, &length)) metadata.profile.assign(bytes, bytes + length);
  if (png_get_eXIf_1(r.png, r.info, &length, &bytes)) metadata.exif.assign(bytes, bytes + length);
  png_uint_32 x = 0, y = 0;
  if (png_get_pHYs(r.png, r.info, &x, &y, &kind))
    metadata.density = kind == PNG_RESOLUTION_METER ? Density{x / 100.0, y / 100.0, Density::kCentimetre}
                                                    : Density{double(x), double(y)};
  png_textp texts = nullptr;
  int count = 0;
  png_get_text(r.png, r.info, &texts, &count);
  for (int i = 0; i < count; ++i)
    metadata.others.push_back(std::strcmp(texts[i].key, "XML:com.adobe.xmp") ? "texts" : "XMP data");
  return metadata;
}

// libpng looks at what it is given, and takes no profile that fits the picture's colours badly.
void setMetadata(WriteRecord& w, const Metadata& metadata, Stages& stages) {
  const std::vector<uint8_t>&profile = metadata.profile, &exif = metadata.exif;
  png_set_benign_errors(w.png, 1);
  if (!profile.empty()) {
    png_set_iCCP(w.png, w.info, "ICC", PNG_COMPRESSION_TYPE_BASE, profile.data(), png_uint_32(profile.size()));
    if (!png_get_valid(w.png, w.info, PNG_INFO_iCCP)) stages.lose("the colour profile is not valid, and dropped");
  }
  if (!exif.empty()) {
    std::vector<uint8_t> copy = exif;
    png_set_eXIf_1(w.png, w.info, png_uint_32(copy.size()), copy.data());
    if (!png_get_valid(w.png, w.info, PNG_INFO_eXIf)) stages.lose("the EXIF data are not valid, and dropped");
  }
  png_set_benign_errors(w.png, 0);
  constexpr double kCentimetres = 2.54;  // an inch
  const Density density = densityOf(metadata);
  const double scale = density.unit == Density::kInch ? 100 / kCentimetres : density.unit ? 100 : 1;
  const double x = std::round(density.x * scale), y = std::round(density.y * scale);
  if (density.isKnown() && std::min(x, y) >= 1 && std::max(x, y) <= PNG_UINT_31_MAX)
    png_set_pHYs(w.png, w.info, png_uint_32(x), png_uint_32(y),
                 density.unit ? PNG_RESOLUTION_METER : PNG_RESOLUTION_UNKNOWN);
}

bool recognises(Bytes file) { return file.size() >= 8 && png_sig_cmp(file.data(), 0, 8) == 0; }

// Rows that are worth a step: whole MCUs of what may take them.
constexpr int32_t kRowsOfStrip = 16;

class Source : public RowSource {
 public:
  Source(const Contents& contents, const Options& options, Stages& stages)
      : contents_(contents), limits_(contents, options), stages_(stages), place_{contents, 0} {
    png_set_read_fn(r_.png, &place_, pull);
    png_read_info(r_.png, r_.info);
    constexpr uint64_t kDensest = 1032;  // what deflate makes of a byte at most
    limits_.expectData(contents.bytes().size(),
                       png_get_rowbytes(r_.png, r_.info) * png_get_image_height(r_.png, r_.info) / kDensest, 8);
    png_set_expand(r_.png);
    if (png_get_bit_depth(r_.png, r_.info) == 16) png_set_swap(r_.png);
    passes_ = png_set_interlace_handling(r_.png);
    png_read_update_info(r_.png, r_.info);
    constexpr Colour kByChannels[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
    limits_.expectPicture(png_get_image_width(r_.png, r_.info), png_get_image_height(r_.png, r_.info),
                          png_get_channels(r_.png, r_.info), png_get_bit_depth(r_.png, r_.info));
    shape_ = {int32_t(png_get_image_width(r_.png, r_.info)),
              int32_t(png_get_image_height(r_.png, r_.info)),
              kByChannels[png_get_channels(r_.png, r_.info) - 1],
              png_get_bit_depth(r_.png, r_.info),
              false,
              metadataOf(r_)};
  }
  bool isInterlaced() const { return passes_ > 1; }

  StripRows strips() const override { return StripRows::of(shape_.height, kRowsOfStrip); }
  std::vector<Step> steps(Rows& rows, int32_t) override {
    return {{"read PNG", true, [this, &rows](int32_t strip) {
               const int32_t first = strip * kRowsOfStrip, end = strips().behind(strip);
               take([&](int32_t y) { return rows.row(y); }, first, end);
               contents_.forget(place_.at);
               if (end == shape_.height) finish();
             }}};
  }
  std::string missing() const override { return missing_; }

  // All passes of all rows.
  Image readInterlaced() {
    Image image(shape_, shape_.colour, shape_.bits);
    for (int pass = 0; pass < passes_; ++pass) take([&](int32_t y) { return image.row(y); }, 0, image.height);
    finish();
    image.missing = missing_;
    return image;
  }

 private:
  // Behind the samples there may be EXIF data, and texts.
  void finish() {
    decode([&] { png_read_end(r_.png, r_.info); });
    const Metadata all = metadataOf(r_);
    if (all.exif != shape_.metadata.exif) stages_.lose("EXIF data behind the samples are dropped");
    if (all.others.size() != shape_.metadata.others.size()) stages_.lose("texts behind the samples are dropped");
  }
  template <class RowOf>
  void take(RowOf&& rowOf, int32_t first, int32_t end) {
    int32_t y = first;
    decode([&] {
      for (; y < end; ++y) png_read_row(r_.png, rowOf(y), nullptr);
    });
    if (!isInterlaced())
      for (; y < end; ++y) std::memset(rowOf(y), 0, size_t(shape_.step()));
  }
  template <class Work>
  void decode(Work&& work) {
    if (!missing_.empty()) return;
    try {
      work();
    } catch (const Damaged& e) {
      limits_.expectWhole(e.what());
      missing_ = e.what();
    }
  }

  const Contents& contents_;
  const Limits limits_;
  Stages& stages_;
  ReadRecord r_;
  Place place_;
  int passes_ = 1;
  std::string missing_;
};

Image read(Bytes file, const Options& options, Stages& stages) {
  const Contents contents(file);
  Source source(contents, options, stages);
  if (source.isInterlaced()) return stages.time("read PNG", [&] { return source.readInterlaced(); });
  return readWhole(source, stages);
}

std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  auto source = std::make_unique<Source>(contents, options, stages);
  if (source->isInterlaced()) return nullptr;
  return source;
}

class Sink : public RowSink {
 public:
  Sink(const Shape& shape, const Options& options, Stages& stages, Destination& out) {
    png_set_write_fn(w_.png, &out, push, flush);
    constexpr int kTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGBA};
    png_set_IHDR(w_.png, w_.info, png_uint_32(shape.width), png_uint_32(shape.height), shape.bits,
                 kTypes[shape.channels() - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    setMetadata(w_, shape.metadata, stages);
    png_set_compression_level(w_.png, options.integer("compression", 3, 0, 9));
    png_write_info(w_.png, w_.info);
    if (shape.bits == 16) png_set_swap(w_.png);
  }
  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t) override {
    return {{"write PNG", true, [this, &rows, strips](int32_t strip) {
               for (int32_t y = strips.first(strip); y < strips.behind(strip); ++y) png_write_row(w_.png, rows.row(y));
             }}};
  }
  void finish() override { png_write_end(w_.png, nullptr); }

 private:
  WriteRecord w_;
};

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  const Image image = stages.time("write PNG", [&] {
    return wholeBytes(adapt(original, stages, {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha}));
  });
  MemoryOutput out;
  Sink sink(image, options, stages, out);
  writeWhole(image, kRowsOfStrip, sink, stages);
  return std::move(out.bytes);
}

std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options& options, Stages& stages, Destination& out) {
  if (shape.half || shape.colour == Colour::cmyk || (shape.bits != 8 && shape.bits != 16)) return nullptr;
  return std::make_unique<Sink>(shape, options, stages, out);
}

void describe(Bytes file, Facts& facts) {
  ReadRecord r;
  Place place{file, 0};
  png_set_read_fn(r.png, &place, pull);
  png_read_info(r.png, r.info);
  constexpr const char* kColours[] = {"grey", "", "RGB", "palette", "grey with alpha", "", "RGBA"};
  facts.picture("PNG", png_get_image_width(r.png, r.info), png_get_image_height(r.png, r.info),
                kColours[png_get_color_type(r.png, r.info)], png_get_bit_depth(r.png, r.info));
  facts.add("interlaced", png_get_interlace_type(r.png, r.info) != PNG_INTERLACE_NONE);
}

}  // namespace

extern const Format kPng;
const Format kPng = {"PNG",
                     {".png"},
                     {{"compression", "N", "deflate level 0 to 9 (3)"}},
                     recognises,
                     read,
                     write,
                     describe,
                     kProfile | kExif,
                     readRows,
                     writeRows};

}  // namespace qelconv
