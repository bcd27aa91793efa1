// Blocks of coefficients to and from pixels: transforms, resampling and colour conversion by the library.
// Both directions keep one plane of samples a component, padded to whole MCUs.
#include <algorithm>

#include "jpeg.h"

namespace qelconv::jpeg {
namespace {

// Some rows of a plane, the ones last written: row y takes the place of row y - rows.
struct Plane {
  int32_t step = 0, rows = 0;
  std::vector<uint8_t> data;
  void resize(int32_t newStep, int32_t newRows) {
    step = newStep, rows = newRows;
    data.resize(size_t(step) * size_t(rows));
  }
  uint8_t* row(int32_t y) { return data.data() + size_t(y % rows) * size_t(step); }
};

// Adobe's files hold inverted ink; pictures here count ink.
void invert(uint8_t* samples, size_t count) {
  for (size_t i = 0; i < count; ++i) samples[i] = uint8_t(255 - samples[i]);
}

template <int Channels>
void interleave(const uint8_t* const* planes, uint8_t* pixels, int32_t width) {
  for (int32_t x = 0; x < width; ++x)
    for (int c = 0; c < Channels; ++c) pixels[x * Channels + c] = planes[c][x];
}

template <int Channels>
void split(const uint8_t* pixels, uint8_t* const* planes, int32_t width) {
  for (int32_t x = 0; x < width; ++x)
    for (int c = 0; c < Channels; ++c) planes[c][x] = pixels[x * Channels + c];
}

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

}  // namespace

// --- blocks to pixels --------------------------------------------------------------------------------------

struct PixelWriter::Impl {
  // One component: its plane, and how its samples spread over the picture.
  struct Channel {
    Plane plane;
    std::array<uint16_t, 64> table{};
    int blockSize = 8;         // samples' side that a block becomes
    int32_t width, height;     // samples that belong to the picture
    int across = 1, down = 1;  // picture samples that one sample covers
    std::vector<uint8_t> row;  // one row at the picture's width
  };

  Impl(const File& file, int size, Filter filter, const Strips& strips, int32_t slots)
      : file(file), frame(file.frame), strips(strips), space(spaceOf(file)), filter(filter) {
    const auto scaled = [size](int32_t n) { return (n * size + 7) / 8; };
    constexpr Colour kColours[] = {Colour::grey, Colour::rgb, Colour::rgb, Colour::cmyk, Colour::cmyk};
    image = Image(scaled(frame.width), scaled(frame.height), kColours[int(space)]);
    rowsOfMcu = frame.vMax * size;
    for (size_t i = 0; i < frame.components.size(); ++i) {
      const Component& c = frame.components[i];
      Channel ch;
      ch.across = frame.hMax / c.h, ch.down = frame.vMax / c.v;
      ch.blockSize = size;
      // A reduced picture can take its chroma at a larger block size instead of spreading it.
      while (ch.blockSize < 8 && ch.across == 2 && ch.down == 2) ch.blockSize *= 2, ch.across = ch.down = 1;
      ch.width = (image.width + ch.across - 1) / ch.across, ch.height = (image.height + ch.down - 1) / ch.down;
      ch.plane.resize(c.paddedWide * ch.blockSize, slots * strips.rows * c.v * ch.blockSize);
      if (ch.across > 1 || ch.down > 1) ch.row.resize(size_t(2 * ch.width) + 2);
      ch.table = inverseTable(file.quant[i]);
      channels.push_back(std::move(ch));
      needsNextRow |= filter == Filter::triangle && channels.back().down > 1;
    }
  }

  void transform(int32_t strip, Coefficients& coefficients) {
    for (size_t i = 0; i < channels.size(); ++i) {
      const Component& c = frame.components[i];
      Channel& ch = channels[i];
      const auto inverse = ch.blockSize == 8   ? qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R
                           : ch.blockSize == 4 ? qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R
                           : ch.blockSize == 2 ? qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R
                                               : onlyMean;
      for (int32_t r = strips.first(strip) * c.v; r < strips.end(strip) * c.v; ++r) {
        const int16_t* blocks = coefficients.row(i, r);
        uint8_t* out = ch.plane.row(r * ch.blockSize);
        for (int32_t b = 0; b < c.paddedWide; ++b)
          inverse(blocks + 64 * b, out + b * ch.blockSize, ch.plane.step, ch.table.data());
      }
    }
  }

  // The block as one sample.
  static QelStatus onlyMean(const int16_t* block, uint8_t* dst, int32_t, const uint16_t* table) {
    uint8_t square[64];
    const QelStatus status = qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(block, square, 8, table);
    *dst = square[0];
    return status;
  }

  // Picture row y of a channel, spread to the picture's width where it is narrower.
  const uint8_t* spreadRow(Channel& ch, int32_t y) {
    const int32_t near = y / ch.down;
    const uint8_t* src = ch.plane.row(near);
    if (ch.across == 1) return src;
    if (filter == Filter::box) {
      for (int32_t x = 0; x < ch.width; ++x) ch.row[size_t(2 * x)] = ch.row[size_t(2 * x + 1)] = src[x];
    } else if (ch.down == 1) {
      qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(src, ch.width, ch.row.data());
    } else {
      const int32_t far = std::clamp(near + (y % 2 ? 1 : -1), 0, ch.height - 1);
      qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(src, ch.plane.row(far), ch.width, ch.row.data());
    }
    return ch.row.data();
  }

  // Converts the picture's rows up to the strip's last one.
  void convert(int32_t strip) {
    const int32_t from = converted;
    // The triangle filter looks one chroma row ahead, into the next strip.
    converted =
        strips.end(strip) == frame.mcusHigh ? image.height : strips.end(strip) * rowsOfMcu - (needsNextRow ? 1 : 0);
    const bool spread =
        std::any_of(channels.begin(), channels.end(), [](auto& c) { return c.across > 1 || c.down > 1; });
    if (!spread) return convertRows(from, converted - from, [&](size_t i) { return channels[i].plane.row(from); });
    for (int32_t y = from; y < converted; ++y) convertRows(y, 1, [&](size_t i) { return spreadRow(channels[i], y); });
  }

  template <class RowOf>
  void convertRows(int32_t y, int32_t count, RowOf&& rowOf) {
    const uint8_t* planes[4] = {};
    for (size_t i = 0; i < channels.size(); ++i) planes[i] = rowOf(i);
    uint8_t* out = image.row(y);
    const int32_t step = channels[0].plane.step;
    const QelSize size{image.width, count};
    switch (space) {
      case Space::ycc:
        expectOk(qeliYCbCrToRGB_JPEG_8u_P3C3R(planes, step, out, image.step(), size), "converting colour");
        return;
      case Space::ycck:
        expectOk(qeliYCCKToCMYK_JPEG_8u_P4C4R(planes, step, out, image.step(), size), "converting colour");
        break;
      case Space::grey:
      case Space::rgb:
      case Space::cmyk:
        for (int32_t r = 0; r < count; ++r) {
          uint8_t* to = out + size_t(r) * size_t(image.step());
          if (space == Space::grey) std::memcpy(to, planes[0], size_t(image.width));
          else if (space == Space::rgb) interleave<3>(planes, to, image.width);
          else interleave<4>(planes, to, image.width);
          for (size_t i = 0; i < channels.size(); ++i) planes[i] += step;
        }
    }
    if (image.colour == Colour::cmyk && file.adobe >= 0) invert(out, size_t(image.step()) * size_t(count));
  }

  const File& file;
  const Frame& frame;
  const Strips strips;
  Space space;
  Filter filter;
  Image image;
  std::vector<Channel> channels;
  int rowsOfMcu = 8;
  bool needsNextRow = false;
  int32_t converted = 0;
};

PixelWriter::PixelWriter(const File& file, int size, Filter filter, const Strips& strips, int32_t slots)
    : impl_(std::make_unique<Impl>(file, size, filter, strips, slots)) {}
PixelWriter::~PixelWriter() = default;
void PixelWriter::transform(int32_t strip, Coefficients& coefficients) { impl_->transform(strip, coefficients); }
void PixelWriter::convert(int32_t strip) { impl_->convert(strip); }
Image PixelWriter::finish() { return std::move(impl_->image); }

// --- pixels to blocks --------------------------------------------------------------------------------------

struct PixelReader::Impl {
  // Room for the samples of one row of MCUs.
  struct Room {
    std::vector<uint8_t> strip;
    std::vector<Plane> planes, full;
  };

  Impl(const Image& image, const Frame& frame, Space space, const std::vector<RawQuantTable>& quant, int32_t slots)
      : image(image), frame(frame), space(space), rooms(size_t(slots)) {
    const int32_t width = frame.mcusWide * 8 * frame.hMax, height = 8 * frame.vMax;
    for (Room& room : rooms) {
      room.strip.resize(size_t(width) * size_t(image.channels()) * size_t(height));
      room.planes.resize(frame.components.size());
      room.full.resize(frame.components.size());
      for (size_t i = 0; i < room.planes.size(); ++i) {
        const Component& c = frame.components[i];
        room.planes[i].resize(c.paddedWide * 8, c.v * 8);
        if (c.h < frame.hMax || c.v < frame.vMax) room.full[i].resize(width, height);
      }
    }
    for (const Component& c : frame.components) {
      tables.push_back({});
      expectOk(qeliQuantFwdTableInit_JPEG_8u16u(quant[size_t(c.quantTable)].data(), tables.back().data()),
               "making a quantisation table");
    }
  }

  // The pixels of one row of MCUs, the last column and row repeated up to whole MCUs. Points into the picture
  // where that is whole by itself.
  const uint8_t* paddedStrip(Room& room, int32_t mcuRow, int32_t& step) {
    const int32_t width = frame.mcusWide * 8 * frame.hMax, height = 8 * frame.vMax, first = mcuRow * height;
    const bool inks = image.colour == Colour::cmyk;
    if (width == image.width && first + height <= image.height && !inks) {
      step = image.step();
      return image.row(first);
    }
    const auto pixel = size_t(image.channels());
    step = width * int32_t(pixel);
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* to = room.strip.data() + size_t(y) * size_t(step);
      std::memcpy(to, image.row(std::min(first + y, image.height - 1)), size_t(image.step()));
      for (int32_t x = image.width; x < width; ++x)
        std::memcpy(to + size_t(x) * pixel, to + (size_t(image.width) - 1) * pixel, pixel);
      if (inks) invert(to, size_t(step));
    }
    return room.strip.data();
  }

  // Colour conversion into the planes; chroma goes through full-size planes where no call does both at once.
  void convert(Room& room, const uint8_t* src, int32_t srcStep) {
    auto& [strip, planes, full] = room;
    const QelSize size{frame.mcusWide * 8 * frame.hMax, 8 * frame.vMax};
    const bool halved = frame.hMax == 2;
    if (space == Space::ycc && halved) {
      uint8_t* dst[3] = {planes[0].row(0), planes[1].row(0), planes[2].row(0)};
      const int32_t steps[3] = {planes[0].step, planes[1].step, planes[2].step};
      const auto work = frame.vMax == 2 ? qeliRGBToYCbCr411_JPEG_8u_C3P3R : qeliRGBToYCbCr422_JPEG_8u_C3P3R;
      expectOk(work(src, srcStep, dst, steps, size), "converting colour");
      return;
    }
    uint8_t* dst[4] = {};
    for (size_t i = 0; i < planes.size(); ++i) dst[i] = (full[i].rows ? full[i] : planes[i]).row(0);
    const int32_t dstStep = size.width;
    if (space == Space::ycc) {
      expectOk(qeliRGBToYCbCr_JPEG_8u_C3P3R(src, srcStep, dst, dstStep, size), "converting colour");
    } else if (space == Space::ycck) {
      expectOk(qeliCMYKToYCCK_JPEG_8u_C4P4R(src, srcStep, dst, dstStep, size), "converting colour");
    } else {
      for (int32_t y = 0; y < size.height; ++y, src += srcStep) {
        if (space == Space::grey) split<1>(src, dst, size.width);
        else if (space == Space::rgb) split<3>(src, dst, size.width);
        else split<4>(src, dst, size.width);
        for (size_t i = 0; i < planes.size(); ++i) dst[i] += dstStep;
      }
    }
    for (size_t i = 0; i < planes.size(); ++i) {
      if (!full[i].rows) continue;
      Plane &from = full[i], &to = planes[i];
      const auto work = frame.vMax == 2 ? qeliSampleDownH2V2_JPEG_8u_C1R : qeliSampleDownH2V1_JPEG_8u_C1R;
      expectOk(work(from.row(0), from.step, {from.step, from.rows}, to.row(0), to.step, {to.step, to.rows}),
               "halving a plane");
    }
  }

  void transform(std::vector<Plane>& planes, int32_t mcuRow, Coefficients& coefficients) {
    for (size_t i = 0; i < planes.size(); ++i) {
      const Component& c = frame.components[i];
      for (int32_t v = 0; v < c.v; ++v) {
        int16_t* blocks = coefficients.row(i, mcuRow * c.v + v);
        for (int32_t b = 0; b < c.paddedWide; ++b)
          qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(planes[i].row(8 * v) + 8 * b, planes[i].step, blocks + 64 * b,
                                              tables[i].data());
      }
    }
  }

  void row(Room& room, int32_t mcuRow, Coefficients& coefficients) {
    int32_t step = 0;
    const uint8_t* src = paddedStrip(room, mcuRow, step);
    convert(room, src, step);
    transform(room.planes, mcuRow, coefficients);
  }

  const Image& image;
  const Frame& frame;
  Space space;
  std::vector<Room> rooms;  // by slot
  std::vector<std::array<uint16_t, 64>> tables;
};

PixelReader::PixelReader(const Image& image, const Frame& frame, Space space, const std::vector<RawQuantTable>& quant,
                         const Strips& strips, int32_t slots)
    : impl_(std::make_unique<Impl>(image, frame, space, quant, slots)), strips_(strips) {}
PixelReader::~PixelReader() = default;
void PixelReader::transform(int32_t strip, Coefficients& coefficients) {
  auto& room = impl_->rooms[size_t(strip) % impl_->rooms.size()];
  for (int32_t row = strips_.first(strip); row < strips_.end(strip); ++row) impl_->row(room, row, coefficients);
}

}  // namespace qelconv::jpeg
