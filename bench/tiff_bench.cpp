// TIFF rows beside libtiff, which codes and decodes whole strips of a file in memory.
#include <tiffio.h>

#include <algorithm>

#include "qelj.h"
#include "support/pair.h"

using namespace qelj::bench;

namespace {

using Bytes = std::vector<uint8_t>;

// A file in memory for TIFFClientOpen, mapped when it is read, as libtiff maps files on disk.
struct Memory {
  Bytes bytes;
  uint64_t at = 0;
};
TIFF* open(Memory& memory, const char* mode) {
  memory.at = 0;
  return TIFFClientOpen(
      "memory", mode, &memory,
      [](thandle_t h, void* to, tmsize_t n) -> tmsize_t {
        auto& m = *static_cast<Memory*>(h);
        n = std::min<tmsize_t>(n, tmsize_t(m.bytes.size() - std::min<uint64_t>(m.at, m.bytes.size())));
        std::memcpy(to, m.bytes.data() + m.at, size_t(n));
        m.at += uint64_t(n);
        return n;
      },
      [](thandle_t h, void* from, tmsize_t n) -> tmsize_t {
        auto& m = *static_cast<Memory*>(h);
        if (m.bytes.size() < m.at + uint64_t(n)) m.bytes.resize(m.at + uint64_t(n));
        std::memcpy(m.bytes.data() + m.at, from, size_t(n));
        m.at += uint64_t(n);
        return n;
      },
      [](thandle_t h, toff_t to, int whence) -> toff_t {
        auto& m = *static_cast<Memory*>(h);
        return m.at = whence == SEEK_SET ? to : whence == SEEK_CUR ? m.at + to : m.bytes.size() + to;
      },
      [](thandle_t) { return 0; }, [](thandle_t h) -> toff_t { return static_cast<Memory*>(h)->bytes.size(); },
      [](thandle_t h, void** base, toff_t* size) {
        auto& m = *static_cast<Memory*>(h);
        *base = m.bytes.data();
        *size = m.bytes.size();
        return 1;
      },
      [](thandle_t, void*, toff_t) {});
}

struct Rows {
  int width, height;  // in bytes
  Bytes bytes;
  const uint8_t* row(int y) const { return &bytes[size_t(y) * size_t(width)]; }
};

// One strip, coded row by row inside libtiff. The file's head costs the same for every size of image; the
// images are large against it.
void packByLibtiff(const Rows& rows, Memory& file) {
  TIFF* tiff = open(file, "w");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, rows.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, rows.height);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows.height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
  TIFFWriteEncodedStrip(tiff, 0, const_cast<uint8_t*>(rows.bytes.data()), tmsize_t(rows.bytes.size()));
  TIFFClose(tiff);
}

uint32_t packByQelj(const Rows& rows, Bytes& coded) {
  uint32_t position = 0;
  for (int y = 0; y < rows.height; ++y)
    qeliPackBitsRow_TIFF_8u_C1(rows.row(y), rows.width, coded.data(), &position, int32_t(coded.size()));
  return position;
}

}  // namespace

int main(int argc, char** argv) {
  const Photo photo = loadPhoto("raccoon.png");
  Rows inputs[3] = {
      {photo.width * 3, photo.height, photo.rgb}, {photo.width, photo.height, {}}, {photo.width, photo.height, {}}};
  for (size_t i = 0; i < photo.rgb.size(); i += 3) {
    inputs[1].bytes.push_back(photo.rgb[i + 1]);
    inputs[2].bytes.push_back(photo.rgb[i + 1] < 96 ? 0 : 255);  // a scanned page's runs and specks
  }
  const char* names[] = {"photograph, RGB", "photograph, grey", "runs"};
  static Bytes coded[3], unpacked;
  static Memory written, files[3];
  unpacked.resize(photo.rgb.size() + 1);
  for (size_t i = 0; i < 3; ++i) {
    const Rows& rows = inputs[i];
    coded[i].resize(rows.bytes.size() * 2);
    const uint32_t size = packByQelj(rows, coded[i]);
    packByLibtiff(rows, files[i]);
    const double megabytes = double(rows.bytes.size()) / 1e6;
    const auto limit = [&rows] { std::memcpy(unpacked.data(), rows.bytes.data(), rows.bytes.size()); };
    std::printf("%s: %.3g of its size in tokens of %.1f bytes\n", names[i], size / double(rows.bytes.size()), [&] {
      size_t tokens = 0;
      for (uint32_t at = 0; at < size; ++tokens) at += int8_t(coded[i][at]) < 0 ? 2u : coded[i][at] + 2u;
      return double(rows.bytes.size()) / double(tokens);
    }());
    pair(
        std::string("PackBits pack, ") + names[i], megabytes, "MB/s", [&rows, i] { packByQelj(rows, coded[i]); },
        [&rows] { packByLibtiff(rows, written); }, limit);
    pair(
        std::string("PackBits unpack, ") + names[i], megabytes, "MB/s",
        [&rows, i] {
          uint32_t position = 0;
          for (int y = 0; y < rows.height; ++y)
            qeliUnpackBitsRow_TIFF_8u_C1(coded[i].data(), &position, int32_t(coded[i].size()),
                                         &unpacked[size_t(y) * size_t(rows.width)], rows.width);
        },
        [&rows, i] {
          TIFF* tiff = open(files[i], "r");
          TIFFReadEncodedStrip(tiff, 0, unpacked.data(), tmsize_t(rows.bytes.size()));
          TIFFClose(tiff);
        },
        limit);
  }
  const int samples = int(photo.rgb.size() / 2);
  static Bytes high(photo.rgb.size()), low(photo.rgb.size());
  static uint8_t* const planes[] = {high.data(), low.data()};
  const auto copy = [&] { std::memcpy(unpacked.data(), photo.rgb.data(), photo.rgb.size()); };
  pair(
      "Split of 16-bit samples", samples / 1e6, "MS/s",
      [&] { qeliSplitRow_TIFF_16u8u_C1(reinterpret_cast<const uint16_t*>(photo.rgb.data()), planes, samples); }, {},
      copy);
  pair(
      "Join to 16-bit samples", samples / 1e6, "MS/s",
      [&] { qeliJoinRow_TIFF_8u16u_C1(planes, reinterpret_cast<uint16_t*>(unpacked.data()), samples); }, {}, copy);
  return runPairs(argc, argv);
}
