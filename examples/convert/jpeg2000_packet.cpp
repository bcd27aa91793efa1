// Packet headers and bodies (ISO/IEC 15444-1, B.9 and B.10).
#include <algorithm>
#include <bit>
#include <optional>

#include "jpeg2000.h"

namespace qelconv::jpeg2000 {

// Bits of a packet header, most significant first; behind a byte 0xFF only seven follow.
class BitWriter {
 public:
  explicit BitWriter(std::vector<uint8_t>& out) : out_(out) {}
  void bit(int b) {
    if (left_ == 0) next();
    value_ |= unsigned(b) << --left_;
  }
  void bits(unsigned value, int count) {
    while (count-- > 0) bit(int(value >> count & 1));
  }
  void finish() {
    next();
    if (out_.back() == 0xFF) out_.push_back(0);
  }

 private:
  void next() {
    out_.push_back(uint8_t(value_));
    left_ = value_ == 0xFF ? 7 : 8;
    value_ = 0;
  }
  std::vector<uint8_t>& out_;
  unsigned value_ = 0;
  int left_ = 8;
};

class BitReader {
 public:
  explicit BitReader(Reader& in) : in_(in) {}
  int bit() {
    if (left_ == 0) {
      left_ = value_ == 0xFF ? 7 : 8;
      value_ = in_.u8();
    }
    return value_ >> --left_ & 1;
  }
  unsigned bits(int count) {
    unsigned value = 0;
    while (count-- > 0) value = value << 1 | unsigned(bit());
    return value;
  }
  void finish() {
    if (value_ == 0xFF) in_.skip(1);
    value_ = left_ = 0;
  }

 private:
  Reader& in_;
  int value_ = 0, left_ = 0;
};

// --- tag trees (B.10.2) ------------------------------------------------------------------------------------

TagTree::TagTree(int32_t width, int32_t height) : leaves_(width * height) {
  int32_t first = 0;
  while (width * height > 0) {
    const bool root = width * height == 1;
    const int32_t next = first + width * height, nextWidth = (width + 1) / 2;
    for (int32_t y = 0; y < height; ++y)
      for (int32_t x = 0; x < width; ++x) {
        nodes_.emplace_back();
        nodes_.back().parent = root ? -1 : next + y / 2 * nextWidth + x / 2;
      }
    if (root) break;
    first = next, width = nextWidth, height = (height + 1) / 2;
  }
}

void TagTree::set(int32_t leaf, int value) { nodes_[size_t(leaf)].value = value; }

void TagTree::propagate() {
  for (size_t i = size_t(leaves_); i < nodes_.size(); ++i) nodes_[i].value = 1 << 20;
  for (const Node& node : nodes_)
    if (node.parent >= 0) nodes_[size_t(node.parent)].value = std::min(nodes_[size_t(node.parent)].value, node.value);
}

void TagTree::reset() {
  for (Node& node : nodes_) node.low = 0, node.known = false;
}

template <class Visit>
void TagTree::fromRoot(int32_t leaf, Visit&& visit) {
  int32_t path[32];  // a tree halves its sides at every level
  int depth = 0;
  for (int32_t i = leaf; i >= 0; i = nodes_[size_t(i)].parent) path[depth++] = i;
  while (depth > 0) visit(nodes_[size_t(path[--depth])]);
}

void TagTree::encode(BitWriter& out, int32_t leaf, int threshold) {
  int low = 0;
  fromRoot(leaf, [&](Node& node) {
    low = std::max(low, node.low);
    while (low < threshold && low < node.value) out.bit(0), ++low;
    if (low < threshold && !node.known) out.bit(1), node.known = true;
    node.low = low;
  });
}

bool TagTree::decode(BitReader& in, int32_t leaf, int threshold) {
  int low = 0;
  fromRoot(leaf, [&](Node& node) {
    low = std::max(low, node.low);
    while (low < threshold && !node.known) {
      if (in.bit()) node.known = true, node.value = low;
      else ++low;
    }
    node.low = low;
  });
  const Node& node = nodes_[size_t(leaf)];
  return node.known && node.value < threshold;
}

namespace {

// --- numbers of passes (Table B.4) and segments ------------------------------------------------------------

void putPasses(BitWriter& out, int n) {
  if (n == 1) out.bit(0);
  else if (n == 2) out.bits(2, 2);
  else if (n <= 5) out.bits(unsigned(0xC | (n - 3)), 4);
  else if (n <= 36) out.bits(unsigned(0x1E0 | (n - 6)), 9);
  else out.bits(unsigned(0xFF80 | (n - 37)), 16);
}

int takePasses(BitReader& in) {
  if (!in.bit()) return 1;
  if (!in.bit()) return 2;
  unsigned n = in.bits(2);
  if (n < 3) return int(3 + n);
  n = in.bits(5);
  if (n < 31) return int(6 + n);
  return int(37 + in.bits(7));
}

int floorLog2(int n) { return std::bit_width(unsigned(n)) - 1; }

// The pieces that a block's new passes from..to-1 form: each ends at a termination or at the last pass.
struct Piece {
  int passes;
  int32_t length;
};
std::vector<Piece> piecesOf(const Block& b, int from, int to) {
  std::vector<Piece> pieces;
  int32_t start = from ? b.passes[size_t(from - 1)].end : 0;
  int count = 0;
  for (int p = from; p < to; ++p) {
    ++count;
    const auto& pass = b.passes[size_t(p)];
    if (p + 1 < to && !pass.terminated) continue;
    pieces.push_back({count, pass.end - start});
    start = pass.end, count = 0;
  }
  return pieces;
}

void writePacketHeader(std::vector<uint8_t>& out, Precinct& precinct, int layer) {
  const auto passesAt = [&](const Block& b) { return b.layerPasses[size_t(layer)]; };
  BitWriter bits(out);
  bool any = false;
  for (const Group& g : precinct.groups)
    for (const Block& b : g.blocks) any |= passesAt(b) > b.passesSent;
  bits.bit(any);
  if (any)
    for (Group& g : precinct.groups)
      for (size_t i = 0; i < g.blocks.size(); ++i) {
        Block& b = g.blocks[i];
        const int from = b.passesSent, to = passesAt(b);
        if (b.included) bits.bit(to > from);
        else g.inclusion.encode(bits, int32_t(i), layer + 1);
        if (to <= from) continue;
        if (!b.included) {
          g.zeroPlanes.encode(bits, int32_t(i), b.zeroPlanes + 1);
          b.included = true;
        }
        putPasses(bits, to - from);
        const auto pieces = piecesOf(b, from, to);
        int more = 0;
        for (const Piece& p : pieces)
          more = std::max(more, int(std::bit_width(unsigned(p.length))) - (b.lengthBits + floorLog2(p.passes)));
        for (int k = 0; k < more; ++k) bits.bit(1);
        bits.bit(0);
        b.lengthBits += more;
        for (const Piece& p : pieces) bits.bits(unsigned(p.length), b.lengthBits + floorLog2(p.passes));
      }
  bits.finish();
}

// Calls visit(first, end) for the bytes of blocks that a packet brings.
template <class Visit>
void bodyOf(Precinct& precinct, int layer, Visit&& visit) {
  for (Group& g : precinct.groups)
    for (Block& b : g.blocks) {
      const int from = b.passesSent, to = b.layerPasses[size_t(layer)];
      if (to <= from) continue;
      visit(b, from ? b.passes[size_t(from - 1)].end : 0, b.passes[size_t(to - 1)].end);
    }
}
void send(Precinct& precinct, int layer) {
  for (Group& g : precinct.groups)
    for (Block& b : g.blocks) b.passesSent = std::max(b.passesSent, b.layerPasses[size_t(layer)]);
}

void writePacket(std::vector<uint8_t>& out, Precinct& precinct, int layer) {
  writePacketHeader(out, precinct, layer);
  bodyOf(precinct, layer, [&](const Block& b, int32_t first, int32_t end) {
    out.insert(out.end(), b.data.begin() + first, b.data.begin() + end);
  });
  send(precinct, layer);
}

template <class Visit>
void forEachPrecinct(Tile& tile, Visit&& visit) {
  for (TileComponent& c : tile.components)
    for (Resolution& r : c.resolutions)
      for (Precinct& p : r.precincts) visit(p);
}

// What a packet's header changes of a precinct, put back at the end.
class Trial {
 public:
  explicit Trial(Precinct& precinct) : precinct_(precinct) {
    for (const Group& g : precinct.groups) {
      trees_.push_back(g.inclusion), trees_.push_back(g.zeroPlanes);
      for (const Block& b : g.blocks) blocks_.push_back({b.lengthBits, b.included});
    }
  }
  Trial(const Trial&) = delete;
  ~Trial() {
    auto tree = trees_.begin();
    auto block = blocks_.begin();
    for (Group& g : precinct_.groups) {
      g.inclusion = std::move(*tree++), g.zeroPlanes = std::move(*tree++);
      for (Block& b : g.blocks) b.lengthBits = block->lengthBits, b.included = block++->included;
    }
  }

 private:
  struct State {
    int lengthBits;
    bool included;
  };
  Precinct& precinct_;
  std::vector<TagTree> trees_;
  std::vector<State> blocks_;
};

// What a packet brings to one segment of a block.
struct Arrival {
  Block* block;
  size_t segment;
  int passes;
  uint32_t length;

  // Passes without their bytes are as good as not sent.
  void drop() const { block->segments[segment].passes -= passes; }
};

// The header may lie elsewhere than the body: `head` is then another reader than `in`.
void readPacket(Reader& head, Reader& in, const Parameters& parameters, int style, Precinct& precinct,
                std::vector<Band>& bands, int layer, std::vector<Arrival>& arrivals, uint64_t& visits) {
  if (parameters.sop && in.left() >= 6) {
    Reader ahead = in;
    if (ahead.u16be() == 0xFF91) in.skip(6);
  }
  BitReader bits(head);
  if (bits.bit()) {
    for (Group& g : precinct.groups) {
      visits += g.blocks.size();
      for (size_t i = 0; i < g.blocks.size(); ++i) {
        Block& b = g.blocks[i];
        const bool here = b.included ? bits.bit() : g.inclusion.decode(bits, int32_t(i), layer + 1);
        if (!here) continue;
        if (!b.included) {
          b.included = true;
          int planes = 1;
          while (!g.zeroPlanes.decode(bits, int32_t(i), planes))
            if (++planes > 80) throw Damaged("a packet header is damaged");
          b.zeroPlanes = planes - 1;
          if (b.zeroPlanes > bands[size_t(g.band)].planes) throw Damaged("a packet header is damaged");
        }
        int left = takePasses(bits);
        while (bits.bit())
          if (++b.lengthBits > 31) throw Damaged("a packet header is damaged");
        while (left > 0) {
          if (b.segments.empty() || b.segments.back().passes == b.segments.back().maxPasses)
            b.segments.push_back({0, passesOfSegment(style, b.segments.size()), 0});
          Segment& s = b.segments.back();
          const int now = std::min(left, s.maxPasses - s.passes);
          const int width = b.lengthBits + floorLog2(now);
          if (width > 31) throw Damaged("a packet header is damaged");
          s.passes += now, left -= now;
          arrivals.push_back({&b, b.segments.size() - 1, now, 0});
          arrivals.back().length = bits.bits(width);
        }
      }
    }
  }
  bits.finish();
  if (parameters.eph && head.left() >= 2) {
    Reader ahead = head;
    if (ahead.u16be() == 0xFF92) head.skip(2);
  }
  std::reverse(arrivals.begin(), arrivals.end());
  for (; !arrivals.empty(); arrivals.pop_back()) {
    const Arrival& a = arrivals.back();
    const Bytes bytes = in.take(a.length);
    a.block->take(bytes);
    a.block->segments[a.segment].length += int32_t(a.length);
  }
}

}  // namespace

void Block::take(Bytes bytes) {
  if (data.size() + inFile.size() + bytes.size() > INT32_MAX) throw Damaged("a code-block is too long");
  const bool adjacent = inFile.empty() || inFile.data() + inFile.size() == bytes.data();
  if (data.empty() && adjacent) {
    inFile = {inFile.empty() ? bytes.data() : inFile.data(), inFile.size() + bytes.size()};
    return;
  }
  if (data.empty()) data.assign(inFile.begin(), inFile.end()), inFile = {};
  data.insert(data.end(), bytes.begin(), bytes.end());
}

int passesOfSegment(int style, size_t segment) {
  if (style & kTerminate) return 1;
  if (!(style & kBypass)) return 1 << 20;
  // The first four planes, then raw pairs and cleanups by turns.
  return segment == 0 ? 10 : segment % 2 ? 2 : 1;
}

void beginPackets(Tile& tile) {
  forEachPrecinct(tile, [](Precinct& p) {
    for (Group& g : p.groups) {
      g.inclusion.reset(), g.zeroPlanes.reset();
      for (size_t i = 0; i < g.blocks.size(); ++i) {
        Block& b = g.blocks[i];
        b.included = false, b.passesSent = 0, b.lengthBits = 3;
        g.zeroPlanes.set(int32_t(i), b.zeroPlanes);
      }
      g.zeroPlanes.propagate();
    }
  });
}

size_t bytesOfLayer(Tile& tile, int layer, bool isSent) {
  size_t bytes = 0;
  std::vector<uint8_t> header;
  forEachPrecinct(tile, [&](Precinct& p) {
    std::optional<Trial> trial;
    if (!isSent) trial.emplace(p);
    // Which later layer brings a block doesn't matter to this one's bits.
    for (Group& g : p.groups) {
      for (size_t i = 0; i < g.blocks.size(); ++i)
        if (const Block& b = g.blocks[i]; !b.included)
          g.inclusion.set(int32_t(i), b.layerPasses[size_t(layer)] > 0 ? layer : layer + 1);
      g.inclusion.propagate();
    }
    header.clear();
    writePacketHeader(header, p, layer);
    bytes += header.size();
    bodyOf(p, layer, [&](const Block&, int32_t first, int32_t end) { bytes += size_t(end - first); });
    if (isSent) send(p, layer);
  });
  return bytes;
}

void writePackets(std::vector<uint8_t>& out, const Parameters& parameters, Tile& tile) {
  beginPackets(tile);
  forEachPrecinct(tile, [&](Precinct& p) {
    for (Group& g : p.groups) {
      for (size_t i = 0; i < g.blocks.size(); ++i) {
        int first = 0;
        while (first < parameters.layers && g.blocks[i].layerPasses[size_t(first)] == 0) ++first;
        g.inclusion.set(int32_t(i), first);
      }
      g.inclusion.propagate();
    }
  });
  visitPackets(parameters, tile, [&](const PacketPlace& at) {
    writePacket(out,
                tile.components[size_t(at.component)].resolutions[size_t(at.resolution)].precincts[size_t(at.precinct)],
                at.layer);
    return true;
  });
}

std::string readPackets(const Parameters& parameters, Tile& tile, const Limits& limits, std::atomic<uint64_t>& visits) {
  Reader in(tile.coded), packed(tile.packedHeaders);
  Reader& head = tile.headersPacked ? packed : in;
  // Each change of the progression looks at all precincts, whether it has packets or not.
  limits.expectWork(visits += parameters.changes.size() * tile.precincts());
  std::string wrong;
  std::vector<Arrival> arrivals;
  visitPackets(parameters, tile, [&](const PacketPlace& at) {
    auto& res = tile.components[size_t(at.component)].resolutions[size_t(at.resolution)];
    arrivals.clear();
    uint64_t visited = 0;
    try {
      readPacket(head, in, parameters, parameters.coding[size_t(at.component)].style,
                 res.precincts[size_t(at.precinct)], res.bands, at.layer, arrivals, visited);
    } catch (const Damaged& e) {
      for (const Arrival& a : arrivals) a.drop();
      wrong = e.what();
    }
    // A layer can leave out any number of blocks by one bit.
    limits.expectWork(visits += visited);
    return wrong.empty();
  });
  return wrong;
}

}  // namespace qelconv::jpeg2000
