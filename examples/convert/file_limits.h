// What a file may ask for. A few bytes can describe a picture of gigabytes, so that every reader asks here
// before it makes room, and memory beyond the floor is had for bytes that are there.
#ifndef QELCONV_FILE_LIMITS_H
#define QELCONV_FILE_LIMITS_H

#include <cstddef>
#include <mutex>
#include <string>

#include "image.h"
#include "options.h"

namespace qelconv {

// The options of all readers.
inline constexpr OptionSpec kReadOptions[] = {
    {"partial", nullptr, "take what there is of a truncated or damaged file"},
    {"max-memory", "MB", "memory that a file may ask for (96 and 4096 times its size)"}};

class Limits {
 public:
  Limits(Bytes file, const Options& options);

  // Throws where a picture can't be held (see checkDimensions), or where the conversion would take more
  // memory than the limit: `working` is what the reader holds beside the picture, all together.
  void expectPicture(int64_t width, int64_t height, int channels, int bits, uint64_t working = 0) const;
  // The same for memory of other kinds.
  void expectMemory(uint64_t bytes) const;
  // And for steps of work that a file asks for without giving a bit for each, such as visits to blocks that a
  // packet leaves out.
  void expectWork(uint64_t steps) const;
  // Throws where `coded` bytes can't hold this many units (pixels, blocks, packets) of at least `bits` bits
  // each. Under --partial nothing is expected of the data: ask for the memory as well.
  void expectData(size_t coded, uint64_t units, uint64_t bits) const;

  bool partial() const { return partial_; }
  // For a reader that has only part of a picture: throws unless --partial asks for what there is.
  void expectWhole(const std::string& why) const;
  // The same at the end: under --partial the picture bears the reason, which the program prints, and reading
  // it has succeeded.
  void onlyPart(Image& image, const std::string& why) const;

 private:
  uint64_t limit_;
  size_t fileBytes_;
  bool partial_;
};

// What is wrong with the first bad part of a picture, whose parts (tiles, strips) may be read side by side.
class FirstWrong {
 public:
  explicit FirstWrong(const Limits& limits) : limits_(limits) {}
  // Throws unless --partial asks for the other parts.
  void note(size_t part, const std::string& why);
  // Behind all parts: nothing where none is wrong.
  const std::string& why() const { return why_; }
  // The same, and hands the picture out as it is.
  void settle(Image& image) const;

 private:
  const Limits& limits_;
  std::mutex mutex_;
  size_t part_ = SIZE_MAX;
  std::string why_;
};

}  // namespace qelconv

#endif
