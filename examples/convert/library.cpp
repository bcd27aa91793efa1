// The readers and writers behind the functions of qelconv.h.
#include <omp.h>

#include <algorithm>
#include <new>
#include <set>
#include <string>

#include "file_limits.h"
#include "format.h"
#include "qelconv.h"
#include "qelcore.h"

using namespace qelconv;

struct QelConv {
  bool written = false;
  std::string error, notes;
  Image image;
  std::vector<uint8_t> file;
  QelConvPicture picture = {};
};

namespace {

// No more threads than the library would take: one behind a fork, which the OpenMP runtime does not survive.
class Threads {
 public:
  Threads() : before_(omp_get_max_threads()) { omp_set_num_threads(std::min(before_, int(ownGetNumThreads()))); }
  ~Threads() { omp_set_num_threads(before_); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  const int before_;
};

// Throws for an option that no format has.
Options optionsOf(const char* const* list) {
  std::set<std::string> known;
  for (const OptionSpec& spec : kReadOptions) known.insert(spec.name);
  for (const Format* format : formats())
    for (const OptionSpec& spec : format->options) known.insert(spec.name);
  Options options;
  for (; list && *list; ++list) {
    const std::string option = *list;
    const size_t end = std::min(option.find('='), option.size());
    const std::string name = option.substr(0, end);
    if (!known.contains(name)) throw Error("there is no option \"" + name + "\"");
    options.set(name, end < option.size() ? option.substr(end + 1) : "");
  }
  return options;
}

// Runs a conversion; what it throws is its error. No exception leaves it.
template <class Work>
QelConv* conversion(Work&& work) {
  auto* const result = new (std::nothrow) QelConv;
  if (!result) return nullptr;
  try {
    const Threads threads;
    Stages stages;
    work(*result, stages);
    for (const std::string& loss : stages.losses()) result->notes += loss + "\n";
  } catch (const std::bad_alloc&) {
    result->error = "there is not enough memory";
  } catch (const std::exception& e) {
    result->error = e.what();
  }
  return result;
}

}  // namespace

QelConv* qelConvRead(const void* file, size_t size, const char* const* options) {
  return conversion([&](QelConv& c, Stages& stages) {
    const Bytes bytes(static_cast<const uint8_t*>(file), file ? size : 0);
    const Format* const format = formatOfContent(bytes);
    if (!format || !format->read) throw Error("not a picture of a known format");
    c.image = format->read(bytes, optionsOf(options), stages);
    if (!c.image.missing.empty()) c.notes = "only part of the picture: " + c.image.missing + "\n";
    c.picture = {c.image.width, c.image.height,    int32_t(c.image.colour),
                 c.image.bits,  int(c.image.half), c.image.data.data()};
  });
}

QelConv* qelConvWrite(const QelConvPicture* picture, const char* ending, const char* const* options) {
  return conversion([&](QelConv& c, Stages& stages) {
    c.written = true;
    const Format* const format = ending ? formatOfName(std::string(".") + ending) : nullptr;
    if (!format || !format->write) throw Error("no format is written by that ending");
    if (!picture || !picture->data || picture->colour < qelConvGrey || picture->colour > qelConvCmyk ||
        picture->bits < 1 || picture->bits > 16 || (picture->isHalf && picture->bits != 16))
      throw Error("that is no picture");
    Image image(picture->width, picture->height, Colour(picture->colour), picture->bits);
    image.half = picture->isHalf != 0;
    const auto* const data = static_cast<const uint8_t*>(picture->data);
    image.data.assign(data, data + size_t(image.height) * size_t(image.step()));
    for (size_t i = 0, n = image.data.size() / size_t(image.sampleBytes()); i < n && !image.half; ++i)
      if (image.sample(i) >> image.bits) throw Error("a sample has more bits than the picture");
    c.file = format->write(image, optionsOf(options), stages);
  });
}

const char* qelConvError(const QelConv* conversion) {
  return conversion->error.empty() ? nullptr : conversion->error.c_str();
}

const char* qelConvNotes(const QelConv* conversion) { return conversion->notes.c_str(); }

const QelConvPicture* qelConvGetPicture(const QelConv* conversion) {
  return conversion->error.empty() && !conversion->written ? &conversion->picture : nullptr;
}

const void* qelConvGetFile(const QelConv* conversion, size_t* size) {
  if (!conversion->error.empty() || !conversion->written) return nullptr;
  *size = conversion->file.size();
  return conversion->file.data();
}

void qelConvFree(QelConv* conversion) { delete conversion; }

const char* qelConvFormats() {
  static const std::string text = [] {
    std::string lines;
    for (const Format* format : formats())
      for (const char* extension : format->extensions)
        lines += std::string(extension + 1) + (format->read ? format->write ? " rw\n" : " r\n" : " w\n");
    return lines;
  }();
  return text.c_str();
}
