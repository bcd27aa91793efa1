// Reading TIFF files: by segments, which are strips or tiles, or where strips are large by their rows.
#include <algorithm>
#include <climits>
#include <optional>

#include "file_limits.h"
#include "orientation.h"
#include "tiff.h"

namespace qelconv::tiff {
namespace {

const Compression* compressionOf(unsigned code) {
  static constexpr Compression kRead[] = {{COMPRESSION_NONE, "uncompressed", 1},
                                          {COMPRESSION_PACKBITS, "PackBits", 64},
                                          {COMPRESSION_LZW, "LZW", 2731},  // strings of up to 4096 bytes for 12 bits
                                          {COMPRESSION_DEFLATE, "Deflate", 1032},
                                          {COMPRESSION_ADOBE_DEFLATE, "Deflate", 1032},
                                          {COMPRESSION_CCITTRLE, "fax", 0},
                                          {COMPRESSION_CCITTFAX3, "fax", 0},
                                          {COMPRESSION_CCITTFAX4, "fax", 0},
                                          {COMPRESSION_JPEG, "JPEG", 512},  // 16 x 16 pixels for 12 bits, two a block
                                          {COMPRESSION_LZMA, "LZMA", 0},
                                          {COMPRESSION_ZSTD, "Zstandard", 0},
                                          {COMPRESSION_WEBP, "WebP", 0},
                                          {COMPRESSION_LERC, "LERC", 0}};
  const auto* const found =
      std::find_if(std::begin(kRead), std::end(kRead), [&](const Compression& one) { return one.code == code; });
  if (found == std::end(kRead)) throw Error("the compression " + std::to_string(code) + " can't be read");
  if (!TIFFIsCODECConfigured(uint16_t(code)))
    throw Error(std::string("the compression ") + found->name + " can't be read by this libtiff");
  return found;
}

std::string nameOfInterpretation(unsigned code) {
  static constexpr struct {
    unsigned code;
    const char* name;
  } kNames[] = {{PHOTOMETRIC_MASK, "mask"},     {PHOTOMETRIC_YCBCR, "YCbCr"},
                {PHOTOMETRIC_CIELAB, "CIELab"}, {PHOTOMETRIC_ICCLAB, "ICCLab"},
                {PHOTOMETRIC_ITULAB, "ITULab"}, {PHOTOMETRIC_CFA, "colour filter array"},
                {PHOTOMETRIC_LOGL, "LogL"},     {PHOTOMETRIC_LOGLUV, "LogLuv"}};
  for (const auto& one : kNames)
    if (one.code == code) return std::to_string(code) + " (" + one.name + ")";
  return std::to_string(code);
}

void readPalette(File& in, Picture& p) {
  uint16_t* map[3];
  if (p.channels != 1 || p.bits > 8 || !TIFFGetField(in, TIFFTAG_COLORMAP, &map[0], &map[1], &map[2]))
    throw Error("a palette of this kind can't be read");
  p.palette.resize(size_t(1) << p.bits);
  // Some writers give bytes in place of 16-bit values.
  int shift = 0;
  for (const uint16_t* values : map)
    for (size_t i = 0; i < p.palette.size(); ++i) shift = values[i] > 255 ? 8 : shift;
  for (size_t i = 0; i < p.palette.size(); ++i)
    for (size_t c = 0; c < 3; ++c) p.palette[i][c] = uint8_t(map[c][i] >> shift);
}

}  // namespace

Picture examine(File& in) {
  Picture p{};
  p.width = in.field<uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
  p.height = in.field<uint32_t>(TIFFTAG_IMAGELENGTH, 0);
  p.channels = in.field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
  p.bits = in.field<uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
  const int kind = in.field<uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  p.half = kind == SAMPLEFORMAT_IEEEFP && p.bits == 16;
  const bool whole = kind == SAMPLEFORMAT_UINT || kind == SAMPLEFORMAT_VOID;
  if (!p.half && (!whole || (p.bits != 1 && p.bits != 2 && p.bits != 4 && p.bits != 8 && p.bits != 16)))
    throw Error("only unsigned samples of 1, 2, 4, 8 and 16 bits and half-floats can be read");
  p.compression = compressionOf(in.field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE));

  unsigned photometric = in.field<uint16_t>(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  p.inverted = photometric == PHOTOMETRIC_MINISWHITE;
  const uint16_t* extras = nullptr;
  uint16_t extra = 0;
  TIFFGetFieldDefaulted(in, TIFFTAG_EXTRASAMPLES, &extra, &extras);
  constexpr Colour kColours[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
  p.separate = p.channels > 1 && in.field<uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
  // The chroma of JPEG comes back as RGB where all channels are together.
  if (p.compression->code == COMPRESSION_JPEG && photometric == PHOTOMETRIC_YCBCR && !p.separate &&
      TIFFSetField(in, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB))
    photometric = PHOTOMETRIC_RGB;
  const bool grey = photometric <= PHOTOMETRIC_MINISBLACK && p.channels <= 2;
  const bool rgb = photometric == PHOTOMETRIC_RGB && (p.channels == 3 || p.channels == 4);
  if (photometric == PHOTOMETRIC_PALETTE) {
    readPalette(in, p);
    p.colour = Colour::rgb;
  } else if (p.channels >= 1 && (grey || rgb)) {
    p.colour = kColours[p.channels - 1];
    p.multiplied = p.channels % 2 == 0 && extra && extras[0] == EXTRASAMPLE_ASSOCALPHA;
  } else if (photometric == PHOTOMETRIC_SEPARATED && p.channels == 4) {
    p.colour = Colour::cmyk;
  } else {
    throw Error("the photometric interpretation " + nameOfInterpretation(photometric) + " with " +
                std::to_string(p.channels) + " channels can't be read");
  }
  checkDimensions(p.width, p.height, p.channels);
  p.tiled = TIFFIsTiled(in);
  p.reversed = in.field<uint16_t>(TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_LSB2MSB;
  p.swapped = TIFFIsByteSwapped(in);
  p.across = p.tiled ? in.field<uint32_t>(TIFFTAG_TILEWIDTH, 0) : p.width;
  p.down = p.tiled ? in.field<uint32_t>(TIFFTAG_TILELENGTH, 0)
                   : std::min<int64_t>(std::max(in.field<uint32_t>(TIFFTAG_ROWSPERSTRIP, UINT32_MAX), 1u), p.height);
  if (p.tiled) checkDimensions(p.across, p.down, p.together());
  if (p.tiled && p.rowBytes() * uint64_t(p.down) >= INT32_MAX) throw Error("a strip or tile is too large");
  return p;
}

namespace {

// The coded bytes of a segment in PackBits, from which its rows come one by one. Rows may be cut anywhere by a damaged
// file: a byte follows that is readable, since a run's value is read wherever its header is, and a run that ends in it
// isn't whole.
class Packed {
 public:
  Packed() = default;
  Packed(File& in, uint32_t index, bool reversed) {
    const uint64_t offset = TIFFGetStrileOffset(in, index), count = TIFFGetStrileByteCount(in, index);
    Reader at(in.file());
    at.seek(size_t(std::min<uint64_t>(offset, SIZE_MAX)));
    coded_ = at.take(size_t(std::min<uint64_t>(count, at.left())));
    cut_ = coded_.size() < count;
    guarded_ = at.left() > 0;
    if (!reversed) return;
    guard();
    TIFFReverseBits(own_.data(), tmsize_t(coded_.size()));
  }
  Packed(Packed&&) = default;
  Packed& operator=(Packed&&) = default;
  bool isCut() const { return cut_; }
  // How far the rows have come in a file; 0 where its bytes were taken at once.
  uint64_t place(Bytes file) const {
    return own_.empty() && !coded_.empty() ? uint64_t(coded_.data() - file.data()) : 0;
  }

  bool unpack(uint8_t* row, int32_t bytes) {
    if (coded_.empty()) return false;
    // The last byte of a file is at first left for what may follow the others.
    if (take(row, bytes, coded_.size() - !guarded_)) return true;
    if (guarded_) return false;
    guard();
    return take(row, bytes, coded_.size());
  }

 private:
  void guard() {
    constexpr uint8_t kNoToken = 0x80;
    own_.assign(coded_.begin(), coded_.end());
    own_.push_back(kNoToken);
    coded_ = Bytes(own_).first(coded_.size());
    guarded_ = true;
  }
  bool take(uint8_t* row, int32_t bytes, size_t length) {
    uint32_t position = 0;
    const auto most = int32_t(std::min<size_t>(length, INT32_MAX));
    if (qeliUnpackBitsRow_TIFF_8u_C1(coded_.data(), &position, most, row, bytes) != qelStatusOk ||
        position > coded_.size())
      return false;
    coded_ = coded_.subspan(position);
    return true;
  }

  Bytes coded_;  // what is left of them
  bool cut_ = false, guarded_ = false;
  std::vector<uint8_t> own_;
};

Metadata metadataOf(File& in, Stages& stages);

class Source : public RowSource {
 public:
  Source(const Contents& contents, const Options& options, Stages& stages, unsigned directory = 0)
      : contents_(contents), limits_(contents, options), wrong_(limits_) {
    files_.push_back(std::make_unique<File>(contents, directory));
    p_ = examine(in());
    checkLimits();
    shape_ = {int32_t(p_.width), int32_t(p_.height),
              p_.colour,         p_.palette.empty() ? p_.bits : 8,
              p_.half,           directory ? Metadata() : metadataOf(in(), stages)};
    inPlace_ = p_.bits >= 8 && !p_.separate && p_.palette.empty();
    byRows_ = !p_.tiled && uint64_t(p_.down) * p_.rowBytes() > kLargeStrip;
    if (!byRows_) return;
    // Each plane goes on where it was.
    while (files_.size() < size_t(p_.planes())) files_.push_back(std::make_unique<File>(contents, directory));
    runs_.resize(files_.size());
    if (!p_.packBits() && TIFFScanlineSize64(in()) > p_.rowBytes()) throw Error("rows of this kind can't be read");
  }

  bool isLast() { return TIFFLastDirectory(in()); }

  StripRows strips() const override {
    const int32_t worth = StripRows::rowsOfStrip(shape_);
    if (byRows_) return StripRows::of(shape_.height, worth);
    const auto down = int32_t(p_.down);
    return StripRows::of(shape_.height, (worth + down - 1) / down * down);
  }

  // What PackBits has coded in segments of their own is read side by side.
  std::vector<Step> steps(Rows& rows, int32_t) override {
    const bool sideBySide = p_.packBits() && !byRows_;
    std::vector<Step> steps = {{"read TIFF", !sideBySide, [=, this, &rows](int32_t strip) {
                                  const int32_t first = strips().first(strip), end = strips().behind(strip);
                                  if (byRows_) readRows(rows, first, end);
                                  else readSegments(rows, first, end);
                                  finish(rows, first, end);
                                  if (!sideBySide) forget(end);
                                }}};
    if (sideBySide) steps.push_back({nullptr, true, [this](int32_t strip) { forget(strips().behind(strip)); }});
    return steps;
  }
  std::string missing() const override { return wrong_.why(); }

 private:
  // Strips that are larger than this are read by rows, for the sake of memory.
  static constexpr uint64_t kLargeStrip = 1 << 20;

  // Where a segment stands in the picture.
  struct Place {
    int64_t x, y;
    int plane;
    uint32_t index;
  };
  // A plane whose strips are read by rows: how far it is.
  struct Run {
    uint32_t index = UINT32_MAX;
    Packed packed;
    bool failed = false;
  };

  File& in() const { return *files_[0]; }

  void checkLimits() const {
    uint64_t coded = 0;
    const auto bytes = uint64_t((p_.width * p_.channels * p_.bits + 7) / 8 * p_.height);
    const int64_t segments =
        (p_.width + p_.across - 1) / p_.across * ((p_.height + p_.down - 1) / p_.down) * p_.planes();
    const uint64_t claimed = p_.tiled ? TIFFNumberOfTiles(in()) : TIFFNumberOfStrips(in());
    if (claimed < uint64_t(segments)) throw Error("strips are missing");
    for (int64_t i = 0; i < segments; ++i)
      coded += std::min<uint64_t>(TIFFGetStrileByteCount(in(), uint32_t(i)), in().file().size());
    TIFFGetStrileOffset(in(), 0);  // which, too, libtiff may read when it is first asked: later, threads ask
    if (p_.compression->densest) limits_.expectData(coded, bytes / p_.compression->densest, 8);
    limits_.expectWork(coded / 4);  // strips may share their bytes
    // What tiles have beyond the picture is decoded as well.
    limits_.expectWork(uint64_t(segments) * uint64_t(p_.down) * p_.rowBytes() / 16);
    limits_.expectPicture(p_.width, p_.height, p_.palette.empty() ? p_.channels : 3, p_.bits,
                          3 * uint64_t(p_.down) * p_.rowBytes());
  }

  uint32_t indexOf(int64_t x, int64_t y, int plane) const {
    return p_.tiled ? TIFFComputeTile(in(), uint32_t(x), uint32_t(y), 0, uint16_t(plane))
                    : TIFFComputeStrip(in(), uint32_t(y), uint16_t(plane));
  }

  // Whole segments, which begin with the first row.
  void readSegments(Rows& rows, int32_t first, int32_t end) {
    std::vector<uint8_t> scratch;
    for (int64_t y = first; y < end; y += p_.down)
      for (int plane = 0; plane < p_.planes(); ++plane)
        for (int64_t x = 0; x < p_.width; x += p_.across) {
          const Place place = {x, y, plane, indexOf(x, y, plane)};
          try {
            if (p_.packBits()) unpack(rows, place, scratch);
            else decode(rows, place, scratch);
          } catch (const Damaged& e) {
            wrong_.note(place.index, e.what());
          }
        }
  }

  int32_t rowsOf(const Place& place) const { return int32_t(std::min(p_.down, p_.height - place.y)); }

  // Where a segment's row is decoded to: to its place in the picture, where the bytes are the same and all of them have
  // one, else to some room, from where settle() takes it.
  uint8_t* roomFor(Rows& rows, const Place& place, int32_t y, std::vector<uint8_t>& scratch) const {
    if (inPlace_ && place.x + p_.across <= p_.width && y < p_.height)
      return rows.row(y) + size_t(place.x) * size_t(shape_.pixelBytes());
    scratch.resize(p_.rowBytes());
    return scratch.data();
  }
  void settle(const uint8_t* row, Rows& rows, const Place& place, int32_t y,
              const std::vector<uint8_t>& scratch) const {
    if (row == scratch.data() && y < p_.height) putRow(row, rows, place, y);
  }

  void unpack(Rows& rows, const Place& place, std::vector<uint8_t>& scratch) const {
    int32_t y = int32_t(place.y);
    const int32_t end = y + (p_.tiled ? int32_t(p_.down) : rowsOf(place));
    try {
      Packed packed(in(), place.index, p_.reversed);
      for (; y < end; ++y)
        if (!unpackRow(packed, rows, place, y, scratch)) throw Damaged(damageOf(y));
      if (packed.isCut()) throw Truncated();
    } catch (const Damaged&) {
      for (; y < end; ++y) clearRow(rows, place, y, scratch);
      throw;
    }
  }
  static std::string damageOf(int32_t y) { return "the PackBits data of row " + std::to_string(y) + " is damaged"; }

  bool unpackRow(Packed& packed, Rows& rows, const Place& place, int32_t y, std::vector<uint8_t>& scratch) const {
    const auto bytes = int32_t(p_.rowBytes());
    uint8_t* const row = roomFor(rows, place, y, scratch);
    if (!packed.unpack(row, bytes)) return false;
    if (p_.bits == 16 && p_.swapped) {
      std::vector<uint8_t> planes;
      swapBytes(row, bytes / 2, planes);
    }
    settle(row, rows, place, y, scratch);
    return true;
  }
  void clearRow(Rows& rows, const Place& place, int32_t y, std::vector<uint8_t>& scratch) const {
    uint8_t* const row = roomFor(rows, place, y, scratch);
    std::memset(row, 0, p_.rowBytes());
    settle(row, rows, place, y, scratch);
  }

  // By libtiff; what there is of a damaged segment stays.
  void decode(Rows& rows, const Place& place, std::vector<uint8_t>& scratch) const {
    const int32_t inside = rowsOf(place), top = int32_t(place.y);
    const size_t bytes = size_t(p_.tiled ? p_.down : inside) * p_.rowBytes();
    const bool direct = inPlace_ && !p_.tiled && rows.inOnePiece(top, inside);
    if (!direct) scratch.resize(bytes);
    uint8_t* const to = direct ? rows.row(top) : scratch.data();
    std::memset(to, 0, bytes);
    const tmsize_t done = p_.tiled ? TIFFReadEncodedTile(in(), place.index, to, tmsize_t(bytes))
                                   : TIFFReadEncodedStrip(in(), place.index, to, tmsize_t(bytes));
    for (int32_t r = 0; r < inside && !direct; ++r) putRow(to + size_t(r) * p_.rowBytes(), rows, place, top + r);
    in().expect(done == tmsize_t(bytes));
  }

  // The rows of large strips.
  void readRows(Rows& rows, int32_t first, int32_t end) {
    std::vector<uint8_t> scratch;
    for (int32_t y = first; y < end; ++y)
      for (int plane = 0; plane < p_.planes(); ++plane) {
        Run& run = runs_[size_t(plane)];
        const Place place = {0, y, plane, indexOf(0, y, plane)};
        try {
          readRow(rows, place, y, run, scratch);
        } catch (const Damaged& e) {
          wrong_.note(place.index, e.what());
          run.failed = true;
        }
        if (run.failed) clearRow(rows, place, y, scratch);
      }
  }
  void readRow(Rows& rows, const Place& place, int32_t y, Run& run, std::vector<uint8_t>& scratch) {
    const bool begins = std::exchange(run.index, place.index) != place.index;
    if (begins) run.failed = false;
    if (run.failed) return;
    File& file = *files_[size_t(place.plane)];
    if (p_.packBits()) {
      if (begins) run.packed = Packed(file, place.index, p_.reversed);
      if (!unpackRow(run.packed, rows, place, y, scratch)) throw Damaged(damageOf(y));
      const bool ends = (y + 1) % p_.down == 0 || y + 1 == p_.height;
      if (ends && run.packed.isCut()) wrong_.note(place.index, Truncated().what());
    } else {
      uint8_t* const row = roomFor(rows, place, y, scratch);
      file.expect(TIFFReadScanline(file, row, uint32_t(y), uint16_t(place.plane)) == 1);
      settle(row, rows, place, y, scratch);
    }
  }

  // A row of a segment into the picture.
  void putRow(const uint8_t* from, Rows& rows, const Place& place, int32_t y) const {
    const auto columns = size_t(std::min(p_.across, p_.width - place.x));
    const auto channels = size_t(p_.channels), together = size_t(p_.together());
    if (inPlace_) {
      const auto pixel = size_t(shape_.pixelBytes());
      std::memcpy(rows.row(y) + size_t(place.x) * pixel, from, columns * pixel);
      return;
    }
    const size_t first = size_t(place.x) * channels + size_t(place.plane);
    uint8_t* const row = rows.row(y);
    for (size_t i = 0; i < columns * together; ++i) {
      uint32_t v = 0;
      if (p_.bits == 16) {
        uint16_t word;
        std::memcpy(&word, from + 2 * i, 2);
        v = word;
      } else {
        const size_t bit = i * size_t(p_.bits);
        v = from[bit / 8] >> (8 - p_.bits - int(bit % 8)) & ((1u << p_.bits) - 1);
      }
      const size_t at = first + (p_.separate ? i * channels : i);
      if (p_.palette.empty()) shape_.setSampleIn(row, at, v);
      else std::memcpy(row + 3 * at, p_.palette[v].data(), 3);
    }
  }

  // What is about whole rows.
  void finish(Rows& rows, int32_t first, int32_t end) const {
    const uint32_t top = (1u << shape_.bits) - 1;
    const auto samples = size_t(p_.width) * size_t(p_.channels);
    for (int32_t y = first; y < end && (p_.inverted || p_.multiplied); ++y) {
      uint8_t* const row = rows.row(y);
      for (size_t i = 0; p_.inverted && i < samples; i += size_t(p_.channels))
        shape_.setSampleIn(row, i, shape_.sampleIn(row, i) ^ top);
      if (p_.multiplied) divideByAlpha(shape_, row);
    }
  }

  // What is in front of the rows that come next: segments of all channels mostly stand in the file as in the picture.
  void forget(int32_t end) {
    if (p_.separate) return;
    uint64_t place = TIFFGetStrileOffset(in(), indexOf(p_.width - 1, end - 1, 0));
    if (byRows_) place = p_.packBits() ? runs_[0].packed.place(contents_) : in().place();
    if (place <= forgotten_ || place > contents_.bytes().size()) return;
    forgotten_ = place;
    contents_.forget(size_t(place));
  }

  const Contents& contents_;
  const Limits limits_;
  FirstWrong wrong_;
  std::vector<std::unique_ptr<File>> files_;  // one, or one for each plane
  Picture p_;
  bool inPlace_, byRows_;
  std::vector<Run> runs_;  // by plane
  uint64_t forgotten_ = 0;
};

Metadata metadataOf(File& in, Stages& stages) {
  Metadata metadata = qelconv::metadataOf(takeExif(in.file(), stages));
  uint32_t length = 0;
  const uint8_t* profile = nullptr;
  if (TIFFGetField(in, TIFFTAG_ICCPROFILE, &length, &profile)) metadata.profile.assign(profile, profile + length);
  setOrientation(metadata, in.field<uint16_t>(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT));
  return metadata;
}

// --- byte planes: a 16-bit picture as two 8-bit ones, high bytes first -------------------------------------

Image join(const Image& high, const Image& low) {
  if (high.bits != 8 || low.bits != 8 || high.width != low.width || high.height != low.height ||
      high.colour != low.colour)
    throw Error("the first two pictures are no byte planes of one");
  Image wide(high, high.colour, 16);
  for (int32_t y = 0; y < wide.height; ++y) {
    const uint8_t* const rows[] = {high.row(y), low.row(y)};
    expectOk(qeliJoinRow_TIFF_8u16u_C1(rows, reinterpret_cast<uint16_t*>(wide.row(y)), wide.width * wide.channels()),
             "joining samples");
  }
  return wide;
}

}  // namespace

std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  if (options.has("byte-planes")) return nullptr;
  auto source = std::make_unique<Source>(contents, options, stages);
  if (!source->isLast()) stages.lose("the pictures behind the first one are left out");
  return source;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  const Contents contents(file);
  if (const auto source = readRows(contents, options, stages)) return readWhole(*source, stages);
  Source high(contents, options, stages);
  const Image first = readWhole(high, stages);
  if (high.isLast()) throw Error("there is no second picture with the low bytes");
  Source low(contents, options, stages, 1);
  const Image second = readWhole(low, stages);
  Image wide = stages.time("join byte planes", [&] { return join(first, second); });
  wide.missing = first.missing.empty() ? second.missing : first.missing;
  return wide;
}

}  // namespace qelconv::tiff
