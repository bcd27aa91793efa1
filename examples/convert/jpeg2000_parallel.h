// What encoder and decoder share: the list of a picture's blocks, fixed-point facts.
#ifndef QELCONV_JPEG2000_PARALLEL_H
#define QELCONV_JPEG2000_PARALLEL_H

#include <algorithm>

#include "jpeg2000.h"
#include "parallel.h"

namespace qelconv::jpeg2000 {

// Fraction bits of irreversibly coded samples: single precision in the wavelet holds 24 bits together.
constexpr int fractionBits(int bits) { return 20 - bits; }

// The library's codes of the bands: HL and HH have context tables of their own.
constexpr int32_t libraryBand(int kind) {
  return kind == 1 ? qelSubbandHL : kind == 3 ? qelSubbandHH : qelSubbandLL;  // LH is coded as LL is
}

inline size_t workBytes(const Coding& coding, const TileComponent& c) {
  const QelRect rect{c.area.x0, c.area.y0, c.area.width(), c.area.height()};
  int32_t bytes = 0;
  expectOk(
      (coding.reversible ? qeliWTGetBufSize_B53_JPEG2K_32s_C1IR : qeliWTGetBufSize_D97_JPEG2K_32s_C1IR)(&rect, &bytes),
      "asking for the wavelet's buffer");
  return size_t(std::max(bytes, 1));
}

// Whether there are tiles enough to keep all cores busy with one each; else cores share the work on every
// tile.
inline bool sideBySide(size_t tiles) { return tiles >= 4 * size_t(omp_get_max_threads()); }

struct BlockJob {
  size_t componentIndex;
  TileComponent* component;
  const Band* band;
  Block* block;
};

inline std::vector<BlockJob> allBlocks(std::span<Tile> tiles) {
  std::vector<BlockJob> jobs;
  for (Tile& tile : tiles)
    for (size_t c = 0; c < tile.components.size(); ++c)
      for (Resolution& res : tile.components[c].resolutions)
        for (Precinct& precinct : res.precincts)
          for (Group& group : precinct.groups)
            for (Block& block : group.blocks)
              jobs.push_back({c, &tile.components[c], &res.bands[size_t(group.band)], &block});
  return jobs;
}

}  // namespace qelconv::jpeg2000

#endif
