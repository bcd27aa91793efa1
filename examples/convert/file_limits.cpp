#include "file_limits.h"

#include <algorithm>

namespace qelconv {
namespace {

constexpr uint64_t kMegabyte = 1 << 20;
// Without --max-memory: small pictures always, and beyond them four times what the densest of the
// compressions (deflate, 1032 to 1) makes of a byte.
constexpr uint64_t kFloor = 96 * kMegabyte, kPerByte = 4096;
// Writers hold a picture up to four times its size beside it, as coefficients or as bytes to be written.
constexpr uint64_t kCopies = 4;
// A step of some 30 ns counts as this much memory: a second of them at the floor.
constexpr uint64_t kBytesPerStep = 4;

}  // namespace

Limits::Limits(Bytes file, const Options& options)
    : limit_(options.has("max-memory") ? uint64_t(options.integer("max-memory", 0, 1, 1 << 20)) * kMegabyte
                                       : kFloor + kPerByte * file.size()),
      fileBytes_(file.size()),
      partial_(options.has("partial")) {}

void Limits::expectPicture(int64_t width, int64_t height, int channels, int bits, uint64_t working) const {
  checkDimensions(width, height, channels);
  const uint64_t bytes = uint64_t(width * height * channels) * (bits > 8 ? 2 : 1);
  expectMemory(std::max(kCopies * bytes, bytes + working));
}

void Limits::expectMemory(uint64_t bytes) const {
  if (bytes <= limit_) return;
  const std::string megabytes = std::to_string(bytes / kMegabyte + 1);
  throw Error("a file of " + std::to_string(fileBytes_) + " bytes asks for " + megabytes +
              " MB of memory (--max-memory " + megabytes + " allows it)");
}

void Limits::expectWork(uint64_t steps) const {
  if (steps * kBytesPerStep > limit_)
    throw Error("a file of " + std::to_string(fileBytes_) +
                " bytes asks for too much work (a higher --max-memory allows more)");
}

void Limits::expectData(size_t coded, uint64_t units, uint64_t bits) const {
  // Units are counted by 64 bits, so that nothing overflows.
  if (units / 64 * bits > coded / 8) expectWhole("the file is truncated: its data are too few for its picture");
}

void Limits::expectWhole(const std::string& why) const {
  if (!partial_) throw Error(why + " (--partial takes what there is)");
}

void Limits::onlyPart(Image& image, const std::string& why) const {
  expectWhole(why);
  image.missing = why;
}

void FirstWrong::note(size_t part, const std::string& why) {
  limits_.expectWhole(why);
  const std::lock_guard lock(mutex_);
  if (part >= part_) return;
  part_ = part;
  why_ = why;
}

void FirstWrong::settle(Image& image) const {
  if (part_ != SIZE_MAX) limits_.onlyPart(image, why_);
}

}  // namespace qelconv
