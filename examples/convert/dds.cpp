// DirectDraw Surface: textures of blocks behind a legacy or a DX10 header. Chains of mip maps, arrays and cubes are
// read picture by picture; one picture is written.
#include <bit>
#include <ostream>

#include "textures.h"

namespace qelconv {
namespace {

constexpr uint32_t kHeaderBytes = 124, kPixelFormatBytes = 32, kFourCode = 4;
constexpr uint32_t kCaps = 1, kHeight = 2, kWidth = 4, kPixelFormat = 0x1000, kMipMapCount = 0x20000,
                   kLinearSize = 0x80000, kTextureCaps = 0x1000, kTexture2D = 3;
constexpr uint32_t kCube = 0x200, kFaces = 0xFC00, kVolume = 0x200000, kDx10Cube = 4, kDx10Volume = 4,
                   kDx10Multiplied = 2;
constexpr char kScaledYCoCg[] = "YCG2";  // left in a reserved word by the writer: a DXT5 of scaled chroma

struct Header : Texture {
  bool dx10 = false;
  Bytes blocks;  // all that follows
};

bool recognises(Bytes file) { return file.size() >= 4 && std::memcmp(file.data(), "DDS ", 4) == 0; }

Header readHeader(Bytes file) {
  Reader in(file, 4);
  if (in.u32le() != kHeaderBytes) throw Error("the header's size is wrong");
  in.skip(4);  // which fields are in use: writers don't agree, and all of these always are
  Header header;
  header.height = in.u32le();
  header.width = in.u32le();
  in.skip(4);
  const uint32_t depth = in.u32le(), levels = in.u32le();
  header.scaledYCoCg = std::memcmp(in.take(4 * 11).data(), kScaledYCoCg, 4) == 0;
  in.skip(4);
  if (!(in.u32le() & kFourCode)) throw Error("only textures of BC1 to BC7 blocks can be read");
  const Bytes four = in.take(4);
  const std::string code(four.begin(), four.end());
  in.skip(4 * 6);
  const uint32_t caps = in.u32le();
  in.seek(4 + kHeaderBytes);
  header.dx10 = code == "DX10";
  bool volume = caps & kVolume;
  if (header.dx10) {
    header.block = &blockOfDxgi(in.u32le());
    volume = in.u32le() == kDx10Volume;
    const bool cube = in.u32le() & kDx10Cube;
    header.layers = std::max<int64_t>(in.u32le(), 1) * (cube ? 6 : 1);
    header.multiplied = (in.u32le() & 7) == kDx10Multiplied;
  } else {
    header.block = &blockOfCode(code);
    if (caps & kCube) header.layers = std::max(std::popcount(caps & kFaces), 1);
    header.multiplied = code == "DXT2" || code == "DXT4";
  }
  checkDimensions(header.width, header.height, 4);
  header.levels = std::clamp<int64_t>(levels, 1, 32);
  // Slices of a volume come level by level; those of the first one can be told apart.
  if (volume) header.layers = std::max<int64_t>(depth, 1), header.levels = 1;
  header.blocks = in.take(in.left());
  return header;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  const Limits limits(file, options);
  const Header header = readHeader(file);
  const Which which = chosen(header, options, stages);
  uint64_t chain = 0, at = 0;
  for (int64_t level = 0; level < header.levels; ++level) {
    if (level == which.level) at = chain;
    chain += header.bytes(level);
  }
  at += chain * uint64_t(which.layer);
  const size_t start = size_t(std::min<uint64_t>(at, header.blocks.size()));
  return decodeTexture(header, header.size(which.level), header.blocks.subspan(start), limits, stages);
}

std::vector<uint8_t> write(const Image& image, const Options& options, Stages& stages) {
  const Encoded encoded = encodeTexture(image, options, stages);
  const Block& block = *encoded.block;
  const bool dx10 = options.has("dx10") || !block.codes.size();
  Writer out;
  out.text("DDS ");
  for (uint32_t v :
       {kHeaderBytes, kCaps | kHeight | kWidth | kPixelFormat | kMipMapCount | kLinearSize,
        uint32_t(encoded.size.height), uint32_t(encoded.size.width), uint32_t(encoded.blocks.size()), 0u, 1u})
    out.u32le(v);
  out.put({reinterpret_cast<const uint8_t*>(encoded.scaledYCoCg ? kScaledYCoCg : "\0\0\0\0"), 4});
  out.bytes.resize(out.bytes.size() + 4 * 10);
  out.u32le(kPixelFormatBytes);
  out.u32le(kFourCode);
  out.text(dx10 ? "DX10" : *block.codes.begin());
  out.bytes.resize(out.bytes.size() + 4 * 5);
  out.u32le(kTextureCaps);
  out.bytes.resize(out.bytes.size() + 4 * 4);
  if (dx10)
    for (uint32_t v : {*block.dxgi.begin(), kTexture2D, 0u, 1u, 0u}) out.u32le(v);
  out.put(encoded.blocks);
  return std::move(out.bytes);
}

void describe(Bytes file, Facts& facts) {
  const Header header = readHeader(file);
  describeTexture("DDS", header, facts);
  facts.add("header", header.dx10 ? "DX10" : "legacy");
}

}  // namespace

extern const Format kDds;
const Format kDds = {
    "DDS",
    {".dds"},
    {kBlockOption, kWhichLevel, kWhichLayer, {"dx10", nullptr, "write a DX10 header for BC1 to BC5 too"}},
    recognises,
    read,
    write,
    describe};

}  // namespace qelconv
