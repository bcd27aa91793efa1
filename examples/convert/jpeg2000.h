// JPEG 2000 codestreams (ISO/IEC 15444-1): parameters, the geometry of tiles, and the packets between
// code-blocks and bytes. Transforms and code-block coding are the library's.
//
//   jpeg2000_markers.cpp   marker segments and the JP2 boxes around them
//   jpeg2000_tile.cpp      resolutions, bands, precincts and code-blocks of a tile; the order of packets
//   jpeg2000_packet.cpp    packet headers and bodies: tag trees, passes, segment lengths
//   jpeg2000_encode.cpp    pixels to code-blocks, and the allocation of passes to layers
//   jpeg2000_decode.cpp    code-blocks to pixels
//   jpeg2000.cpp           the format's record
#ifndef QELCONV_JPEG2000_H
#define QELCONV_JPEG2000_H

#include <array>
#include <atomic>
#include <functional>
#include <vector>

#include "file_limits.h"
#include "format.h"
#include "image.h"

namespace qelconv::jpeg2000 {

// --- parameters --------------------------------------------------------------------------------------------

enum class Progression { LRCP, RLCP, RPCL, PCRL, CPRL };

// Code-block style, as SPcod has it (Table A.19).
enum BlockStyle { kBypass = 1, kReset = 2, kTerminate = 4, kCausal = 8, kPredictable = 16, kSegmentSymbols = 32 };
// The same in the library's numbering.
int32_t libraryStyle(int style);

struct Step {
  int exponent = 0, mantissa = 0;
};

// COD or COC, and QCD or QCC, of one component.
struct Coding {
  int levels = 5;
  int blockWidthLog2 = 6, blockHeightLog2 = 6, style = 0;
  bool reversible = true;
  std::array<uint8_t, 33> precincts{};  // PPx | PPy << 4 of each resolution
  int guardBits = 2;
  std::vector<Step> steps;    // one a band, LL first; one alone is derived for all
  std::vector<double> gains;  // encoder: one a band, see synthesisGains
};

struct Parameters {
  int32_t width = 0, height = 0, x0 = 0, y0 = 0;  // the image's area ends at (width, height)
  int32_t tileWidth = 0, tileHeight = 0, tileX0 = 0, tileY0 = 0;
  std::vector<int> bits;  // of each component
  Progression progression = Progression::LRCP;
  int layers = 1;
  bool colourTransform = false, sop = false, eph = false;
  std::vector<Coding> coding;  // one a component
  Colour colour = Colour::rgb;

  int32_t tilesWide() const;
  int32_t tilesHigh() const;
};

// --- geometry ----------------------------------------------------------------------------------------------

struct Area {
  int32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  int32_t width() const { return x1 - x0; }
  int32_t height() const { return y1 - y0; }
  bool empty() const { return x1 <= x0 || y1 <= y0; }
};

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
  std::vector<uint8_t> coded;  // decoder: the tile's parts, one after the other
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

// Appends the packets of a tile, up to `layers` layers.
void writePackets(std::vector<uint8_t>& out, const Parameters& parameters, Tile& tile, int layers);
// Takes a tile's packets apart into its blocks' data and segments. Gives what is wrong with them, empty if
// nothing is: then all packets up to there were read. `visits` counts the blocks that packets were asked
// about.
std::string readPackets(const Parameters& parameters, Tile& tile, const Limits& limits, std::atomic<uint64_t>& visits);

// --- files -------------------------------------------------------------------------------------------------

struct Codestream {
  Parameters parameters;
  std::vector<std::vector<Bytes>> tileParts;  // by tile
  std::string missing;                        // what is wrong with the file behind its main header
};
bool isJp2(Bytes file);
Codestream parse(Bytes file);
std::vector<uint8_t> writeMainHeader(const Parameters& parameters);
void writeTile(std::vector<uint8_t>& out, int32_t index, Bytes packets);
std::vector<uint8_t> wrapJp2(const Parameters& parameters, Bytes codestream);

// --- pixels ------------------------------------------------------------------------------------------------

struct Goal {
  std::vector<double> bitsPerPixel, psnr;  // of each layer; both empty: everything
};
void encodeTiles(const Image& image, const Parameters& parameters, const Goal& goal, std::vector<Tile>& tiles,
                 Stages& stages);
Image decodeTiles(const Codestream& stream, const Limits& limits, Stages& stages);

}  // namespace qelconv::jpeg2000

#endif
