// The components of a codestream as a picture: palettes, channel definitions, chroma and sizes (Annexes B and I).
#include <algorithm>
#include <cmath>
#include <set>

#include "jpeg2000.h"
#include "parallel.h"

namespace qelconv::jpeg2000 {
namespace {

enum Kind { kColourChannel = 0, kOpacity = 1, kMultipliedOpacity = 2 };

// The numbers of the channels that are colours, in their order, and of the one that is the picture's alpha or -1.
struct Meanings {
  std::vector<int> colours;
  int alpha = -1;
  bool multiplied = false;
};

Meanings byOrder(int channels, bool ink) {
  Meanings m;
  const int colours = ink && channels >= 4 ? 4 : channels >= 3 ? 3 : 1;
  for (int i = 0; i < colours; ++i) m.colours.push_back(i);
  if (channels == 2 || (channels == 4 && colours == 3)) m.alpha = channels - 1;
  return m;
}

Meanings byDefinition(const Jp2Header& header, int channels, bool ink) {
  int colours[4] = {-1, -1, -1, -1};
  Meanings m;
  for (const auto& d : header.definitions) {
    if (d.channel >= channels) throw Error("a channel definition names a channel that is not there");
    if (d.kind == kColourChannel && d.association >= 1 && d.association <= 4) colours[d.association - 1] = d.channel;
    const bool opacity = d.kind == kOpacity || d.kind == kMultipliedOpacity;
    if (opacity && d.association == 0) m.alpha = d.channel, m.multiplied = d.kind == kMultipliedOpacity;
  }
  const auto missing = std::find(std::begin(colours), ink ? std::end(colours) : colours + 3, -1);
  const auto count = missing - std::begin(colours);
  if (count == 0) throw Error("the channel definitions name no colour");
  m.colours.assign(colours, colours + (count == 4 || count == 3 ? count : 1));
  if (m.colours.size() == 4) m.alpha = -1;  // no picture has ink and alpha
  return m;
}

// 4:2:0 and the like in a plain codestream, which can't name its colours.
bool looksLikeChroma(const Parameters& p) {
  return p.bits.size() == 3 && !p.colourTransform && p.spacing[0] == Spacing{1, 1} && p.spacing[1] != p.spacing[0] &&
         p.spacing[1] == p.spacing[2];
}

int bitsOf(const Codestream& stream, Jp2Header::Channel source) {
  return source.column < 0 ? std::min(stream.parameters.bits[size_t(source.component)], 16)
                           : stream.jp2.paletteBits[size_t(source.column)];
}

// ITU-R BT.601 over the full range, as JFIF has it.
void convertChroma(Image& image, int32_t first, int32_t end) {
  const auto top = float((1 << image.bits) - 1), middle = float(1 << (image.bits - 1));
  const auto channels = size_t(image.channels());
  for (size_t i = size_t(first) * size_t(image.width); i < size_t(end) * size_t(image.width); ++i) {
    const auto at = [&](size_t c) { return float(image.sample(i * channels + c)); };
    const auto put = [&](size_t c, float v) {
      image.setSample(i * channels + c, uint32_t(std::lrintf(std::clamp(v, 0.0f, top))));
    };
    const float y = at(0), cb = at(1) - middle, cr = at(2) - middle;
    put(0, y + 1.402f * cr), put(1, y - 0.344136f * cb - 0.714136f * cr), put(2, y + 1.772f * cb);
  }
}

}  // namespace

Arrangement arrange(const Codestream& stream, int only) {
  const Parameters& p = stream.parameters;
  const Jp2Header& header = stream.jp2;
  std::vector<Jp2Header::Channel> channels = header.channels;
  if (only >= int(p.bits.size()))
    throw Error("the file has " + std::to_string(p.bits.size()) + " components, counted from 0");
  if (!header.palette.empty() && channels.empty()) throw Error("the palette belongs to no component");
  if (only >= 0) channels = {{only, -1}};
  for (int c = 0; channels.size() < p.bits.size() && header.channels.empty() && only < 0; ++c)
    channels.push_back({c, -1});
  for (const auto& c : channels) {
    const bool good = size_t(c.component) < p.bits.size() && c.column < int(header.paletteBits.size());
    if (!good) throw Error("a channel names a component or a column of the palette that is not there");
  }

  const auto& profile = header.metadata.profile;
  const bool ink = header.colourSpace == kCmyk || isProfileOf(profile, Colour::cmyk);
  if (only < 0 && header.colourSpace == kCieLab)
    throw Error("CIELab colours can't be read (--component N gives one of them alone)");
  const auto count = int(channels.size());
  const Meanings m = header.definitions.empty() || only >= 0 ? byOrder(count, ink) : byDefinition(header, count, ink);
  Arrangement a;
  for (const int i : m.colours) a.sources.push_back(channels[size_t(i)]);
  if (m.alpha >= 0) a.sources.push_back(channels[size_t(m.alpha)]);
  const bool alpha = m.alpha >= 0;
  a.colour = m.colours.size() == 4   ? Colour::cmyk
             : m.colours.size() == 3 ? (alpha ? Colour::rgba : Colour::rgb)
                                     : (alpha ? Colour::greyAlpha : Colour::grey);
  a.multiplied = alpha && m.multiplied;
  a.ycc = m.colours.size() == 3 && (header.colourSpace == kYcc || (header.colourSpace == 0 && looksLikeChroma(p)));
  a.lossy = only < 0 && a.sources.size() < channels.size();

  a.bits = 1, a.spacing = {255, 255};
  for (const auto& s : a.sources) {
    const Spacing d = p.spacing[size_t(s.component)];
    a.spacing = {std::min(a.spacing.x, d.x), std::min(a.spacing.y, d.y)};
    a.bits = std::max(a.bits, bitsOf(stream, s));
  }
  Parameters grid = p;
  grid.spacing = {a.spacing};
  a.area = grid.areaOf(0);
  return a;
}

bool isDirect(const Parameters& p, const Arrangement& a) {
  std::set<int> components;
  for (const auto& s : a.sources) {
    const auto c = size_t(s.component);
    if (s.column >= 0 || !components.insert(s.component).second) return false;
    if (p.spacing[c] != a.spacing || std::min(p.bits[c], 16) != a.bits) return false;
  }
  return !a.ycc;
}

void assemble(const Codestream& stream, const Arrangement& a, const std::vector<Image>& planes, Image& image) {
  const Parameters& p = stream.parameters;
  const size_t columns = stream.jp2.paletteBits.size();
  const size_t entries = columns ? stream.jp2.palette.size() / columns : 0;
  // The sample of a component at or before a place of the picture.
  const auto place = [](int32_t at, int32_t start, int distance, int32_t first, int32_t distanceThere, int32_t size) {
    const int64_t onGrid = (int64_t(start) + at) * distance;
    return size_t(std::clamp<int64_t>(onGrid / distanceThere - first, 0, size - 1));
  };
  const auto channels = a.sources.size();
  inStrips(image.width, image.height, [&](int32_t first, int32_t end) {
    std::vector<size_t> across(size_t(image.width));
    for (size_t i = 0; i < channels; ++i) {
      const auto source = a.sources[i];
      const auto c = size_t(source.component);
      const Image& plane = planes[c];
      const Area area = p.areaOf(c);
      const uint64_t from = (1u << bitsOf(stream, source)) - 1, to = (1u << image.bits) - 1;
      for (int32_t x = 0; x < image.width; ++x)
        across[size_t(x)] = place(x, a.area.x0, a.spacing.x, area.x0, p.spacing[c].x, plane.width);
      for (int32_t y = first; y < end; ++y) {
        const size_t row = place(y, a.area.y0, a.spacing.y, area.y0, p.spacing[c].y, plane.height);
        for (size_t x = 0; x < across.size(); ++x) {
          uint64_t v = plane.sample(row * size_t(plane.width) + across[x]);
          if (source.column >= 0)
            v = stream.jp2.palette[std::min<size_t>(v, entries - 1) * columns + size_t(source.column)];
          if (from != to) v = (v * to + from / 2) / from;
          image.setSample((size_t(y) * across.size() + x) * channels + i, uint32_t(v));
        }
      }
    }
    if (a.ycc) convertChroma(image, first, end);
  });
}

}  // namespace qelconv::jpeg2000
