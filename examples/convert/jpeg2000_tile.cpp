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
  const int64_t shiftX = kind & 1 ? int64_t(1) << (level - 1) : 0,
                shiftY = kind & 2 ? int64_t(1) << (level - 1) : 0;
  return {int32_t(ceilShift(tile.x0 - shiftX, level)), int32_t(ceilShift(tile.y0 - shiftY, level)),
          int32_t(ceilShift(tile.x1 - shiftX, level)), int32_t(ceilShift(tile.y1 - shiftY, level))};
}

// Equations E-3 to E-5: step size and bit planes of a band.
void quantise(Band& band, const Coding& coding, int bits, int level, size_t index) {
  Step step = coding.steps.at(coding.steps.size() == 1 ? 0 : index);
  if (coding.steps.size() == 1) step.exponent -= coding.levels - level;  // derived
  const int gain = band.kind == 0 ? 0 : band.kind == 3 ? 2 : 1;
  band.planes = std::clamp(coding.guardBits + step.exponent - 1, 0, 31);
  band.step = coding.reversible ? 1.0 : std::ldexp(1 + step.mantissa / 2048.0, bits + gain - step.exponent);
}

// The blocks of one band that lie in one precinct.
Group makeGroup(const Band& band, int bandIndex, const Area& precinct, int widthLog2, int heightLog2) {
  Group group;
  group.band = bandIndex;
  const Area area{std::max(band.area.x0, precinct.x0), std::max(band.area.y0, precinct.y0),
                  std::min(band.area.x1, precinct.x1), std::min(band.area.y1, precinct.y1)};
  if (area.empty()) return group;
  const int32_t firstX = area.x0 >> widthLog2, firstY = area.y0 >> heightLog2;
  group.wide = int32_t(ceilShift(area.x1, widthLog2)) - firstX;
  group.high = int32_t(ceilShift(area.y1, heightLog2)) - firstY;
  for (int32_t j = firstY; j < firstY + group.high; ++j)
    for (int32_t i = firstX; i < firstX + group.wide; ++i) {
      Block b;
      b.area = {std::max(area.x0, i << widthLog2), std::max(area.y0, j << heightLog2),
                std::min(area.x1, (i + 1) << widthLog2), std::min(area.y1, (j + 1) << heightLog2)};
      b.x = band.x + b.area.x0 - band.area.x0, b.y = band.y + b.area.y0 - band.area.y0;
      group.blocks.push_back(std::move(b));
    }
  group.inclusion = TagTree(group.wide, group.high);
  group.zeroPlanes = TagTree(group.wide, group.high);
  return group;
}

void layOutPrecincts(Resolution& res, const Area& tile, const Coding& coding, int r) {
  const int ppx = coding.precincts[size_t(r)] & 15, ppy = coding.precincts[size_t(r)] >> 4;
  if (res.area.empty()) return;
  const int down = coding.levels - r, halved = r ? 1 : 0;
  const int64_t firstX = res.area.x0 >> ppx, firstY = res.area.y0 >> ppy;
  const int64_t endX = ceilShift(res.area.x1, ppx), endY = ceilShift(res.area.y1, ppy);
  const int bandPpx = ppx - halved, bandPpy = ppy - halved;
  if (bandPpx < 0 || bandPpy < 0) throw Error("a precinct size is impossible");
  if ((endX - firstX) * (endY - firstY) > 1 << 22) throw Error("the file has too many precincts");
  const auto cut = [](int64_t v) { return int32_t(std::min<int64_t>(v, INT32_MAX)); };
  for (int64_t j = firstY; j < endY; ++j)
    for (int64_t i = firstX; i < endX; ++i) {
      Precinct p;
      p.x = std::max<int64_t>(tile.x0, i << (ppx + down)),
      p.y = std::max<int64_t>(tile.y0, j << (ppy + down));
      const Area area{cut(i << bandPpx), cut(j << bandPpy), cut((i + 1) << bandPpx), cut((j + 1) << bandPpy)};
      for (size_t b = 0; b < res.bands.size(); ++b)
        p.groups.push_back(makeGroup(res.bands[b], int(b), area, std::min(coding.blockWidthLog2, bandPpx),
                                     std::min(coding.blockHeightLog2, bandPpy)));
      res.precincts.push_back(std::move(p));
    }
}

TileComponent layOutComponent(const Area& tile, const Coding& coding, int bits) {
  TileComponent c;
  c.area = tile;
  for (int r = 0; r <= coding.levels; ++r) {
    Resolution res;
    const int level = r ? coding.levels - r + 1 : coding.levels;  // of its bands
    res.area = scaled(tile, coding.levels - r);
    const Area low = scaled(tile, level);
    for (int kind = r ? 1 : 0; kind <= (r ? 3 : 0); ++kind) {
      Band band;
      band.kind = kind;
      band.area = coding.levels == 0 ? tile : bandArea(tile, level, kind);
      // In the in-place layout the low half stands first.
      band.x = kind & 1 ? low.width() : 0, band.y = kind & 2 ? low.height() : 0;
      quantise(band, coding, bits, level, r ? size_t(3 * (r - 1) + kind) : 0);
      band.gain = synthesisGain(coding.reversible, coding.levels, r, kind);
      res.bands.push_back(band);
    }
    layOutPrecincts(res, tile, coding, r);
    c.resolutions.push_back(std::move(res));
  }
  return c;
}

}  // namespace

int32_t Parameters::tilesWide() const { return int32_t(ceilDivide(width - tileX0, tileWidth)); }
int32_t Parameters::tilesHigh() const { return int32_t(ceilDivide(height - tileY0, tileHeight)); }

int32_t libraryStyle(int style) {
  constexpr int32_t kByBit[] = {0x2, 0x8, 0x4, 0x1, 0x100000, 0x10};
  int32_t result = 0;
  for (int bit = 0; bit < 6; ++bit)
    if (style >> bit & 1) result |= kByBit[bit];
  return result;
}

Tile layOut(const Parameters& parameters, int32_t index) {
  const int32_t column = index % parameters.tilesWide(), row = index / parameters.tilesWide();
  const int64_t x = parameters.tileX0 + int64_t(column) * parameters.tileWidth;
  const int64_t y = parameters.tileY0 + int64_t(row) * parameters.tileHeight;
  Tile tile;
  tile.area = {int32_t(std::max<int64_t>(x, parameters.x0)), int32_t(std::max<int64_t>(y, parameters.y0)),
               int32_t(std::min<int64_t>(x + parameters.tileWidth, parameters.width)),
               int32_t(std::min<int64_t>(y + parameters.tileHeight, parameters.height))};
  // Enough for any real picture; a damaged header must not ask for all memory.
  constexpr int64_t kMaxBlocks = 1 << 22;
  int64_t blocks = 0;
  for (const Coding& c : parameters.coding) {
    const int log2 = std::min(c.blockWidthLog2, 12) + std::min(c.blockHeightLog2, 12);
    blocks += (int64_t(tile.area.width()) * tile.area.height() >> log2) + 1;
  }
  if (blocks > kMaxBlocks) throw Error("the file has too many code-blocks");
  for (size_t c = 0; c < parameters.bits.size(); ++c)
    tile.components.push_back(layOutComponent(tile.area, parameters.coding[c], parameters.bits[c]));
  return tile;
}

std::vector<PacketPlace> packetOrder(const Parameters& parameters, const Tile& tile) {
  // Every packet with the five numbers by which progressions sort (B.12).
  struct Keyed {
    std::array<int64_t, 6> key;
    PacketPlace place;
  };
  std::vector<Keyed> all;
  int64_t packets = 0;
  for (const TileComponent& c : tile.components)
    for (const Resolution& r : c.resolutions) packets += int64_t(r.precincts.size()) * parameters.layers;
  if (packets > 1 << 23) throw Error("the file has too many packets");
  for (int c = 0; c < int(tile.components.size()); ++c) {
    const auto& resolutions = tile.components[size_t(c)].resolutions;
    for (int r = 0; r < int(resolutions.size()); ++r) {
      const auto& precincts = resolutions[size_t(r)].precincts;
      for (int k = 0; k < int(precincts.size()); ++k) {
        const auto [x, y] = std::pair(precincts[size_t(k)].x, precincts[size_t(k)].y);
        for (int l = 0; l < parameters.layers; ++l) {
          std::array<int64_t, 6> key{};
          switch (parameters.progression) {
            case Progression::LRCP:
              key = {l, r, c, k};
              break;
            case Progression::RLCP:
              key = {r, l, c, k};
              break;
            case Progression::RPCL:
              key = {r, y, x, c, k, l};
              break;
            case Progression::PCRL:
              key = {y, x, c, r, k, l};
              break;
            case Progression::CPRL:
              key = {c, y, x, r, k, l};
              break;
          }
          all.push_back({key, {l, r, c, k}});
        }
      }
    }
  }
  std::sort(all.begin(), all.end(), [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
  std::vector<PacketPlace> order;
  order.reserve(all.size());
  for (const Keyed& k : all) order.push_back(k.place);
  return order;
}

double synthesisGain(bool reversible, int levels, int resolution, int bandKind) {
  // The squared norm of one direction's synthesis function, from an impulse sent through the inverse lifting.
  const auto norm = [reversible](int level, bool high) {
    std::vector<double> line = {1};
    int64_t position = 0;  // of line[0]
    for (int i = 0; i < level; ++i) {
      // Put the samples at even places (the first time a high one at an odd place) with room on both sides.
      std::vector<double> wide(2 * line.size() + 16);
      const bool odd = high && i == 0;
      for (size_t k = 0; k < line.size(); ++k) wide[2 * k + 8 + odd] = line[k];
      position = 2 * position - 8;
      const auto lift = [&](bool odds, double weight) {
        for (size_t k = odds ? 1 : 2; k + 1 < wide.size(); k += 2)
          wide[k] += weight * (wide[k - 1] + wide[k + 1]);
      };
      if (reversible) {
        lift(false, -0.25), lift(true, 0.5);
      } else {
        constexpr double kScale = 1.230174104914001;
        for (size_t k = 0; k < wide.size(); ++k) wide[k] *= k % 2 ? 1 / kScale : kScale;
        lift(false, -0.443506852043971), lift(true, -0.882911075530934);
        lift(false, 0.052980118572961), lift(true, 1.586134342059924);
      }
      line = wide;
    }
    double sum = 0;
    for (const double v : line) sum += v * v;
    return sum;
  };
  if (levels == 0) return 1;
  const int level = resolution ? levels - resolution + 1 : levels;
  return norm(level, bandKind & 1) * norm(level, bandKind & 2);
}

}  // namespace qelconv::jpeg2000
