// PNG, through libpng: 8 and 16 bits, every colour type; palettes and small depths are spread to 8 bits.
#include <png.h>

#include <ostream>

#include "file_limits.h"
#include "format.h"

namespace qelconv {
namespace {

struct Source {
  Bytes file;
  size_t at;
};

void fail(png_structp, png_const_charp message) { throw Damaged(std::string("not a readable PNG: ") + message); }
void ignore(png_structp, png_const_charp) {}

void pull(png_structp png, png_bytep to, size_t n) {
  auto& source = *static_cast<Source*>(png_get_io_ptr(png));
  if (n > source.file.size() - source.at) throw Truncated();
  std::memcpy(to, source.file.data() + source.at, n);
  source.at += n;
}
void push(png_structp png, png_bytep from, size_t n) {
  auto& out = *static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  out.insert(out.end(), from, from + n);
}
void flush(png_structp) {}

// libpng's records, released on every way out.
struct ReadRecord {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
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
  return metadata;
}

// libpng looks at what it is given, and takes no profile that fits the picture's colours badly.
void setMetadata(WriteRecord& w, const Metadata& metadata, Stages& stages) {
  const auto& [profile, exif] = metadata;
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
}

bool recognises(Bytes file) { return file.size() >= 8 && png_sig_cmp(file.data(), 0, 8) == 0; }

Image read(Bytes file, const Options& options, Stages& stages) {
  return stages.time("read PNG", [&] {
    const Limits limits(file, options);
    ReadRecord r;
    Source source{file, 0};
    png_set_read_fn(r.png, &source, pull);
    png_read_info(r.png, r.info);
    constexpr uint64_t kDensest = 1032;  // what deflate makes of a byte at most
    limits.expectData(file.size(), png_get_rowbytes(r.png, r.info) * png_get_image_height(r.png, r.info) / kDensest, 8);
    png_set_expand(r.png);
    if (png_get_bit_depth(r.png, r.info) == 16) png_set_swap(r.png);
    const int passes = png_set_interlace_handling(r.png);
    png_read_update_info(r.png, r.info);
    constexpr Colour kByChannels[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
    limits.expectPicture(png_get_image_width(r.png, r.info), png_get_image_height(r.png, r.info),
                         png_get_channels(r.png, r.info), png_get_bit_depth(r.png, r.info));
    Image image(int32_t(png_get_image_width(r.png, r.info)), int32_t(png_get_image_height(r.png, r.info)),
                kByChannels[png_get_channels(r.png, r.info) - 1], png_get_bit_depth(r.png, r.info));
    try {
      for (int pass = 0; pass < passes; ++pass)
        for (int32_t y = 0; y < image.height; ++y) png_read_row(r.png, image.row(y), nullptr);
      png_read_end(r.png, r.info);
    } catch (const Damaged& e) {
      limits.onlyPart(image, e.what());
    }
    image.metadata = metadataOf(r);
    return image;
  });
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  return stages.time("write PNG", [&] {
    const Image image =
        wholeBytes(adapt(original, stages, {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha}));
    std::vector<uint8_t> out;
    WriteRecord w;
    png_set_write_fn(w.png, &out, push, flush);
    constexpr int kTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGBA};
    png_set_IHDR(w.png, w.info, png_uint_32(image.width), png_uint_32(image.height), image.bits,
                 kTypes[image.channels() - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    setMetadata(w, image.metadata, stages);
    png_set_compression_level(w.png, options.integer("compression", 3, 0, 9));
    png_write_info(w.png, w.info);
    if (image.bits == 16) png_set_swap(w.png);
    for (int32_t y = 0; y < image.height; ++y) png_write_row(w.png, image.row(y));
    png_write_end(w.png, nullptr);
    return out;
  });
}

void describe(Bytes file, Facts& facts) {
  ReadRecord r;
  Source source{file, 0};
  png_set_read_fn(r.png, &source, pull);
  png_read_info(r.png, r.info);
  constexpr const char* kColours[] = {"grey", "", "RGB", "palette", "grey with alpha", "", "RGBA"};
  facts.picture("PNG", png_get_image_width(r.png, r.info), png_get_image_height(r.png, r.info),
                kColours[png_get_color_type(r.png, r.info)], png_get_bit_depth(r.png, r.info));
  facts.add("interlaced", png_get_interlace_type(r.png, r.info) != PNG_INTERLACE_NONE);
}

}  // namespace

extern const Format kPng;
const Format kPng = {
    "PNG",    {".png"},        {{"compression", "N", "deflate level 0 to 9 (3)"}}, recognises, read, write,
    describe, kProfile | kExif};

}  // namespace qelconv
