// Pictures that the benchmarks work on, and rows in memory.
#ifndef QELJ_BENCH_PICTURES_H
#define QELJ_BENCH_PICTURES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qelj::bench {

// Interleaved RGB.
struct Photo {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
  double megapixels() const { return width * 1e-6 * height; }
  uint8_t* row(int y) { return &rgb[size_t(y) * size_t(width) * 3]; }
  const uint8_t* row(int y) const { return &rgb[size_t(y) * size_t(width) * 3]; }
};

// A photograph of examples/images, such as "raccoon.png", as it is, and halved by averaging. The raccoon was a JPEG
// file once: the coefficients of the picture as it is are those of that file. Halved it has no such history.
Photo loadPhoto(const std::string& name);
Photo halved(const Photo& photo);
// Random bytes, and smooth noise with the spectrum of photographs: every octave has the same energy.
Photo noise(int width, int height);
Photo octaves(int width, int height);
// 2048 x 2048 pixels of crops of a picture, each shifted by another number of pixels against the grid of blocks, from
// which 4:2:0 makes 98,304 blocks, nearly all different.
Photo mosaic(const Photo& photo);
// The pictures whose coefficients are coded: without a JPEG's history, so many blocks that no branch predictor learns
// them by heart.
struct CodedPicture {
  std::string name;
  std::function<Photo()> make;
};
const std::vector<CodedPicture>& codedPictures();

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

// Rows aligned to 64 bytes with room behind each, and pointers to them.
class Samples {
 public:
  Samples(int rowBytes, int height, int border = 0);
  explicit Samples(const Photo& photo);
  Samples(const Samples&) = delete;

  // Rows -1 and `height` exist.
  uint8_t* row(int y) const { return rows_[size_t(y + 1)]; }
  uint8_t** rows(int from = 0) const { return const_cast<uint8_t**>(rows_.data()) + from + 1; }
  int32_t step() const { return step_; }

 private:
  int32_t step_;
  std::vector<uint8_t> bytes_;
  std::vector<uint8_t*> rows_;
};

}  // namespace qelj::bench

#endif
