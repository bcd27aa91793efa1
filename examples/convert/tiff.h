// TIFF and BigTIFF, through libtiff, which reads and writes directories and all compressions but one: PackBits
// and byte planes are the library's. The first picture of a file is read.
#ifndef QELCONV_TIFF_H
#define QELCONV_TIFF_H

#include <tiffio.h>

#include <array>
#include <exception>
#include <memory>

#include "exif.h"
#include "files.h"
#include "format.h"
#include "rows.h"

namespace qelconv::tiff {

// A file, as libtiff asks for it: one that is read, in memory, or one that is written.
class File {
 public:
  // Reads, from the directory of this number on.
  explicit File(Bytes file, unsigned directory = 0);
  // Writes; in what order bytes are, and whether places have 64 bits. What has been put stands behind finish().
  File(Destination& out, bool bigEndian, bool bigTiff);
  ~File();
  File(const File&) = delete;

  operator TIFF*() { return tiff_.get(); }
  Bytes file() const { return file_; }
  uint64_t place() const { return at_; }  // behind what has been looked at
  // Behind what is written so far. Gives the place, 0 of nothing.
  uint64_t append(const std::vector<Field>& fields);
  // What is written can be looked at, by which libtiff puts a second directory behind the first one.
  void lookAt(const std::vector<uint8_t>& written) { written_ = &written; }
  // Throws what libtiff has said last, or what the destination has.
  [[noreturn]] void fail() const;
  void expect(bool success) const {
    if (!success) fail();
  }

  template <class T>
  T field(uint32_t tag, T fallback) {
    T value = fallback;
    return TIFFGetFieldDefaulted(*this, tag, &value) ? value : fallback;
  }

 private:
  struct Calls;
  struct Close {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
  };

  TIFF* open(const char* mode);
  Bytes bytes() const { return written_ ? Bytes(*written_) : file_; }
  uint64_t end() const { return out_ ? put_ : file_.size(); }
  void write(Bytes bytes);

  Bytes file_;                  // that is read
  Destination* out_ = nullptr;  // or written
  const std::vector<uint8_t>* written_ = nullptr;
  uint64_t put_ = 0, at_ = 0;
  bool big_ = false;
  std::string message_;
  std::exception_ptr thrown_;  // by the destination; no exception passes through libtiff
  std::unique_ptr<TIFF, Close> tiff_;
};

// How strips and tiles are compressed.
struct Compression {
  unsigned code;  // in the file
  const char* name;
  uint64_t densest;  // the bytes that one of them makes at most; 0: no bound
};

// A picture in strips or tiles, of all channels or of one.
struct Picture {
  int64_t width, height, across, down;  // of the picture, and of one segment
  Colour colour;
  int channels, bits;
  bool tiled, separate, inverted, multiplied, half, reversed, swapped;
  const Compression* compression;
  std::vector<std::array<uint8_t, 3>> palette;

  int planes() const { return separate ? channels : 1; }
  int together() const { return separate ? 1 : channels; }  // channels of a segment
  size_t rowBytes() const { return size_t(across * together() * bits + 7) / 8; }
  bool packBits() const { return compression->code == COMPRESSION_PACKBITS; }
};

Picture examine(File& in);

// Exchanges the bytes of samples: a split into planes, and a join of the planes the other way round.
void swapBytes(uint8_t* row, int32_t samples, std::vector<uint8_t>& scratch);

// Reading and writing, as a format does it.
std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages);
Image read(Bytes file, const Options& options, Stages& stages);
std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options& options, Stages& stages, Destination& out);
std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages);

}  // namespace qelconv::tiff

#endif
