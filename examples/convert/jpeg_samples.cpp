// Blocks of coefficients to and from pixels: transforms, resampling and colour conversion by the library, of 8-bit
// samples; of 12 bits it has the transforms. Both directions keep one plane of samples a component, padded to whole
// MCUs.
#include <algorithm>
#include <type_traits>

#include "jpeg.h"

namespace qelconv::jpeg {
namespace {

// Samples of 8 bits are bytes, those of 12 bits words.
template <class Sample>
inline constexpr bool kIsByte = std::is_same_v<Sample, uint8_t>;
template <class Sample>
inline constexpr int32_t kTop = kIsByte<Sample> ? 255 : 4095;

// Some rows of a plane, the ones last written: row y takes the place of row y - rows.
template <class Sample>
struct Plane {
  int32_t width = 0, rows = 0;
  std::vector<Sample> data;
  void resize(int32_t newWidth, int32_t newRows) {
    width = newWidth, rows = newRows;
    data.resize(size_t(width) * size_t(rows));
  }
  // Takes a division: for a row, not for each of its blocks.
  Sample* row(int32_t y) { return data.data() + size_t(y % rows) * size_t(width); }
  int32_t step() const { return width * int32_t(sizeof(Sample)); }
};

// Files hold inverted ink, as Adobe's began to; pictures here count ink.
template <class Sample>
void invert(Sample* samples, size_t count) {
  for (size_t i = 0; i < count; ++i) samples[i] = Sample(kTop<Sample> - samples[i]);
}

template <int Channels, class Sample>
void interleave(const Sample* const* planes, Sample* pixels, int32_t width) {
  for (int32_t x = 0; x < width; ++x)
    for (int c = 0; c < Channels; ++c) pixels[x * Channels + c] = planes[c][x];
}

template <int Channels, class Sample>
void split(const Sample* pixels, Sample* const* planes, int32_t width) {
  for (int32_t x = 0; x < width; ++x)
    for (int c = 0; c < Channels; ++c) planes[c][x] = pixels[x * Channels + c];
}

// --- colour of 12-bit samples, for which the library has no functions: the formulas of ITU-T T.871, in units of 2^-16 --

constexpr int32_t fixed(double v) { return int32_t(v * 65536 + (v < 0 ? -0.5 : 0.5)); }
constexpr int32_t rounded(int32_t v) { return (v + 32768) >> 16; }
constexpr int32_t kMiddle = 2048;

// Pixels in place: Y, Cb, Cr to R, G, B.
void toRgb(uint16_t* pixels, int32_t width, int channels) {
  for (uint16_t* p = pixels; p != pixels + int64_t(width) * channels; p += channels) {
    const int32_t y = p[0], cb = p[1] - kMiddle, cr = p[2] - kMiddle;
    const int32_t rgb[] = {y + rounded(fixed(1.402) * cr), y - rounded(fixed(0.344136) * cb + fixed(0.714136) * cr),
                           y + rounded(fixed(1.772) * cb)};
    for (int c = 0; c < 3; ++c) p[c] = uint16_t(std::clamp(rgb[c], 0, kTop<uint16_t>));
  }
}

// Rows of R, G, B in place to Y, Cb, Cr. Chroma rounds down where it lies between two values, so that none is above the largest.
void toYcc(uint16_t* const* rows, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int32_t r = rows[0][x], g = rows[1][x], b = rows[2][x];
    constexpr int32_t kChroma = (kMiddle << 16) + 32767;
    rows[0][x] = uint16_t(rounded(fixed(0.299) * r + fixed(0.587) * g + fixed(0.114) * b));
    rows[1][x] = uint16_t((-fixed(0.168736) * r - fixed(0.331264) * g + fixed(0.5) * b + kChroma) >> 16);
    rows[2][x] = uint16_t((fixed(0.5) * r - fixed(0.418688) * g - fixed(0.081312) * b + kChroma) >> 16);
  }
}

// --- tables ------------------------------------------------------------------------------------------------

// The library takes byte entries: the high bytes make a table of their own.
std::array<uint16_t, 64> inverseTable(const FileQuantTable& quant) {
  RawQuantTable low, high;
  std::transform(quant.begin(), quant.end(), low.begin(), [](uint16_t q) { return uint8_t(q); });
  std::transform(quant.begin(), quant.end(), high.begin(), [](uint16_t q) { return uint8_t(q >> 8); });
  std::array<uint16_t, 64> table, highTable;
  expectOk(qeliQuantInvTableInit_JPEG_8u16u(low.data(), table.data()), "making a quantisation table");
  expectOk(qeliQuantInvTableInit_JPEG_8u16u(high.data(), highTable.data()), "making a quantisation table");
  for (size_t i = 0; i < 64; ++i) table[i] = uint16_t(table[i] | highTable[i] << 8);
  return table;
}

// The 12-bit transforms take factors.
template <class Sample>
using Table = std::array<std::conditional_t<kIsByte<Sample>, uint16_t, float>, 64>;

template <class Sample>
Table<Sample> tableOf(const FileQuantTable& quant) {
  const auto table = inverseTable(quant);
  Table<Sample> result;
  std::copy(table.begin(), table.end(), result.begin());
  return result;
}

template <class Sample>
Table<Sample> forwardTable(const RawQuantTable& raw) {
  Table<Sample> table;
  if constexpr (kIsByte<Sample>) {
    expectOk(qeliQuantFwdTableInit_JPEG_8u16u(raw.data(), table.data()), "making a quantisation table");
  } else {
    FileQuantTable wide;
    std::copy(raw.begin(), raw.end(), wide.begin());
    const auto inverse = inverseTable(wide);
    std::transform(inverse.begin(), inverse.end(), table.begin(), [](uint16_t q) { return 1.0f / float(q); });
  }
  return table;
}

// --- resampling --------------------------------------------------------------------------------------------

// How many samples of the picture lie over how many of a component, in one direction.
struct Ratio {
  int to = 1, from = 1;
  bool isOne() const { return to == from; }
  bool isTwo() const { return to == 2 * from; }
  // The sample that lies under the middle of sample i of the picture.
  int32_t under(int32_t i) const { return int32_t(int64_t(2 * i + 1) * from / (2 * to)); }
  // How many samples lie under the first n.
  int32_t cover(int32_t n) const { return int32_t((int64_t(n) * from + to - 1) / to); }
};

// The triangle filter as the library has it for bytes: sample k is mid(k), weighted with its neighbours.
template <class Mid, class Sample>
void doubleRow(Mid&& mid, int32_t width, int shift, int evenBias, int oddBias, Sample* dst) {
  for (int32_t k = 0; k < width; ++k) {
    const int32_t near = 3 * mid(k);
    dst[2 * k] = Sample((mid(std::max(k - 1, 0)) + near + evenBias) >> shift);
    dst[2 * k + 1] = Sample((near + mid(std::min(k + 1, width - 1)) + oddBias) >> shift);
  }
}
template <class Sample>
void doubleAcross(const Sample* src, int32_t width, Sample* dst) {
  if constexpr (kIsByte<Sample>) qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(src, width, dst);
  else doubleRow([=](int32_t k) { return int32_t(src[k]); }, width, 2, 1, 2, dst);
}
template <class Sample>
void doubleBothWays(const Sample* near, const Sample* far, int32_t width, Sample* dst) {
  if constexpr (kIsByte<Sample>) qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(near, far, width, dst);
  else doubleRow([=](int32_t k) { return 3 * near[k] + far[k]; }, width, 4, 8, 7, dst);
}

// How a component's blocks become samples of the picture.
struct Sampling {
  Sampling(const Frame& frame, const Component& c, int size) : blockSize(size) {
    // A reduced picture can take its chroma at a larger block size instead of spreading it.
    while (blockSize < 8 && frame.hMax * size % (2 * c.h * blockSize) == 0 &&
           frame.vMax * size % (2 * c.v * blockSize) == 0)
      blockSize *= 2;
    across = {frame.hMax * size, c.h * blockSize}, down = {frame.vMax * size, c.v * blockSize};
  }
  bool spreads() const { return !across.isOne() || !down.isOne(); }
  int blockSize;  // samples' side that a block becomes
  Ratio across, down;
};

// Means of rectangles of samples.
template <class Sample>
void shrink(Plane<Sample>& from, Plane<Sample>& to) {
  const int32_t across = from.width / to.width, down = from.rows / to.rows, count = across * down;
  for (int32_t y = 0; y < to.rows; ++y) {
    Sample* const out = to.row(y);
    for (int32_t x = 0; x < to.width; ++x) {
      int32_t sum = count / 2;
      for (int32_t r = 0; r < down; ++r) {
        const Sample* const in = from.row(y * down + r) + x * across;
        for (int32_t i = 0; i < across; ++i) sum += in[i];
      }
      out[x] = Sample(sum / count);
    }
  }
}

}  // namespace

Shape shapeOf(const File& file, int size) {
  constexpr Colour kColours[] = {Colour::grey, Colour::rgb, Colour::rgb, Colour::cmyk, Colour::cmyk};
  const auto scaled = [size](int32_t n) { return (n * size + 7) / 8; };
  return {scaled(file.frame.width),
          scaled(file.frame.height),
          kColours[int(spaceOf(file))],
          file.frame.precision,
          false,
          file.metadata};
}

bool looksAhead(const Frame& frame, int size, Filter filter) {
  return filter == Filter::triangle && std::any_of(frame.components.begin(), frame.components.end(),
                                                   [&](auto& c) { return Sampling(frame, c, size).down.isTwo(); });
}

// --- blocks to pixels --------------------------------------------------------------------------------------

struct PixelWriter::Impl {
  virtual ~Impl() = default;
  virtual void transform(int32_t strip, Coefficients& coefficients) = 0;
  virtual void convert(int32_t strip) = 0;
};

namespace {

template <class Sample>
struct SampleWriter : PixelWriter::Impl {
  // One component: its plane, and how its samples spread over the picture.
  struct Channel : Sampling {
    using Sampling::Sampling;
    Plane<Sample> plane;
    Table<Sample> table{};
    int32_t width = 0, height = 0;   // samples that belong to the picture
    std::vector<Sample> row, blend;  // one row at the picture's width, and one between two rows
    std::vector<int32_t> columns;    // the sample under each column of the picture, unless it is one of two
  };

  SampleWriter(const File& file, int size, Filter filter, const Strips& strips, int32_t slots, Rows& rows)
      : frame(file.frame),
        strips(strips),
        space(spaceOf(file)),
        filter(filter),
        image(shapeOf(file, size)),
        rows(rows) {
    late = looksAhead(frame, size, filter);
    rowsOfMcu = frame.vMax * size;
    for (size_t i = 0; i < frame.components.size(); ++i) {
      const Component& c = frame.components[i];
      Channel& ch = channels.emplace_back(frame, c, size);
      ch.width = ch.across.cover(image.width), ch.height = ch.down.cover(image.height);
      ch.plane.resize(c.paddedWide * ch.blockSize, slots * strips.rows * c.v * ch.blockSize);
      if (!ch.across.isOne()) ch.row.resize(size_t(std::max(image.width, 2 * ch.width)));
      if (!ch.down.isOne()) ch.blend.resize(size_t(ch.width));
      if (!ch.across.isOne() && !ch.across.isTwo())
        for (int32_t x = 0; x < image.width; ++x) ch.columns.push_back(ch.across.under(x));
      ch.table = tableOf<Sample>(file.quant[i]);
      spreads |= ch.spreads();
    }
  }

  void transform(int32_t strip, Coefficients& coefficients) override {
    for (size_t i = 0; i < channels.size(); ++i) {
      const Component& c = frame.components[i];
      Channel& ch = channels[i];
      for (int32_t r = strips.first(strip) * c.v; r < strips.end(strip) * c.v; ++r) {
        const int16_t* blocks = coefficients.row(i, r);
        Sample* const out = ch.plane.row(r * ch.blockSize);
        const auto inverse = inverseOf(ch.blockSize);
        for (int32_t b = 0, step = ch.plane.step(); b < c.paddedWide; ++b)
          inverse(blocks + 64 * b, out + b * ch.blockSize, step, ch.table.data());
      }
    }
  }

  static auto inverseOf(int blockSize) {
    if constexpr (kIsByte<Sample>)
      return blockSize == 8   ? qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R
             : blockSize == 4 ? qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R
             : blockSize == 2 ? qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R
                              : onlyMean;
    else return qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R;
  }

  // The block as one sample.
  static QelStatus onlyMean(const int16_t* block, uint8_t* dst, int32_t, const uint16_t* table) {
    uint8_t square[64];
    const QelStatus status = qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(block, square, 8, table);
    *dst = square[0];
    return status;
  }

  // Picture row y of a channel, spread to the picture's width where it is narrower. The triangle filter takes part in
  // each direction whose ratio is two.
  Sample* spreadRow(Channel& ch, int32_t y) {
    const int32_t near = ch.down.under(y);
    Sample* src = ch.plane.row(near);
    const bool smooth = filter == Filter::triangle;
    if (smooth && ch.down.isTwo()) {
      const Sample* const far = ch.plane.row(std::clamp(near + (y % 2 ? 1 : -1), 0, ch.height - 1));
      if (ch.across.isTwo()) {
        doubleBothWays(src, far, ch.width, ch.row.data());
        return ch.row.data();
      }
      const int bias = y % 2 ? 2 : 1;
      for (size_t x = 0; x < size_t(ch.width); ++x) ch.blend[x] = Sample((3 * src[x] + far[x] + bias) >> 2);
      src = ch.blend.data();
    }
    if (ch.across.isOne()) return src;
    if (!ch.across.isTwo()) {
      for (size_t x = 0; x < ch.columns.size(); ++x) ch.row[x] = src[ch.columns[x]];
    } else if (smooth) {
      doubleAcross(src, ch.width, ch.row.data());
    } else {
      for (int32_t x = 0; x < ch.width; ++x) ch.row[size_t(2 * x)] = ch.row[size_t(2 * x + 1)] = src[x];
    }
    return ch.row.data();
  }

  // Converts the picture's rows up to the strip's last one.
  void convert(int32_t strip) override {
    const int32_t from = converted;
    // The triangle filter looks one chroma row ahead, into the next strip.
    converted = strips.end(strip) == frame.mcusHigh ? image.height : strips.end(strip) * rowsOfMcu - late;
    if (!spreads)
      return rows.byPieces(from, converted, [&](int32_t y, int32_t count) {
        convertRows(y, count, [&](size_t i) { return channels[i].plane.row(y); });
      });
    for (int32_t y = from; y < converted; ++y) convertRows(y, 1, [&](size_t i) { return spreadRow(channels[i], y); });
  }

  template <class RowOf>
  void convertRows(int32_t y, int32_t count, RowOf&& rowOf) {
    Sample* planes[4] = {};
    for (size_t i = 0; i < channels.size(); ++i) planes[i] = rowOf(i);
    const int32_t width = channels[0].plane.width;
    if constexpr (kIsByte<Sample>) {
      const uint8_t* const src[] = {planes[0], planes[1], planes[2], planes[3]};
      uint8_t* const out = rows.row(y);
      const QelSize size{image.width, count};
      if (space == Space::ycc || space == Space::ycck) {
        expectOk(space == Space::ycc ? qeliYCbCrToRGB_JPEG_8u_P3C3R(src, width, out, image.step(), size)
                                     : qeliYCCKToCMYK_JPEG_8u_P4C4R(src, width, out, image.step(), size),
                 "converting colour");
        if (space == Space::ycck) invert(out, size_t(image.step()) * size_t(count));
        return;
      }
    }
    for (int32_t r = 0; r < count; ++r) {
      auto* const to = reinterpret_cast<Sample*>(rows.row(y + r));
      if (channels.size() == 1) std::copy_n(planes[0], image.width, to);
      else if (channels.size() == 3) interleave<3>(planes, to, image.width);
      else interleave<4>(planes, to, image.width);
      if constexpr (!kIsByte<Sample>)
        if (space == Space::ycc || space == Space::ycck) toRgb(to, image.width, image.channels());
      // Red, green and blue are the inversion of inverted cyan, magenta and yellow: ink as it is.
      if (space == Space::cmyk) invert(to, size_t(image.width) * 4);
      else if (space == Space::ycck)
        for (int32_t x = 0; x < image.width; ++x) invert(to + 4 * x + 3, 1);
      for (size_t i = 0; i < channels.size(); ++i) planes[i] += width;
    }
  }

  const Frame& frame;
  const Strips strips;
  Space space;
  Filter filter;
  const Shape image;
  Rows& rows;
  std::vector<Channel> channels;
  int rowsOfMcu = 8, late = 0;
  bool spreads = false;
  int32_t converted = 0;
};

}  // namespace

PixelWriter::PixelWriter(const File& file, int size, Filter filter, const Strips& strips, int32_t slots, Rows& rows) {
  if (file.frame.precision == 8)
    impl_ = std::make_unique<SampleWriter<uint8_t>>(file, size, filter, strips, slots, rows);
  else if (size == 8) impl_ = std::make_unique<SampleWriter<uint16_t>>(file, size, filter, strips, slots, rows);
  else throw Error("12-bit samples can't be read at a reduced size");
}
PixelWriter::~PixelWriter() = default;
void PixelWriter::transform(int32_t strip, Coefficients& coefficients) { impl_->transform(strip, coefficients); }
void PixelWriter::convert(int32_t strip) { impl_->convert(strip); }

// --- pixels to blocks --------------------------------------------------------------------------------------

struct PixelReader::Impl {
  virtual ~Impl() = default;
  virtual void transform(int32_t mcuRow, int32_t slot, Coefficients& coefficients) = 0;
};

namespace {

template <class Sample>
struct SampleReader : PixelReader::Impl {
  // Room for the samples of one row of MCUs.
  struct Room {
    std::vector<Sample> strip;
    std::vector<Plane<Sample>> planes, full;
  };

  SampleReader(const Shape& image, const Rows& rows, const Frame& frame, Space space,
               const std::vector<RawQuantTable>& quant, int32_t slots)
      : image(image),
        rows(rows),
        frame(frame),
        space(space),
        halvesAtOnce(kIsByte<Sample> && space == Space::ycc && frame.hMax == 2),
        rooms(size_t(slots)) {
    for (Room& room : rooms) {
      room.planes.resize(frame.components.size());
      room.full.resize(frame.components.size());
      for (size_t i = 0; i < room.planes.size(); ++i) {
        const Component& c = frame.components[i];
        room.planes[i].resize(c.paddedWide * 8, c.v * 8);
        if (!halvesAtOnce && (c.h < frame.hMax || c.v < frame.vMax))
          room.full[i].resize(frame.mcusWide * across(), down());
      }
    }
    for (const Component& c : frame.components) tables.push_back(forwardTable<Sample>(quant[size_t(c.quantTable)]));
  }

  // Pixels that an MCU has across and down.
  int32_t across() const { return 8 * frame.hMax; }
  int32_t down() const { return 8 * frame.vMax; }

  // How many MCUs of a row lie in the picture as they are: whole, in one piece, and not of inverted ink.
  int32_t wholeMcus(int32_t mcuRow) const {
    const int32_t first = mcuRow * down();
    const bool asTheyAre =
        first + down() <= image.height && image.colour != Colour::cmyk && rows.inOnePiece(first, down());
    return asTheyAre ? image.width / across() : 0;
  }
  // The pixels of the others, the last column and row repeated up to whole MCUs.
  const Sample* paddedMcus(Room& room, int32_t mcuRow, int32_t firstMcu, int32_t& step) {
    const auto channels = size_t(image.channels());
    const size_t samples = size_t((frame.mcusWide - firstMcu) * across()) * channels;
    const size_t left = size_t(firstMcu * across()) * channels, there = size_t(image.width) * channels - left;
    step = int32_t(samples * sizeof(Sample));
    room.strip.resize(samples * size_t(down()));
    for (int32_t y = 0; y < down(); ++y) {
      Sample* to = room.strip.data() + size_t(y) * samples;
      const auto* const from =
          reinterpret_cast<const Sample*>(rows.row(std::min(mcuRow * down() + y, image.height - 1)));
      std::copy_n(from + left, there, to);
      for (size_t i = there; i < samples; ++i) to[i] = to[i - channels];
      if (image.colour == Colour::cmyk) invert(to, samples);
    }
    return room.strip.data();
  }

  // Colour conversion of some MCUs into the planes; chroma goes through full-size planes where no call does both.
  void convert(Room& room, int32_t firstMcu, int32_t mcus, const Sample* src, int32_t srcStep) {
    auto& [strip, planes, full] = room;
    const QelSize size{mcus * across(), down()};
    if constexpr (kIsByte<Sample>) {
      if (halvesAtOnce) {
        uint8_t* dst[3];
        int32_t steps[3];
        for (size_t i = 0; i < 3; ++i) {
          dst[i] = planes[i].row(0) + firstMcu * 8 * frame.components[i].h;
          steps[i] = planes[i].step();
        }
        const auto work = frame.vMax == 2 ? qeliRGBToYCbCr411_JPEG_8u_C3P3R : qeliRGBToYCbCr422_JPEG_8u_C3P3R;
        expectOk(work(src, srcStep, dst, steps, size), "converting colour");
        return;
      }
    }
    Sample* dst[4] = {};
    int32_t step = 0;
    for (size_t i = 0; i < planes.size(); ++i) {
      Plane<Sample>& plane = full[i].rows ? full[i] : planes[i];
      dst[i] = plane.row(0) + firstMcu * across();
      step = plane.step();
    }
    toPlanes(src, srcStep, dst, step, size);
  }

  void toPlanes(const Sample* src, int32_t srcStep, Sample** dst, int32_t dstStep, QelSize size) {
    if constexpr (kIsByte<Sample>) {
      if (space == Space::ycc || space == Space::ycck) {
        expectOk(space == Space::ycc ? qeliRGBToYCbCr_JPEG_8u_C3P3R(src, srcStep, dst, dstStep, size)
                                     : qeliCMYKToYCCK_JPEG_8u_C4P4R(src, srcStep, dst, dstStep, size),
                 "converting colour");
        return;
      }
    }
    for (int32_t y = 0; y < size.height; ++y, src += size_t(srcStep) / sizeof(Sample)) {
      if (image.channels() == 1) std::copy_n(src, size.width, dst[0]);
      else if (image.channels() == 3) split<3>(src, dst, size.width);
      else split<4>(src, dst, size.width);
      if constexpr (!kIsByte<Sample>) {
        if (space == Space::ycck)
          for (int c = 0; c < 3; ++c) invert(dst[c], size_t(size.width));
        if (space == Space::ycc || space == Space::ycck) toYcc(dst, size.width);
      }
      for (int c = 0; c < image.channels(); ++c) dst[c] += size_t(dstStep) / sizeof(Sample);
    }
  }

  static void halveOrShrink(Plane<Sample>& from, Plane<Sample>& to) {
    if constexpr (kIsByte<Sample>) {
      const bool bothWays = from.rows == 2 * to.rows;
      if (from.width == 2 * to.width && (bothWays || from.rows == to.rows)) {
        const auto work = bothWays ? qeliSampleDownH2V2_JPEG_8u_C1R : qeliSampleDownH2V1_JPEG_8u_C1R;
        expectOk(work(from.row(0), from.step(), {from.width, from.rows}, to.row(0), to.step(), {to.width, to.rows}),
                 "halving a plane");
        return;
      }
    }
    shrink(from, to);
  }

  void transform(int32_t mcuRow, int32_t slot, Coefficients& coefficients) override {
    Room& room = rooms[size_t(slot)];
    const int32_t whole = wholeMcus(mcuRow), others = frame.mcusWide - whole;
    if (whole > 0) convert(room, 0, whole, reinterpret_cast<const Sample*>(rows.row(mcuRow * down())), image.step());
    if (others > 0) {
      int32_t step = 0;
      const Sample* const src = paddedMcus(room, mcuRow, whole, step);
      convert(room, whole, others, src, step);
    }
    for (size_t i = 0; i < room.planes.size(); ++i) {
      if (room.full[i].rows) halveOrShrink(room.full[i], room.planes[i]);
      const Component& c = frame.components[i];
      for (int32_t v = 0; v < c.v; ++v) {
        int16_t* const blocks = coefficients.row(i, mcuRow * c.v + v);
        const Sample* const samples = room.planes[i].row(8 * v);
        for (int32_t b = 0, step = room.planes[i].step(); b < c.paddedWide; ++b)
          forward(samples + 8 * b, step, blocks + 64 * b, tables[i].data());
      }
    }
  }

  static void forward(const uint8_t* src, int32_t step, int16_t* dst, const uint16_t* table) {
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(src, step, dst, table);
  }
  static void forward(const uint16_t* src, int32_t step, int16_t* dst, const float* table) {
    qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(src, step, dst, table);
  }

  const Shape& image;
  const Rows& rows;
  const Frame& frame;
  Space space;
  bool halvesAtOnce;        // a call of the library converts colour and halves chroma
  std::vector<Room> rooms;  // by slot
  std::vector<Table<Sample>> tables;
};

}  // namespace

PixelReader::PixelReader(const Shape& shape, const Rows& rows, const Frame& frame, Space space,
                         const std::vector<RawQuantTable>& quant, int32_t slots) {
  if (frame.precision == 8) impl_ = std::make_unique<SampleReader<uint8_t>>(shape, rows, frame, space, quant, slots);
  else impl_ = std::make_unique<SampleReader<uint16_t>>(shape, rows, frame, space, quant, slots);
}
PixelReader::~PixelReader() = default;
void PixelReader::transform(int32_t mcuRow, int32_t slot, Coefficients& coefficients) {
  impl_->transform(mcuRow, slot, coefficients);
}

}  // namespace qelconv::jpeg
