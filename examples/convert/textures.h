// Textures of BC1 to BC7 blocks, whatever container they are in.
#ifndef QELCONV_TEXTURES_H
#define QELCONV_TEXTURES_H

#include "file_limits.h"
#include "format.h"

namespace qelconv {

enum class Sample { grey, redGreen, rgb, rgba, half };  // what a decoder writes

struct Block {
  using Decode = QelStatus (*)(const uint8_t*, uint8_t*, int32_t, QelSize);
  using Encode = QelStatus (*)(const uint8_t*, int32_t, QelSize, uint8_t*);

  const char* name;  // as --block takes it
  size_t bytes;
  Sample sample;
  Decode decode;  // null: only known by name
  Encode encode;  // null: only read
  // The formats' numbers and the codes of legacy headers; the written one comes first.
  std::initializer_list<uint32_t> dxgi, vulkan;
  std::initializer_list<const char*> codes;
  uint8_t model;  // of Khronos's data format descriptors
};

// A pixel of the fourth index of a BC1 block with three colours, for which the library gives opaque white.
enum class FourthColour { clear, black };

// What a container says. Layers are pictures of an array, faces of a cube one by one, or slices.
struct Texture {
  int64_t width = 0, height = 0;
  const Block* block = nullptr;
  int64_t levels = 1, layers = 1;
  FourthColour fourth = FourthColour::clear;
  bool scaledYCoCg = false;
  bool multiplied = false;  // colours by alpha

  QelSize size(int64_t level = 0) const {
    return {std::max(int32_t(width >> level), 1), std::max(int32_t(height >> level), 1)};
  }
  // Bytes of one picture.
  size_t bytes(int64_t level = 0) const;
};

// Which picture of a texture is meant; throws where it has no such one.
struct Which {
  int64_t level, layer;
};
Which chosen(const Texture& texture, const Options& options, Stages& stages);
// The options of every container.
inline constexpr OptionSpec kWhichLevel = {"level", "N", "of a chain of mip maps, the one to read (0)"},
                            kWhichLayer = {"layer", "N", "of an array, a cube's faces or slices, the one to read (0)"},
                            kBlockOption = {"block", "KIND",
                                            "bc1|bc2|bc3|bc4|bc5|bc7|ycocg (grey bc4, RGB bc1, alpha bc3)"};

// The kind of blocks that bears a number or a code; throws where there is none that can be read.
const Block& blockOfDxgi(uint32_t number);
const Block& blockOfVulkan(uint32_t number);
const Block& blockOfCode(const std::string& code);

// The picture of one level. `blocks`: all bytes from its first one on.
Image decodeTexture(const Texture& texture, QelSize size, Bytes blocks, const Limits& limits, Stages& stages);

// A picture as blocks, by --block or in the kind that suits it.
struct Encoded {
  const Block* block;
  bool scaledYCoCg;
  QelSize size;
  std::vector<uint8_t> blocks;
};
Encoded encodeTexture(const Image& image, const Options& options, Stages& stages);

// For --info.
void describeTexture(const std::string& format, const Texture& texture, Facts& facts);

}  // namespace qelconv

#endif
