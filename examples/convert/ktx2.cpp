// KTX 2.0: textures of blocks without supercompression. Levels, layers, faces and slices are read picture by
// picture; one picture is written.
#include <numeric>
#include <ostream>

#include "textures.h"

namespace qelconv {
namespace {

constexpr uint8_t kIdentifier[12] = {0xAB, 'K', 'T', 'X', ' ', '2', '0', 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr uint32_t kHeaderBytes = 80, kLevelBytes = 24;
constexpr int kMostLevels = 16;

struct Header : Texture {
  std::array<Bytes, kMostLevels> data;
};

bool recognises(Bytes file) {
  return file.size() >= sizeof kIdentifier && std::memcmp(file.data(), kIdentifier, sizeof kIdentifier) == 0;
}

Header readHeader(Bytes file) {
  Reader in(file, sizeof kIdentifier);
  Header header;
  const uint32_t format = in.u32le();
  in.skip(4);
  header.width = in.u32le(), header.height = in.u32le();
  const uint32_t depth = in.u32le(), layers = in.u32le(), faces = in.u32le(), levels = in.u32le();
  const uint32_t scheme = in.u32le();
  if (scheme) throw Error("the supercompression scheme " + std::to_string(scheme) + " can't be read");
  header.block = &blockOfVulkan(format);
  checkDimensions(header.width, header.height, 4);
  if (faces != 1 && faces != 6) throw Error("a texture has one face or six");
  if (levels > kMostLevels) throw Error("a texture of such sides has no " + std::to_string(levels) + " levels");
  header.levels = std::max(levels, 1u);  // 0 asks the reader to make more
  const uint64_t slices = uint64_t(std::max(layers, 1u)) * std::max(depth, 1u);
  if (slices > INT32_MAX / 6) throw Error("the texture has too many layers");
  header.layers = int64_t(slices) * faces;
  constexpr uint32_t kRgb = 131, kRgbSrgb = 132;
  if (format == kRgb || format == kRgbSrgb) header.fourth = FourthColour::black;

  const uint32_t descriptor = in.u32le(), descriptorBytes = in.u32le();
  constexpr uint32_t kFlags = 15, kMultiplied = 1;  // of the descriptor's block, behind its size
  if (descriptorBytes > kFlags) {
    Reader flags(file, 0);
    flags.seek(descriptor);
    flags.skip(kFlags);
    header.multiplied = flags.u8() & kMultiplied;
  }
  in.seek(kHeaderBytes);
  for (int64_t level = 0; level < header.levels; ++level) {
    const uint64_t offset = in.u64le(), bytes = in.u64le();
    in.skip(8);
    if (offset < file.size()) header.data[size_t(level)] = file.subspan(size_t(offset));
    header.data[size_t(level)] =
        header.data[size_t(level)].first(size_t(std::min<uint64_t>(bytes, header.data[size_t(level)].size())));
  }
  return header;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  const Limits limits(file, options);
  const Header header = readHeader(file);
  const Which which = chosen(header, options, stages);
  const Bytes level = header.data[size_t(which.level)];
  const uint64_t at = uint64_t(which.layer) * header.bytes(which.level);
  return decodeTexture(header, header.size(which.level), level.subspan(size_t(std::min<uint64_t>(at, level.size()))),
                       limits, stages);
}

// The Khronos descriptor of a kind of blocks: its words, and how their bits share the channels.
std::vector<uint8_t> describeBlocks(const Block& block) {
  struct Channel {
    uint16_t first;
    uint8_t bits, id;
  };
  constexpr uint8_t kColour = 0, kGreen = 1, kPunchThrough = 1, kAlpha = 15;
  std::vector<Channel> channels = {{0, uint8_t(8 * block.bytes - 1), kColour}};
  if (block.sample == Sample::rgb) channels[0].id = kPunchThrough;
  if (block.sample == Sample::redGreen) channels = {{0, 63, kColour}, {64, 63, kGreen}};
  if (block.sample == Sample::rgba && block.codes.size()) channels = {{0, 63, kAlpha}, {64, 63, kColour}};
  constexpr unsigned kVersion = 2, kBT709 = 1, kLinear = 1;
  const auto bytes = unsigned(24 + 16 * channels.size());
  Writer out;
  out.u32le(4 + bytes);
  out.u32le(0);  // vendor and type: Khronos, basic
  out.u16le(kVersion), out.u16le(bytes);
  for (const unsigned v : {unsigned(block.model), kBT709, kLinear, 0u}) out.u8(v);
  for (const unsigned sideLessOne : {3, 3, 0, 0}) out.u8(sideLessOne);
  out.u32le(uint32_t(block.bytes)), out.u32le(0);
  for (const Channel& c : channels) {
    out.u16le(c.first), out.u8(c.bits), out.u8(c.id);
    out.u32le(0);
    out.u32le(0), out.u32le(UINT32_MAX);
  }
  return std::move(out.bytes);
}

std::vector<uint8_t> write(const Image& image, const Options& options, Stages& stages) {
  const Encoded encoded = encodeTexture(image, options, stages);
  if (encoded.scaledYCoCg) throw Error("KTX has no word for blocks of scaled YCoCg");
  const auto descriptor = describeBlocks(*encoded.block);
  const uint32_t descriptorAt = kHeaderBytes + kLevelBytes;
  const size_t alignment = encoded.block->bytes;
  const size_t at = (descriptorAt + descriptor.size() + alignment - 1) / alignment * alignment;
  Writer out;
  out.put(kIdentifier);
  for (const uint32_t v :
       {*encoded.block->vulkan.begin(), 1u, uint32_t(encoded.size.width), uint32_t(encoded.size.height), 0u, 0u, 1u, 1u,
        0u, descriptorAt, uint32_t(descriptor.size()), 0u, 0u, 0u, 0u, 0u, 0u})
    out.u32le(v);
  for (const uint32_t v : {uint32_t(at), 0u, uint32_t(encoded.blocks.size()), 0u, uint32_t(encoded.blocks.size()), 0u})
    out.u32le(v);
  out.put(descriptor);
  out.bytes.resize(at);
  out.put(encoded.blocks);
  return std::move(out.bytes);
}

void describe(Bytes file, Facts& facts) { describeTexture("KTX 2", readHeader(file), facts); }

}  // namespace

extern const Format kKtx2;
const Format kKtx2 = {"KTX 2", {".ktx2"}, {kBlockOption, kWhichLevel, kWhichLayer}, recognises, read, write, describe};

}  // namespace qelconv
