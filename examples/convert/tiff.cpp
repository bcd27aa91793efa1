#include "tiff.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace qelconv::tiff {

// --- files, as libtiff asks for them -----------------------------------------------------------------------

// What libtiff calls.
struct File::Calls {
  static File& of(thandle_t handle) { return *static_cast<File*>(handle); }

  static int remember(TIFF*, void* handle, const char*, const char* format, va_list values) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, values);
    of(handle).message_ = text;
    return 1;
  }
  static int ignore(TIFF*, void*, const char*, const char*, va_list) { return 1; }
  static tmsize_t read(thandle_t handle, void* to, tmsize_t n) {
    File& f = of(handle);
    const Bytes from = f.bytes();
    const auto count = size_t(std::min<uint64_t>(from.size() - std::min<uint64_t>(f.at_, from.size()), uint64_t(n)));
    if (count) std::memcpy(to, &from[size_t(f.at_)], count);
    f.at_ += count;
    return tmsize_t(count);
  }
  static tmsize_t write(thandle_t handle, void* from, tmsize_t n) {
    File& f = of(handle);
    if (!f.out_ || f.thrown_) return 0;
    try {
      f.write({static_cast<const uint8_t*>(from), size_t(n)});
      return n;
    } catch (...) {
      f.thrown_ = std::current_exception();
      return 0;
    }
  }
  static toff_t seek(thandle_t handle, toff_t offset, int from) {
    File& f = of(handle);
    return f.at_ = offset + (from == SEEK_CUR ? f.at_ : from == SEEK_END ? f.end() : 0);
  }
  static int close(thandle_t) { return 0; }
  static toff_t size(thandle_t handle) { return of(handle).end(); }
};

File::File(Bytes file, unsigned directory) : file_(file), tiff_(open("rmc")) {
  expect(tiff_ != nullptr);
  for (; directory > 0; --directory) expect(TIFFReadDirectory(*this));
}

File::File(Destination& out, bool bigEndian, bool bigTiff) : out_(&out), big_(bigTiff) {
  out.expectPatches();
  tiff_.reset(open((std::string("w") + (bigEndian ? "b" : "l") + (bigTiff ? "8" : "")).c_str()));
  expect(tiff_ != nullptr);
}

// libtiff would write what is there of a picture that failed.
File::~File() { out_ = nullptr; }

TIFF* File::open(const char* mode) {
  const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                             TIFFOpenOptionsFree);
  constexpr tmsize_t kMostAtOnce = 64 << 20;  // beyond a file's own size
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostAtOnce + tmsize_t(file_.size()));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), Calls::remember, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), Calls::ignore, nullptr);
  return TIFFClientOpenExt("the file", mode, this, Calls::read, Calls::write, Calls::seek, Calls::close, Calls::size,
                           nullptr, nullptr, options.get());
}

// Over what is there already, and behind it.
void File::write(Bytes bytes) {
  constexpr uint8_t kNothing[8] = {};
  while (put_ < at_) {  // places are even
    const auto gap = size_t(std::min<uint64_t>(at_ - put_, sizeof kNothing));
    out_->put({kNothing, gap}), put_ += gap;
  }
  const Bytes over = bytes.first(size_t(std::min<uint64_t>(put_ - at_, bytes.size())));
  if (!over.empty()) out_->patch(size_t(at_), over);
  at_ += bytes.size();
  const Bytes more = bytes.subspan(over.size());
  if (!more.empty()) out_->put(more), put_ += more.size();
}

uint64_t File::append(const std::vector<Field>& fields) {
  std::vector<uint8_t> bytes(static_cast<size_t>(put_));
  const uint64_t place = appendDirectory(bytes, fields, TIFFIsBigEndian(*this), big_);
  at_ = put_;
  write(Bytes(bytes).subspan(size_t(put_)));
  return place;
}

void File::fail() const {
  if (thrown_) std::rethrow_exception(thrown_);
  throw Damaged(message_.empty() ? "not a readable TIFF" : message_);
}

void swapBytes(uint8_t* row, int32_t samples, std::vector<uint8_t>& scratch) {
  scratch.resize(2 * size_t(samples));
  uint8_t* const planes[] = {scratch.data(), scratch.data() + samples};
  const uint8_t* const exchanged[] = {planes[1], planes[0]};
  auto* words = reinterpret_cast<uint16_t*>(row);
  expectOk(qeliSplitRow_TIFF_16u8u_C1(words, planes, samples), "splitting samples");
  expectOk(qeliJoinRow_TIFF_8u16u_C1(exchanged, words, samples), "joining samples");
}

// --- the format --------------------------------------------------------------------------------------------

namespace {

bool recognises(Bytes file) {
  return file.size() >= 8 && (std::memcmp(file.data(), "II*\0", 4) == 0 || std::memcmp(file.data(), "MM\0*", 4) == 0 ||
                              std::memcmp(file.data(), "II+\0", 4) == 0 || std::memcmp(file.data(), "MM\0+", 4) == 0);
}

void describe(Bytes file, Facts& facts) {
  File in(file);
  const Picture p = examine(in);
  const std::string segment = std::to_string(p.across) + "x" + std::to_string(p.down);
  facts.picture(TIFFIsBigTIFF(in) ? "BigTIFF" : "TIFF", p.width, p.height,
                p.palette.empty() ? nameOf(p.colour) : "palette", p.bits);
  facts.add("floats", p.half)
      .add("packing", p.compression->name)
      .add(p.tiled ? "tiles of" : "strips of", segment)
      .add("separate planes", p.separate)
      .add("big-endian", bool(TIFFIsBigEndian(in)))
      .add("pictures", size_t(TIFFNumberOfDirectories(in)));
}

}  // namespace
}  // namespace qelconv::tiff

namespace qelconv {

extern const Format kTiff;
const Format kTiff = {"TIFF",
                      {".tif", ".tiff"},
                      {{"packing", "KIND", "packbits|none|lzw|deflate, how strips are compressed (packbits)"},
                       {"tiles", "WxH", "tiles in place of strips, of multiples of 16"},
                       {"big-endian", nullptr, "write the file in big-endian order"},
                       {"big-tiff", nullptr, "write a BigTIFF, for more than 4 GB"},
                       {"byte-planes", nullptr, "16-bit pictures as two of 8 bits, high bytes first, and back"}},
                      tiff::recognises,
                      tiff::read,
                      tiff::write,
                      tiff::describe,
                      kProfile | kExif,
                      tiff::readRows,
                      tiff::writeRows};

}  // namespace qelconv
