// What the module shows beside the library's own functions: whole files by the converter's codecs, memory to memory, and
// the typical tables. A call hands out one record, which the caller gives back.
#include <memory>
#include <sstream>
#include <string>

#include "file_limits.h"
#include "format.h"
#include "qelj_typical.h"

namespace {

using namespace qelconv;

// As the module's JavaScript reads it: words of 32 bits.
struct Answer {
  int32_t good, width, height, colour, bits, half;
  const uint8_t* data;
  int32_t bytes;
  const char* text;  // lines: "milliseconds TAB stage", "! loss"; of a failure what a person needs to know
};
struct Held {
  Answer answer{};
  Image image;
  std::vector<uint8_t> file;
  std::string text;
};

// Lines of a name, or of a name, "=" and a value.
Options parsed(const char* lines) {
  Options options;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    const size_t equals = line.find('=');
    options.set(line.substr(0, equals), equals == line.npos ? "" : line.substr(equals + 1));
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
    held->answer.good = 1;
    for (const auto& [stage, seconds] : stages.times())
      held->text += std::to_string(1e3 * seconds) + "\t" + stage + "\n";
    for (const std::string& loss : stages.losses()) held->text += "! " + loss + "\n";
  } catch (const std::exception& e) {
    held->text = e.what();
  }
  held->answer.text = held->text.c_str();
  return &held.release()->answer;
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
    held.answer.data = held.file.data();
    held.answer.bytes = int32_t(held.file.size());
  });
}

const Answer* qeljWebRead(const uint8_t* file, int32_t bytes, const char* options) {
  return answered([&](Held& held, Stages& stages) {
    const Bytes whole{file, size_t(bytes)};
    const Format* from = formatOfContent(whole);
    if (!from || !from->read) throw Error("the file is of no format that can be read");
    held.image = from->read(whole, parsed(options), stages);
    if (!held.image.missing.empty()) stages.lose(held.image.missing);
    Answer& a = held.answer;
    a.width = held.image.width, a.height = held.image.height, a.colour = int32_t(held.image.colour);
    a.bits = held.image.bits, a.half = held.image.half;
    a.data = held.image.data.data(), a.bytes = int32_t(held.image.data.size());
  });
}

// `answer` is the first member of what it was handed out with.
void qeljWebForget(Answer* answer) { delete reinterpret_cast<Held*>(answer); }

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
