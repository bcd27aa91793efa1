// Pictures on their way from file to file by rows, without ever being there as a whole. A source makes the rows of a
// picture, a sink takes them; each is some stages of one pipeline (see pipeline.h). Formats offer them beside reading
// and writing whole pictures, which are rows too: all of them.
#ifndef QELCONV_ROWS_H
#define QELCONV_ROWS_H

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "format.h"
#include "pipeline.h"

namespace qelconv {

// Room for a picture's rows, for all or for some: row y takes the place of row y - capacity.
class Rows {
 public:
  explicit Rows(Image& image) : data_(image.data.data()), step_(image.step()), capacity_(image.height) {}
  Rows(const Shape& shape, int32_t capacity)
      : own_(size_t(shape.step()) * size_t(capacity)), data_(own_.data()), step_(shape.step()), capacity_(capacity) {}
  Rows(const Rows&) = delete;

  int32_t step() const { return step_; }
  uint8_t* row(int32_t y) { return data_ + size_t(y % capacity_) * size_t(step_); }
  const uint8_t* row(int32_t y) const { return data_ + size_t(y % capacity_) * size_t(step_); }
  // Whether `count` rows from this one on lie one behind the other.
  bool inOnePiece(int32_t first, int32_t count) const { return first % capacity_ + count <= capacity_; }
  // work(first, count) for the pieces of some rows.
  template <class Work>
  void byPieces(int32_t first, int32_t end, Work&& work) const {
    for (int32_t count; first < end; first += count) {
      count = std::min(end - first, capacity_ - first % capacity_);
      work(first, count);
    }
  }

 private:
  std::vector<uint8_t> own_;
  uint8_t* data_;
  int32_t step_, capacity_;
};

// The strips that a source makes a picture in. Behind strip i's stages the rows up to behind(i) are there.
struct StripRows {
  int32_t strips, rows, late, height;  // each of `rows` rows, of which the last ones come with the next strip
  // Strips that are as high as is worth a step.
  static StripRows of(int32_t height, int32_t rows) { return {(height + rows - 1) / rows, rows, 0, height}; }
  static StripRows of(const Shape& shape) { return of(shape.height, rowsOfStrip(shape)); }
  // Whole MCUs of what may take them.
  static int32_t rowsOfStrip(const Shape& shape) {
    constexpr int32_t kMultiple = 16;
    return std::max(65536 / std::max(shape.step(), 1) / kMultiple * kMultiple, kMultiple);
  }
  // The rows that strip i brings.
  int32_t first(int32_t strip) const { return strip ? behind(strip - 1) : 0; }
  int32_t behind(int32_t strip) const { return strip + 1 >= strips ? height : std::max((strip + 1) * rows - late, 0); }
};

class RowSource {
 public:
  virtual ~RowSource() = default;
  const Shape& shape() const { return shape_; }
  virtual StripRows strips() const = 0;
  // The last step takes strips in order: behind it a sink may look back at the strip before.
  virtual std::vector<Step> steps(Rows& rows, int32_t slots) = 0;
  // Why the picture, now made, is only part of the file's.
  virtual std::string missing() const { return {}; }

 protected:
  Shape shape_;
};

class RowSink {
 public:
  virtual ~RowSink() = default;
  virtual std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) = 0;
  virtual void finish() = 0;
};

// All rows of a source as a picture, and a picture's as a sink takes them.
Image readWhole(RowSource& source, Stages& stages);
void readInto(Image& image, RowSource& source, Stages& stages);  // a picture of the source's shape, whatever is in it
void writeWhole(const Image& image, int32_t rowsOfStrip, RowSink& sink, Stages& stages);
// From one to the other; returns what is missing.
std::string passRows(RowSource& source, RowSink& sink, Stages& stages);

}  // namespace qelconv

#endif
