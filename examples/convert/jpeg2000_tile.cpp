// The geometry of a tile (ISO/IEC 15444-1, Annex B) and the order of its packets.
#include <algorithm>
#include <cmath>
#include <tuple>

#include "jpeg2000.h"

namespace qelconv::jpeg2000 {
namespace {

constexpr int64_t ceilShift(int64_t a, int bits) { return (a + (int64_t(1) << bits) - 1) >> bits; }
constexpr int64_t ceilDivide(int64_t a, int64_t b) { return (a + b - 1) / b; }

Area scaled(const Area& a, int bits) {
  return {int32_t(ceilShift(a.x0, bits)), int32_t(ceilShift(a.y0, bits)), int32_t(ceilShift(a.x1, bits)),
          int32_t(ceilShift(a.y1, bits))};
}

// Equation B-15: a band's area from its tile-component's.
Area bandArea(const Area& tile, int level, int kind) {
  const int64_t shiftX = kind & 1 ? int64_t(1) << (level - 1) : 0, shiftY = kind & 2 ? int64_t(1) << (level - 1) : 0;
  return {int32_t(ceilShift(tile.x0 - shiftX, level)), int32_t(ceilShift(tile.y0 - shiftY, level)),
          int32_t(ceilShift(tile.x1 - shiftX, level)), int32_t(ceilShift(tile.y1 - shiftY, level))};
}

// Equations E-3 to E-5: step size and bit planes of a band.
void quantise(Band& band, const Coding& coding, int bits, int level, size_t index) {
  StepSize step = coding.steps.at(coding.steps.size() == 1 ? 0 : index);
  if (coding.steps.size() == 1) step.exponent -= coding.levels - level;  // derived
  const int gain = band.kind == 0 ? 0 : band.kind == 3 ? 2 : 1;
  band.planes = std::clamp(coding.guardBits + step.exponent - 1, 0, 31) + coding.roiShift;
  band.step = coding.reversible ? 1.0 : std::ldexp(1 + step.mantissa / 2048.0, bits + gain - step.exponent);
}

// Places of a partition into cells of 2^xLog2 by 2^yLog2 that an area touches.
struct Grid {
  int64_t x0, y0, x1, y1;
  uint64_t cells() const { return uint64_t(x1 - x0) * uint64_t(y1 - y0); }
};
Grid gridOf(const Area& area, int xLog2, int yLog2) {
  if (area.empty()) return {};
  return {area.x0 >> xLog2, area.y0 >> yLog2, ceilShift(area.x1, xLog2), ceilShift(area.y1, yLog2)};
}

// One cell of a partition. Coordinates go up to 2^31 - 1, the ends of cells beyond it.
Area cell(int64_t x, int64_t y, int xLog2, int yLog2) {
  const auto end = [](int64_t v) { return int32_t(std::min<int64_t>(v, INT32_MAX)); };
  return {end(x << xLog2), end(y << yLog2), end((x + 1) << xLog2), end((y + 1) << yLog2)};
}
Area intersection(const Area& a, const Area& b) {
  return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.x1, b.x1), std::min(a.y1, b.y1)};
}

// Base-2 logarithms of the sides of a resolution's precincts, of their parts in its bands, and of
// code-blocks.
struct Partition {
  int ppx, ppy, bandPpx, bandPpy, blockX, blockY;
};
Partition partitionOf(const Coding& coding, int r) {
  Partition p;
  p.ppx = coding.precincts[size_t(r)] & 15, p.ppy = coding.precincts[size_t(r)] >> 4;
  p.bandPpx = p.ppx - (r > 0), p.bandPpy = p.ppy - (r > 0);
  if (p.bandPpx < 0 || p.bandPpy < 0) throw Error("a precinct size is impossible");
  p.blockX = std::min(coding.blockWidthLog2, p.bandPpx);
  p.blockY = std::min(coding.blockHeightLog2, p.bandPpy);
  return p;
}

// The blocks of one band that lie in one precinct.
Group makeGroup(const Band& band, int bandIndex, const Area& precinct, const Partition& p) {
  Group group;
  group.band = bandIndex;
  const Area area = intersection(band.area, precinct);
  const Grid grid = gridOf(area, p.blockX, p.blockY);
  group.wide = int32_t(grid.x1 - grid.x0), group.high = int32_t(grid.y1 - grid.y0);
  group.blocks.reserve(grid.cells());
  for (int64_t j = grid.y0; j < grid.y1; ++j)
    for (int64_t i = grid.x0; i < grid.x1; ++i) {
      Block b;
      b.area = intersection(area, cell(i, j, p.blockX, p.blockY));
      b.x = band.x + b.area.x0 - band.area.x0, b.y = band.y + b.area.y0 - band.area.y0;
      group.blocks.push_back(std::move(b));
    }
  group.inclusion = TagTree(group.wide, group.high);
  group.zeroPlanes = TagTree(group.wide, group.high);
  return group;
}

void layOutPrecincts(Resolution& res, const Area& tile, Spacing spacing, const Coding& coding, int r) {
  const Partition p = partitionOf(coding, r);
  const Grid grid = gridOf(res.area, p.ppx, p.ppy);
  const int down = coding.levels - r;
  res.precincts.reserve(grid.cells());
  for (int64_t j = grid.y0; j < grid.y1; ++j)
    for (int64_t i = grid.x0; i < grid.x1; ++i) {
      Precinct precinct;
      precinct.x = std::max<int64_t>(tile.x0, (i << (p.ppx + down)) * spacing.x);
      precinct.y = std::max<int64_t>(tile.y0, (j << (p.ppy + down)) * spacing.y);
      for (size_t b = 0; b < res.bands.size(); ++b)
        precinct.groups.push_back(makeGroup(res.bands[b], int(b), cell(i, j, p.bandPpx, p.bandPpy), p));
      res.precincts.push_back(std::move(precinct));
    }
}

// The bands of a resolution: LL, or HL to HH.
int firstKind(int r) { return r ? 1 : 0; }
int lastKind(int r) { return r ? 3 : 0; }
Area bandOf(const Area& tile, const Coding& coding, int r, int kind) {
  return coding.levels == 0 ? tile : bandArea(tile, r ? coding.levels - r + 1 : coding.levels, kind);
}

TileComponent layOutComponent(const Parameters& parameters, const Area& gridTile, size_t index) {
  const Coding& coding = parameters.coding[index];
  const Area tile = parameters.areaOf(index, gridTile);
  TileComponent c;
  c.area = tile;
  for (int r = 0; r <= coding.levels; ++r) {
    Resolution res;
    const int level = r ? coding.levels - r + 1 : coding.levels;  // of its bands
    res.area = scaled(tile, coding.levels - r);
    const Area low = scaled(tile, level);
    for (int kind = firstKind(r); kind <= lastKind(r); ++kind) {
      Band band;
      band.kind = kind;
      band.area = bandOf(tile, coding, r, kind);
      // In the in-place layout the low half stands first.
      band.x = kind & 1 ? low.width() : 0, band.y = kind & 2 ? low.height() : 0;
      const size_t bandIndex = r ? size_t(3 * (r - 1) + kind) : 0;
      quantise(band, coding, parameters.bits[index], level, bandIndex);
      if (!coding.gains.empty()) band.gain = coding.gains[bandIndex];
      res.bands.push_back(band);
    }
    layOutPrecincts(res, gridTile, parameters.spacing[index], coding, r);
    c.resolutions.push_back(std::move(res));
  }
  return c;
}

// A precinct's place, with what progressions sort by (B.12).
struct Spot {
  int resolution, component, precinct;
  int64_t x, y;
  size_t index = 0;
};

std::vector<Spot> spotsOf(const Tile& tile) {
  std::vector<Spot> spots;
  size_t most = 0;
  for (const TileComponent& c : tile.components) most = std::max(most, c.resolutions.size());
  for (size_t r = 0; r < most; ++r)
    for (size_t c = 0; c < tile.components.size(); ++c) {
      const auto& resolutions = tile.components[c].resolutions;
      if (r >= resolutions.size()) continue;
      const auto& precincts = resolutions[r].precincts;
      for (size_t k = 0; k < precincts.size(); ++k)
        spots.push_back({int(r), int(c), int(k), precincts[k].x, precincts[k].y});
    }
  return spots;
}

// Brings precincts into the order of their packets, layers aside, from that of resolutions.
void sortSpots(std::vector<Spot>& spots, Progression progression) {
  const auto sortBy = [&](auto key) {
    std::sort(spots.begin(), spots.end(), [&](const Spot& a, const Spot& b) { return key(a) < key(b); });
  };
  if (progression == Progression::RPCL)
    sortBy([](const Spot& s) { return std::tuple(s.resolution, s.y, s.x, s.component, s.precinct); });
  if (progression == Progression::PCRL)
    sortBy([](const Spot& s) { return std::tuple(s.y, s.x, s.component, s.resolution, s.precinct); });
  if (progression == Progression::CPRL)
    sortBy([](const Spot& s) { return std::tuple(s.component, s.y, s.x, s.resolution, s.precinct); });
}

// The packets of the layers `firstLayer` to `endLayer` at these places, sorted, until visit(layer, spot) gives false.
// Layers are outermost, or they come below the resolution, or at every single precinct.
template <class Visit>
bool visitLayers(const std::vector<Spot>& spots, Progression progression, int firstLayer, int endLayer, Visit&& visit) {
  for (size_t from = 0, to; from < spots.size(); from = to) {
    to = from + 1;
    if (progression == Progression::LRCP) to = spots.size();
    if (progression == Progression::RLCP)
      while (to < spots.size() && spots[to].resolution == spots[from].resolution) ++to;
    for (int l = firstLayer; l < endLayer; ++l)
      for (size_t i = from; i < to; ++i)
        if (!visit(l, spots[i])) return false;
  }
  return true;
}

}  // namespace

int32_t Parameters::tilesWide() const { return int32_t(ceilDivide(width - tileX0, tileWidth)); }
int32_t Parameters::tilesHigh() const { return int32_t(ceilDivide(height - tileY0, tileHeight)); }

Area Parameters::areaOf(size_t component, const Area& area) const {
  const Spacing d = spacing[component];
  return {int32_t(ceilDivide(area.x0, d.x)), int32_t(ceilDivide(area.y0, d.y)), int32_t(ceilDivide(area.x1, d.x)),
          int32_t(ceilDivide(area.y1, d.y))};
}

int32_t libraryStyle(int style) {
  constexpr int32_t kByBit[] = {qelCodeStyleBypass, qelCodeStyleReset,       qelCodeStyleTerminate,
                                qelCodeStyleCausal, qelCodeStylePredictable, qelCodeStyleSymbols};
  int32_t result = 0;
  for (int bit = 0; bit < 6; ++bit)
    if (style >> bit & 1) result |= kByBit[bit];
  return result;
}

Area tileArea(const Parameters& parameters, int32_t index) {
  const int32_t column = index % parameters.tilesWide(), row = index / parameters.tilesWide();
  const int64_t x = parameters.tileX0 + int64_t(column) * parameters.tileWidth;
  const int64_t y = parameters.tileY0 + int64_t(row) * parameters.tileHeight;
  return {int32_t(std::max<int64_t>(x, parameters.x0)), int32_t(std::max<int64_t>(y, parameters.y0)),
          int32_t(std::min<int64_t>(x + parameters.tileWidth, parameters.width)),
          int32_t(std::min<int64_t>(y + parameters.tileHeight, parameters.height))};
}

uint64_t Tile::precincts() const {
  uint64_t count = 0;
  for (const TileComponent& c : components)
    for (const Resolution& r : c.resolutions) count += r.precincts.size();
  return count;
}

Tile layOut(const Parameters& parameters, int32_t index) {
  Tile tile;
  tile.area = tileArea(parameters, index);
  for (size_t c = 0; c < parameters.bits.size(); ++c)
    tile.components.push_back(layOutComponent(parameters, tile.area, c));
  return tile;
}

Extent measure(const Parameters& parameters, int32_t index) {
  const Area tile = tileArea(parameters, index);
  Extent extent;
  for (size_t c = 0; c < parameters.coding.size(); ++c) {
    const Coding& coding = parameters.coding[c];
    const Area area = parameters.areaOf(c, tile);
    for (int r = 0; r <= coding.levels; ++r) {
      const Partition p = partitionOf(coding, r);
      const uint64_t precincts = gridOf(scaled(area, coding.levels - r), p.ppx, p.ppy).cells();
      uint64_t blocks = 0;
      for (int kind = firstKind(r); kind <= lastKind(r); ++kind)
        blocks += gridOf(bandOf(area, coding, r, kind), p.blockX, p.blockY).cells();
      extent.packets += precincts * uint64_t(parameters.layers);
      extent.bytes += precincts * (sizeof(Precinct) + 3 * sizeof(Group) + 2 * sizeof(Spot) + sizeof(int)) +
                      blocks * (sizeof(Block) + 2 * TagTree::bytesOfLeaf());
    }
  }
  return extent;
}

void visitPackets(const Parameters& parameters, const Tile& tile,
                  const std::function<bool(const PacketPlace&)>& visit) {
  auto spots = spotsOf(tile);
  const auto place = [](int layer, const Spot& s) { return PacketPlace{layer, s.resolution, s.component, s.precinct}; };
  if (parameters.changes.empty()) {
    sortSpots(spots, parameters.progression);
    visitLayers(spots, parameters.progression, 0, parameters.layers,
                [&](int layer, const Spot& s) { return visit(place(layer, s)); });
    return;
  }
  // Layers of a precinct come in order, so that their number tells which have come (B.12.2).
  for (size_t i = 0; i < spots.size(); ++i) spots[i].index = i;
  std::vector<int> layersSent(spots.size());
  for (const Progress& change : parameters.changes) {
    const int end = std::min(change.endLayer, parameters.layers);
    int first = end;
    std::vector<Spot> next;
    for (const Spot& s : spots) {
      const bool within = s.resolution >= change.firstResolution && s.resolution < change.endResolution &&
                          s.component >= change.firstComponent && s.component < change.endComponent;
      if (!within || layersSent[s.index] >= end) continue;
      first = std::min(first, layersSent[s.index]);
      next.push_back(s);
    }
    sortSpots(next, change.order);
    if (!visitLayers(next, change.order, first, end, [&](int layer, const Spot& s) {
          if (layer < layersSent[s.index]) return true;
          layersSent[s.index] = layer + 1;
          return visit(place(layer, s));
        }))
      return;
  }
}

std::vector<double> synthesisGains(bool reversible, int levels) {
  // The squared norms of one direction's synthesis functions of levels 1 up, from an impulse sent through the
  // inverse lifting.
  const auto normsOf = [&](bool high) {
    std::vector<double> norms, line = {1};
    for (int i = 0; i < levels; ++i) {
      // Put the samples at even places (the first time a high one at an odd place) with room on both sides.
      std::vector<double> wide(2 * line.size() + 16);
      const bool odd = high && i == 0;
      for (size_t k = 0; k < line.size(); ++k) wide[2 * k + 8 + odd] = line[k];
      const auto lift = [&](bool odds, double weight) {
        for (size_t k = odds ? 1 : 2; k + 1 < wide.size(); k += 2) wide[k] += weight * (wide[k - 1] + wide[k + 1]);
      };
      if (reversible) {
        lift(false, -0.25), lift(true, 0.5);
      } else {
        constexpr double kScale = 1.230174104914001;
        for (size_t k = 0; k < wide.size(); ++k) wide[k] *= k % 2 ? 1 / kScale : kScale;
        lift(false, -0.443506852043971), lift(true, -0.882911075530934);
        lift(false, 0.052980118572961), lift(true, 1.586134342059924);
      }
      line = std::move(wide);
      double sum = 0;
      for (const double v : line) sum += v * v;
      norms.push_back(sum);
    }
    return norms;
  };
  const std::vector<double> norms[2] = {normsOf(false), normsOf(true)};
  std::vector<double> gains;
  for (int r = 0; r <= levels; ++r)
    for (int kind = firstKind(r); kind <= lastKind(r); ++kind) {
      const int level = r ? levels - r + 1 : levels;
      const auto norm = [&](int high) { return level ? norms[high > 0][size_t(level - 1)] : 1; };
      gains.push_back(norm(kind & 1) * norm(kind & 2));
    }
  return gains;
}

}  // namespace qelconv::jpeg2000
