// What the module shows beside the library's own functions: whole files by the converter's codecs, memory to memory, and
// the typical tables. A call hands out one record, which the caller gives back.
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>

#include "file_limits.h"
#include "files.h"
#include "format.h"
#include "qelj_typical.h"

// Bytes in memory are all that a file is here.
namespace qelconv {
Contents::~Contents() = default;
void Contents::forget(size_t) const {}
}  // namespace qelconv

namespace {

using namespace qelconv;

// As the module's JavaScript reads it: words of 32 bits.
struct Answer {
  int32_t good = 0, width = 0, height = 0, colour = 0, bits = 0, half = 0;
  const uint8_t* data = nullptr;
  int32_t bytes = 0;
  const char* text = nullptr;  // lines: "milliseconds TAB stage", "! loss"; of a failure what a person needs to know
};
struct Held : Answer {
  Image image;
  std::vector<uint8_t> file;
  std::string words;
};

bool isOption(const std::string& name) {
  const auto among = [&](const auto& specs) {
    return std::any_of(std::begin(specs), std::end(specs), [&](const OptionSpec& spec) { return name == spec.name; });
  };
  return among(kReadOptions) ||
         std::any_of(formats().begin(), formats().end(), [&](const Format* format) { return among(format->options); });
}

// Lines of a name, or of a name, "=" and a value.
Options parsed(const char* lines) {
  Options options;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    const size_t equals = line.find('=');
    const std::string name = line.substr(0, equals);
    if (!isOption(name)) throw Error("no option is named " + name);
    options.set(name, equals == line.npos ? "" : line.substr(equals + 1));
  }
  return options;
}

const Format& named(const char* name) {
  const Format* format = formatOfName(std::string("picture.") + name);
  if (!format) throw Error(std::string("no format is named ") + name);
  return *format;
}

template <class Work>
const Answer* answered(Work&& work) {
  auto held = std::make_unique<Held>();
  Stages stages;
  try {
    work(*held, stages);
    held->good = 1;
    for (const auto& [stage, seconds] : stages.times())
      held->words += std::to_string(1e3 * seconds) + "\t" + stage + "\n";
    for (const std::string& loss : stages.losses()) held->words += "! " + loss + "\n";
  } catch (const std::exception& e) {
    held->words = e.what();
  }
  held->text = held->words.c_str();
  return held.release();
}

}  // namespace

extern "C" {

const Answer* qeljWebWrite(const char* format, const char* options, const uint8_t* samples, int32_t width,
                           int32_t height, int32_t colour, int32_t bits) {
  return answered([&](Held& held, Stages& stages) {
    checkDimensions(width, height, channelsOf(Colour(colour)));
    held.image = Image(width, height, Colour(colour), bits);
    std::copy_n(samples, held.image.data.size(), held.image.data.begin());
    const Format& to = named(format);
    if (!to.write) throw Error(std::string(to.name) + " files can't be written");
    held.file = to.write(held.image, parsed(options), stages);
    held.image = {};
    held.data = held.file.data();
    held.bytes = int32_t(held.file.size());
  });
}

const Answer* qeljWebRead(const uint8_t* file, int32_t bytes, const char* options) {
  return answered([&](Held& held, Stages& stages) {
    const Bytes whole{file, size_t(bytes)};
    const Format* from = formatOfContent(whole);
    if (!from || !from->read) throw Error("the file is of no format that can be read");
    held.image = from->read(whole, parsed(options), stages);
    if (!held.image.missing.empty()) stages.lose(held.image.missing);
    const Image& image = held.image;
    held.width = image.width, held.height = image.height, held.colour = int32_t(image.colour);
    held.bits = image.bits, held.half = image.half;
    held.data = image.data.data(), held.bytes = int32_t(image.data.size());
  });
}

void qeljWebForget(Answer* answer) { delete static_cast<Held*>(answer); }

// The typical tables of ISO/IEC 10918-1, Annex K: 0 quantisers, 1 and 2 counts and symbols for DC, 3 and 4 for AC.
const uint8_t* qeljWebTypical(int32_t which, int32_t chroma) {
  switch (which) {
    case 0:
      return qelTypicalQuantisers[chroma];
    case 1:
      return qelTypicalDcBits[chroma];
    case 2:
      return qelTypicalDcVals;
    case 3:
      return qelTypicalAcBits[chroma];
    default:
      return qelTypicalAcVals[chroma];
  }
}

}  // extern "C"
