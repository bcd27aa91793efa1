// JPEG 2000 codestreams (ISO/IEC 15444-1): parameters, the geometry of tiles, and the packets between
// code-blocks and bytes. Transforms and code-block coding are the library's.
//
//   jpeg2000_markers.cpp   marker segments and the JP2 boxes around them
//   jpeg2000_tile.cpp      resolutions, bands, precincts and code-blocks of a tile; the order of packets
//   jpeg2000_packet.cpp    packet headers and bodies: tag trees, passes, segment lengths
//   jpeg2000_encode.cpp    pixels to code-blocks, and the allocation of passes to layers
//   jpeg2000_decode.cpp    code-blocks to components
//   jpeg2000_picture.cpp   components to pictures: palettes, channel definitions, chroma
//   jpeg2000.cpp           the format's record
#ifndef QELCONV_JPEG2000_H
#define QELCONV_JPEG2000_H

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <vector>

#include "file_limits.h"
#include "format.h"
#include "rows.h"

namespace qelconv::jpeg2000 {

// --- parameters --------------------------------------------------------------------------------------------

enum class Progression { LRCP, RLCP, RPCL, PCRL, CPRL };

// Code-block style, as SPcod has it (Table A.19).
enum BlockStyle { kBypass = 1, kReset = 2, kTerminate = 4, kCausal = 8, kPredictable = 16, kSegmentSymbols = 32 };
// The same in the library's numbering.
int32_t libraryStyle(int style);

struct StepSize {
  int exponent = 0, mantissa = 0;
};

// COD or COC, and QCD or QCC, of one component.
struct Coding {
  int levels = 5;
  int blockWidthLog2 = 6, blockHeightLog2 = 6, style = 0;
  bool reversible = true;
  std::array<uint8_t, 33> precincts{};  // PPx | PPy << 4 of each resolution
  int guardBits = 2;
  int roiShift = 0;             // planes by which the region of interest lies above the rest
  std::vector<StepSize> steps;  // one a band, LL first; one alone is derived for all
  std::vector<double> gains;    // encoder: one a band, see synthesisGains
};

// Distances of a component's samples on the reference grid.
struct Spacing {
  int x = 1, y = 1;
  bool operator==(const Spacing&) const = default;
};

// One entry of a POC segment: the packets that come next, as far as they have not come.
struct Progress {
  int firstResolution = 0, firstComponent = 0, endLayer = 0, endResolution = 0, endComponent = 0;
  Progression order = Progression::LRCP;
};

struct Area {
  int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  int32_t width() const { return x1 - x0; }
  int32_t height() const { return y1 - y0; }
  bool empty() const { return x1 <= x0 || y1 <= y0; }
};

// Of the picture, or of a tile whose header has some of its own.
struct Parameters {
  int32_t width = 0, height = 0, x0 = 0, y0 = 0;  // the image's area ends at (width, height)
  int32_t tileWidth = 0, tileHeight = 0, tileX0 = 0, tileY0 = 0;
  std::vector<int> bits;         // of each component
  std::vector<Spacing> spacing;  // of each component
  Progression progression = Progression::LRCP;
  std::vector<Progress> changes;  // of the progression
  int layers = 1;
  bool colourTransform = false, sop = false, eph = false;
  std::vector<Coding> coding;  // one a component
  Colour colour = Colour::rgb;

  int32_t tilesWide() const;
  int32_t tilesHigh() const;
  // What a component has of an area of the reference grid (B-12), and of the picture.
  Area areaOf(size_t component, const Area& area) const;
  Area areaOf(size_t component) const { return areaOf(component, {x0, y0, width, height}); }
};

// Of what is read: components of a picture, and bits of them, which the block coder's 31 planes hold with guard bits.
constexpr int kMostComponents = 16, kMostBits = 24;

// --- geometry ----------------------------------------------------------------------------------------------

class TagTree {
 public:
  TagTree() = default;
  TagTree(int32_t width, int32_t height);
  void set(int32_t leaf, int value);  // for writing: every leaf, then propagate()
  void propagate();
  void reset();
  // Codes whether the leaf's value is below the threshold, with as many bits as that needs.
  void encode(class BitWriter& out, int32_t leaf, int threshold);
  bool decode(class BitReader& in, int32_t leaf, int threshold);
  static size_t bytesOfLeaf() { return 2 * sizeof(Node); }  // at most, with the nodes above it

 private:
  struct Node {
    int32_t parent = -1;
    int value = 1 << 20, low = 0;
    bool known = false;
  };
  std::vector<Node> nodes_;
  int32_t leaves_ = 0;
  template <class Visit>
  void fromRoot(int32_t leaf, Visit&& visit);
};

// A codeword segment: the bytes between two terminations of the block's coder.
struct Segment {
  int passes = 0, maxPasses = 0;
  int32_t length = 0;
};

struct Block {
  Area area;             // in its band
  int32_t x = 0, y = 0;  // in the tile-component's buffer
  int zeroPlanes = 0;
  int lengthBits = 3;  // Lblock
  bool included = false;
  std::vector<uint8_t> data;
  std::vector<Segment> segments;
  Bytes inFile;  // decoder: all data, where they lie in one piece, as those of one layer do; else they are in `data`
  // Encoder: the end of every pass in `data`, its error reduction, and the passes that each layer ends with.
  struct Pass {
    int32_t end = 0;
    double reduction = 0;  // of squared error in the picture, up to here
    double slope = 0;      // of the convex hull; 0 for a pass that isn't on it
    bool terminated = false;
  };
  std::vector<Pass> passes;
  std::vector<int> layerPasses;
  int passesSent = 0;

  void take(Bytes more);
};

struct Band {
  int kind = 0;  // 0 LL, 1 HL, 2 LH, 3 HH
  Area area;
  int32_t x = 0, y = 0;  // in the tile-component's buffer
  int planes = 0;        // Mb
  double step = 1;       // 1 for reversible coding
  double gain = 1;       // encoder: squared error in the picture of a unit error here
};

// The blocks of one band in one precinct.
struct Group {
  int band = 0;
  int32_t wide = 0, high = 0;
  std::vector<Block> blocks;
  TagTree inclusion, zeroPlanes;
};

struct Precinct {
  int64_t x = 0, y = 0;  // on the reference grid, for the progressions by position
  std::vector<Group> groups;
};

struct Resolution {
  Area area;
  std::vector<Band> bands;
  std::vector<Precinct> precincts;
};

struct TileComponent {
  Area area;
  std::vector<Resolution> resolutions;
  std::vector<int32_t> data;  // the tile's samples, or coefficients in the in-place layout of the wavelet
};

struct Tile {
  Area area;
  std::vector<TileComponent> components;
  // Decoder: the tile's parts one after the other, joined where there are several, and its packets' headers where they
  // lie apart.
  Bytes coded;
  std::vector<uint8_t> joined;
  bool headersPacked = false;
  Bytes packedHeaders;

  uint64_t precincts() const;
};

Area tileArea(const Parameters& parameters, int32_t index);
Tile layOut(const Parameters& parameters, int32_t index);

// What a tile will hold, without making it.
struct Extent {
  uint64_t packets = 0, bytes = 0;  // of memory beside the samples
};
Extent measure(const Parameters& parameters, int32_t index);

struct PacketPlace {
  int layer, resolution, component, precinct;
};
// Calls visit(place) for the packets of a tile in the order of its progression, until that gives false.
void visitPackets(const Parameters& parameters, const Tile& tile, const std::function<bool(const PacketPlace&)>& visit);

// The squared norms of all bands' synthesis functions: what a unit error there costs in the picture.
std::vector<double> synthesisGains(bool reversible, int levels);

// --- packets -----------------------------------------------------------------------------------------------

int passesOfSegment(int style, size_t segment);

// Appends the packets of a tile.
void writePackets(std::vector<uint8_t>& out, const Parameters& parameters, Tile& tile);
// The same layer by layer, without the bytes: how many there are of one, behind those of the layers that are sent, one
// after the other, and whatever the blocks have of later ones. A trial changes nothing.
void beginPackets(Tile& tile);
size_t bytesOfLayer(Tile& tile, int layer, bool isSent);
// Takes a tile's packets apart into its blocks' data and segments. Gives what is wrong with them, empty if
// nothing is: then all packets up to there were read. `visits` counts the blocks that packets were asked
// about.
std::string readPackets(const Parameters& parameters, Tile& tile, const Limits& limits, std::atomic<uint64_t>& visits);

// --- files -------------------------------------------------------------------------------------------------

// Colour spaces, as enumerated (Table I.10, and that of Part 2).
enum ColourSpace : uint32_t { kCmyk = 12, kCieLab = 14, kSrgb = 16, kGrey = 17, kYcc = 18 };

// What the boxes around a codestream say about its components.
struct Jp2Header {
  struct Channel {
    int component = 0, column = -1;  // of the palette; -1: the component as it is
  };
  struct Meaning {
    int channel = 0, kind = 0, association = 0;  // as in the channel definition box
  };
  uint32_t colourSpace = 0;    // as enumerated; 0: not told
  bool colourUnknown = false;  // told in no way that is followed
  Metadata metadata;
  std::vector<int> paletteBits;      // one a column
  std::vector<uint32_t> palette;     // entries of all columns
  std::vector<Channel> channels;     // empty: the components
  std::vector<Meaning> definitions;  // empty: by their order
};

struct Codestream {
  Parameters parameters;
  std::vector<std::vector<Bytes>> tileParts;     // by tile
  std::map<int32_t, Parameters> tileParameters;  // where they differ
  bool headersPacked = false;                    // of all tiles, in the main header; else of those that are in the map
  std::map<int32_t, std::vector<uint8_t>> packedHeaders;
  Jp2Header jp2;
  std::string missing;  // what is wrong with the file behind its main header

  const Parameters& parametersOf(int32_t tile) const {
    const auto own = tileParameters.find(tile);
    return own == tileParameters.end() ? parameters : own->second;
  }
};
bool isJp2(Bytes file);
Codestream parse(Bytes file);
std::vector<uint8_t> writeMainHeader(const Parameters& parameters);
void writeTile(std::vector<uint8_t>& out, int32_t index, Bytes packets);
std::vector<uint8_t> wrapJp2(const Parameters& parameters, const Metadata& metadata, Bytes codestream);

// --- pixels ------------------------------------------------------------------------------------------------

struct Goal {
  std::vector<double> bitsPerPixel, psnr;  // of each layer; both empty: everything
};
void encodeTiles(const Image& image, const Parameters& parameters, const Goal& goal, std::vector<Tile>& tiles,
                 Stages& stages);
// How the picture is made of the components.
struct Arrangement {
  std::vector<Jp2Header::Channel> sources;  // of the picture's channels
  Colour colour = Colour::grey;
  int bits = 8;  // of the picture
  Spacing spacing;
  bool ycc = false, multiplied = false;  // colours are luma and chroma; they were multiplied by alpha
  bool lossy = false;                    // channels are left out
  Area area;                             // on its own grid
};
// `only`: this component alone; -1: all of them.
Arrangement arrange(const Codestream& stream, int only);
// Whether components are the picture's channels as they are, and else how they become them.
bool isDirect(const Parameters& parameters, const Arrangement& arrangement);
void assemble(const Codestream& stream, const Arrangement& arrangement, const std::vector<Image>& planes, Image& image);
Image decodeTiles(const Codestream& stream, const Arrangement& arrangement, const Limits& limits, Stages& stages);
// The same by rows, without the picture as a whole; null where that takes the whole.
std::unique_ptr<RowSource> rowsOfTile(Codestream stream, Arrangement arrangement, Metadata metadata,
                                      const Limits& limits, const Contents& file, Stages& stages);

}  // namespace qelconv::jpeg2000

#endif
