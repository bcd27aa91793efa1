// TIFF rows beside libtiff, which codes and decodes whole strips of a file in memory.
#include <tiffio.h>

#include <algorithm>
#include <cstring>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

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

struct Input {
  std::string name;
  Rows rows;
  bool photograph;
};

void packBits(std::vector<Input>& inputs) {
  for (const bool photograph : {true, false})
    for (const bool unpacking : {true, false}) {
      road(std::string("PackBits ") + (unpacking ? "unpacking " : "packing ") + (photograph ? "photographs" : "runs"),
           "MB/s", "libtiff", unpacking && photograph ? 3 : 0);
      for (Input& input : inputs) {
        if (input.photograph != photograph || !wanted(input.name)) continue;
        const Rows& rows = input.rows;
        Bytes coded(rows.bytes.size() * 2), unpacked(rows.bytes.size()), copy(rows.bytes.size());
        const uint32_t size = packByQelj(rows, coded);
        Memory file;
        packByLibtiff(rows, file);
        size_t tokens = 0;
        for (uint32_t at = 0; at < size; ++tokens) at += int8_t(coded[at]) < 0 ? 2u : coded[at] + 2u;
        const std::string note = text("%.2f of its size, %.1f bytes a token", size / double(rows.bytes.size()),
                                      double(rows.bytes.size()) / double(tokens));
        const Work limit = [&] { std::memcpy(copy.data(), rows.bytes.data(), rows.bytes.size()); };
        if (unpacking)
          row(
              input.name, double(rows.bytes.size()) / 1e6,
              [&] {
                uint32_t position = 0;
                for (int y = 0; y < rows.height; ++y)
                  qeliUnpackBitsRow_TIFF_8u_C1(coded.data(), &position, int32_t(size),
                                               &unpacked[size_t(y) * size_t(rows.width)], rows.width);
              },
              [&] {
                TIFF* tiff = open(file, "r");
                TIFFReadEncodedStrip(tiff, 0, unpacked.data(), tmsize_t(unpacked.size()));
                TIFFClose(tiff);
              },
              limit, note);
        else
          row(
              input.name, double(rows.bytes.size()) / 1e6, [&] { packByQelj(rows, coded); },
              [&] { packByLibtiff(rows, file); }, limit, note);
      }
    }
}

void planes() {
  constexpr int kCount = 1 << 16;
  std::vector<uint16_t> samples(kCount), copy(kCount);
  Bytes high(kCount), low(kCount);
  uint8_t* const bytes[] = {high.data(), low.data()};
  // In the second cache, and so few that the ends count.
  for (const int count : {kCount, 16}) {
    road(count == kCount ? "split and join, in the second cache" : "split and join, 16 samples a call", "MSample/s",
         "memcpy of the bytes touched", count == kCount ? 0.8 : 0);
    const Work limit = [&] { std::memcpy(copy.data(), samples.data(), size_t(count) * 2); };
    row("split", 1e-6 * count, [&] { qeliSplitRow_TIFF_16u8u_C1(samples.data(), bytes, count); }, limit);
    row("join", 1e-6 * count, [&] { qeliJoinRow_TIFF_8u16u_C1(bytes, samples.data(), count); }, limit);
  }
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  planes();
  std::vector<Input> inputs;
  for (const char* name : {"raccoon", "coffee"}) {
    const Photo photo = loadPhoto(name + std::string(".png"));
    Rows grey{photo.width, photo.height, {}}, runs = grey;
    for (size_t i = 0; i < photo.rgb.size(); i += 3) {
      grey.bytes.push_back(photo.rgb[i + 1]);
      runs.bytes.push_back(photo.rgb[i + 1] < 96 ? 0 : 255);  // a scanned page's runs and specks
    }
    inputs.push_back({name + std::string(", RGB"), {photo.width * 3, photo.height, photo.rgb}, true});
    inputs.push_back({name + std::string(", grey"), grey, true});
    inputs.push_back({name, runs, false});
  }
  packBits(inputs);
  return finish();
}
