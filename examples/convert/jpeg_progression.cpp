// The order of a file's scans: the rules of it, the usual one, and those of scan scripts.
#include <algorithm>
#include <sstream>

#include "jpeg.h"

namespace qelconv::jpeg {
namespace {

constexpr int8_t kNothing = -1;
constexpr int kMostBlocks = 10;  // of an MCU (B.2.3)

bool isWhole(const ScanHeader& scan) { return scan.ss == 0 && scan.se == 63 && scan.ah == 0 && scan.al == 0; }

}  // namespace

Progression::Progression(const Frame& frame)
    : progressive_(frame.process == SOF2), lowestBit_(frame.components.size()) {
  for (const Component& c : frame.components) blocksOfMcu_.push_back(c.h * c.v);
  for (auto& bits : lowestBit_) bits.fill(kNothing);
}

void Progression::add(const ScanHeader& scan) {
  const auto wrong = [number = ++scans_](const std::string& what) {
    return Error("scan " + std::to_string(number) + ": " + what);
  };
  int blocks = 0;
  for (size_t i = 0; i < scan.parts.size(); ++i) {
    const int component = scan.parts[i].component;
    const std::string name = "component " + std::to_string(component);
    if (component < 0 || size_t(component) >= lowestBit_.size()) throw wrong("there is no " + name);
    for (size_t j = 0; j < i; ++j)
      if (scan.parts[j].component == component) throw wrong(name + " is named twice");
    blocks += blocksOfMcu_[size_t(component)];
    if (scan.parts.size() > 1 && blocks > kMostBlocks) throw wrong("an MCU has more than ten blocks");
    auto& bits = lowestBit_[size_t(component)];
    if (!progressive_) {
      if (bits[0] != kNothing) throw wrong(name + " has been coded already");
      bits.fill(0);
      continue;
    }
    if (scan.ss < 0 || scan.se < scan.ss || scan.se > 63) throw wrong("the band is not one of 0 to 63");
    if (scan.ss == 0 && scan.se > 0) throw wrong("a band that starts at coefficient 0 goes beyond it");
    if (scan.ss > 0 && scan.parts.size() > 1) throw wrong("a band behind coefficient 0 has several components");
    if (scan.ss > 0 && bits[0] == kNothing) throw wrong(name + " has no scan of coefficient 0 before");
    if (scan.al < 0 || scan.al > 13 || (scan.ah && scan.ah != scan.al + 1))
      throw wrong("the bits " + std::to_string(scan.ah) + ", " + std::to_string(scan.al) + " are no step");
    for (auto bit = bits.begin() + scan.ss; bit <= bits.begin() + scan.se; ++bit) {
      if (*bit != (scan.ah ? scan.ah : kNothing))
        throw wrong("coefficient " + std::to_string(bit - bits.begin()) + " of " + name +
                    (*bit == kNothing ? " is refined before it has been coded"
                     : scan.ah        ? " is refined out of order"
                                      : " has been coded already"));
      *bit = int8_t(scan.al);
    }
  }
}

int Progression::firstWithoutScan() const {
  const auto found = std::find_if(lowestBit_.begin(), lowestBit_.end(), [](auto& bits) { return bits[0] == kNothing; });
  return found == lowestBit_.end() ? -1 : int(found - lowestBit_.begin());
}

bool Progression::complete() const {
  return std::all_of(lowestBit_.begin(), lowestBit_.end(), [](auto& bits) {
    return std::all_of(bits.begin(), bits.end(), [](int8_t bit) { return bit == 0; });
  });
}

std::vector<ScanHeader> usualProgression(const Frame& frame) {
  const auto components = int(frame.components.size());
  const auto table = [](int component) { return component == 1 || component == 2 ? 1 : 0; };
  std::vector<ScanHeader> scans;
  const auto dc = [&](int ah, int al) {
    ScanHeader h{{}, 0, 0, ah, al};
    for (int i = 0; i < components; ++i) h.parts.push_back({i, table(i), 0});
    scans.push_back(h);
  };
  // The library's first scans of DC have differences of up to 11 bits: those of 12-bit samples less the lowest four.
  const int first = frame.precision > 8 ? 4 : 1;
  const auto restOfDc = [&] {
    for (int bit = first; bit > 0; --bit) dc(bit, bit - 1);
  };
  const auto ac = [&](int i, int ss, int se, int ah, int al) { scans.push_back({{{i, 0, table(i)}}, ss, se, ah, al}); };
  if (components == 3) {
    // Luminance is seen first; chrominance comes in fewer, larger steps.
    dc(0, first), ac(0, 1, 5, 0, 2), ac(2, 1, 63, 0, 1), ac(1, 1, 63, 0, 1), ac(0, 6, 63, 0, 2);
    ac(0, 1, 63, 2, 1), restOfDc(), ac(2, 1, 63, 1, 0), ac(1, 1, 63, 1, 0), ac(0, 1, 63, 1, 0);
    return scans;
  }
  const auto each = [&](int ss, int se, int ah, int al) {
    for (int i = 0; i < components; ++i) ac(i, ss, se, ah, al);
  };
  dc(0, first), each(1, 5, 0, 2), each(6, 63, 0, 2), each(1, 63, 2, 1), restOfDc(), each(1, 63, 1, 0);
  return scans;
}

bool isSequential(const std::vector<ScanHeader>& script) { return std::all_of(script.begin(), script.end(), isWhole); }

// "0,1,2: 0-0, 0, 1;" for each scan: components, band, successive approximation; "0,1,2;" alone for a whole
// scan. "#" starts a comment.
std::vector<ScanHeader> parseScanScript(const std::string& text) {
  std::string clean;
  bool comment = false;
  for (const char c : text) {
    comment = c == '\n' ? false : comment || c == '#';
    clean += comment || c == ',' ? ' ' : c;
  }
  std::vector<ScanHeader> scans;
  std::istringstream entries(clean);
  for (std::string entry; std::getline(entries, entry, ';');) {
    if (entry.find_first_not_of(" \t\r\n") == std::string::npos) continue;
    ScanHeader h;
    const auto atEnd = [](std::istream& in) { return (in >> std::ws).eof(); };
    const size_t colon = entry.find(':');
    std::istringstream who(entry.substr(0, colon));
    bool good = !atEnd(who);
    for (int i; good && !atEnd(who); good = bool(who))
      if (who >> i) h.parts.push_back({i, i == 1 || i == 2 ? 1 : 0, i == 1 || i == 2 ? 1 : 0});
    if (colon != std::string::npos) {
      std::istringstream band(entry.substr(colon + 1));
      char dash = 0;
      good &= bool(band >> h.ss >> dash >> h.se >> h.ah >> h.al) && dash == '-' && atEnd(band);
    }
    if (!good) throw Error("the scan script has a bad entry: \"" + entry + "\"");
    scans.push_back(h);
  }
  if (scans.empty()) throw Error("the scan script has no scan");
  return scans;
}

void checkScanScript(const std::vector<ScanHeader>& script, const Frame& frame) {
  try {
    Progression progression(frame);
    for (const ScanHeader& scan : script) {
      progression.add(scan);
      // Readers take other orders of a scan's components, but the standard has none (B.2.3).
      if (!std::is_sorted(scan.parts.begin(), scan.parts.end(),
                          [](auto& a, auto& b) { return a.component < b.component; }))
        throw Error("a scan's components are not in the order of the frame");
    }
    if (const int component = progression.firstWithoutScan(); component >= 0)
      throw Error("component " + std::to_string(component) + " has no scan");
  } catch (const Error& e) {
    throw Error(std::string("the scan script is wrong: ") + e.what());
  }
}

}  // namespace qelconv::jpeg
