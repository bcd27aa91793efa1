// qelconv: converts a picture from one file format to another.
#include <getopt.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>

#include "file_limits.h"
#include "format.h"

namespace {

using namespace qelconv;

template <class Specs>
void printOptions(const Specs& specs) {
  for (const OptionSpec& option : specs) {
    std::string left = std::string("--") + option.name + (option.argument ? std::string(" ") + option.argument : "");
    left.resize(std::max<size_t>(left.size(), 22), ' ');
    std::cout << "  " << left << " " << option.help << "\n";
  }
}

void printHelp() {
  std::cout << "usage: qelconv IN OUT [options]    convert a picture; the name of OUT tells its format\n"
               "       qelconv --info IN           say what a file is\n"
               "       qelconv --compare A B       the PSNR between two pictures of one size\n\n"
               "  -v, --verbose          print the time of each stage\n"
               "  --repeat N             read and write N times, for the times: the fastest counts\n"
               "  -h, --help             print this text\n";
  printOptions(kReadOptions);
  for (const Format* format : formats()) {
    std::cout << "\n" << format->name << " (";
    for (size_t i = 0; i < format->extensions.size(); ++i) std::cout << (i ? " " : "") << format->extensions[i];
    std::cout << (format->write ? format->read ? ")" : "), written only" : "), read only") << "\n";
    printOptions(format->options);
  }
}

std::string reason() { return std::strerror(errno); }

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

std::vector<uint8_t> readFile(const std::string& path) {
  const File file(std::fopen(path.c_str(), "rb"));
  if (!file) throw Error("can't be opened: " + reason());
  std::vector<uint8_t> bytes;
  for (uint8_t chunk[65536];;) {
    const size_t n = std::fread(chunk, 1, sizeof chunk, file.get());
    bytes.insert(bytes.end(), chunk, chunk + n);
    if (n < sizeof chunk) break;
  }
  if (std::ferror(file.get())) throw Error("can't be read: " + reason());
  if (bytes.empty()) throw Error("the file is empty");
  return bytes;
}

// Writes beside the target and renames, so that a failure leaves no half file and the old one untouched.
void writeFile(const std::string& path, Bytes bytes) {
  const std::string temporary = path + ".part";
  const auto giveUp = [&](const std::string& what) {
    const std::string why = reason();
    std::remove(temporary.c_str());
    throw Error(what + why);
  };
  File file(std::fopen(temporary.c_str(), "wb"));
  if (!file) throw Error("can't be written: " + reason());
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  if (std::fclose(file.release()) != 0 || !written) giveUp("can't be written: ");
  if (std::rename(temporary.c_str(), path.c_str()) != 0) giveUp("can't be replaced: ");
}

// Does a piece of work on one file; an error that it throws gets the file's name in front.
template <class Work>
decltype(auto) on(const std::string& path, Work&& work) {
  try {
    return work();
  } catch (const Error& e) {
    throw Error(path + ": " + e.what());
  }
}

const Format& recognise(Bytes file) {
  const Format* format = formatOfContent(file);
  if (!format) throw Error("not a picture of a known format");
  return *format;
}

// Says what is missing of a picture that was read under --partial.
Image warned(const std::string& path, Image image) {
  if (!image.missing.empty())
    std::cerr << "qelconv: " << path << ": only part of the picture: " << image.missing << "\n";
  return image;
}

// Says what had no place in the new form of a picture.
void tellLosses(const std::string& path, const Stages& stages) {
  for (const std::string& loss : stages.losses()) std::cerr << "qelconv: " << path << ": " << loss << "\n";
}

// Peak signal-to-noise ratio in dB over all samples; infinite for equal pictures.
double psnr(const Image& a, const Image& original) {
  Stages stages;
  const Image b = adapt(original, stages, {a.colour}, a.bits);
  if (a.width != b.width || a.height != b.height || a.bits != b.bits)
    throw Error("the pictures differ in size or depth");
  const size_t samples = a.data.size() / size_t(a.sampleBytes());
  double sum = 0;
  for (size_t i = 0; i < samples; ++i) {
    const double d = double(a.sample(i)) - double(b.sample(i));
    sum += d * d;
  }
  const double top = (1u << a.bits) - 1;
  return 10 * std::log10(top * top * double(samples) / sum);
}

// Does some work `times` times; keeps the stages of the fastest time.
template <class Work>
auto fastest(int times, Stages& stages, Work&& work) {
  auto result = work(stages);
  for (int i = 1; i < times; ++i) {
    Stages again;
    result = work(again);
    if (again.seconds() < stages.seconds()) stages = again;
  }
  return result;
}

int run(int argc, char** argv) {
  Options options;
  bool info = false, verbose = false, compare = false;

  enum { kInfo = 256, kCompare, kRepeat, kFormatOption };
  std::map<std::string, const char*> seen;  // option name -> argument's name
  for (const OptionSpec& spec : kReadOptions) seen.emplace(spec.name, spec.argument);
  for (const Format* format : formats())
    for (const OptionSpec& spec : format->options) seen.emplace(spec.name, spec.argument);
  std::vector<option> table = {{"help", no_argument, nullptr, 'h'},
                               {"verbose", no_argument, nullptr, 'v'},
                               {"info", no_argument, nullptr, kInfo},
                               {"compare", no_argument, nullptr, kCompare},
                               {"repeat", required_argument, nullptr, kRepeat}};
  for (const auto& [name, argument] : seen)
    table.push_back({name.c_str(), argument ? required_argument : no_argument, nullptr, kFormatOption});
  table.push_back({nullptr, 0, nullptr, 0});

  for (int index = 0, c; (c = getopt_long(argc, argv, "hv", table.data(), &index)) != -1;) {
    if (c == 'h') return printHelp(), 0;
    if (c == 'v') verbose = true;
    else if (c == kInfo) info = true;
    else if (c == kCompare) compare = true;
    else if (c == kRepeat) options.set("repeat", optarg);
    else if (c == kFormatOption) options.set(table[size_t(index)].name, optarg ? optarg : "1");
    else return 2;  // getopt_long has said why
  }
  const std::vector<std::string> paths(argv + optind, argv + argc);
  if (paths.size() != (info ? 1u : 2u)) {
    std::cerr << "qelconv: " << (info ? "--info takes one file" : "two files are needed, IN and OUT")
              << " (--help tells more)\n";
    return 2;
  }

  if (compare) {
    const auto load = [&](const std::string& path) {
      return on(path, [&] {
        const auto bytes = readFile(path);
        Stages stages;
        return warned(path, recognise(bytes).read(bytes, options, stages));
      });
    };
    std::printf("%.2f dB\n", psnr(load(paths[0]), load(paths[1])));
    return 0;
  }

  const int repeat = options.integer("repeat", 1, 1, 1000);
  const auto bytes = on(paths[0], [&] { return readFile(paths[0]); });
  const Format& from = on(paths[0], [&]() -> const Format& { return recognise(bytes); });
  if (info) {
    on(paths[0], [&] { from.describe(bytes, std::cout); });
    return 0;
  }
  const Format* to = formatOfName(paths[1]);
  if (!to) throw Error(paths[1] + ": the name's ending is not that of a known format");
  if (!from.read) throw Error(paths[0] + ": " + from.name + " files can't be read");
  if (!to->write) throw Error(paths[1] + ": " + to->name + " files can't be written");

  Stages reading, writing;
  const Image image = on(paths[0], [&] {
    return warned(paths[0], fastest(repeat, reading, [&](Stages& s) { return from.read(bytes, options, s); }));
  });
  const auto result =
      on(paths[1], [&] { return fastest(repeat, writing, [&](Stages& s) { return to->write(image, options, s); }); });
  tellLosses(paths[0], reading);
  tellLosses(paths[1], writing);
  on(paths[1], [&] { writeFile(paths[1], result); });
  if (verbose) {
    std::cout << paths[0] << ": " << from.name << ", " << image.width << " x " << image.height << ", "
              << nameOf(image.colour) << ", " << image.bits << " bits, " << bytes.size() << " bytes\n";
    reading.report(std::cout, image.megapixels());
    std::cout << paths[1] << ": " << to->name << ", " << result.size() << " bytes\n";
    writing.report(std::cout, image.megapixels());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::cerr << "qelconv: not enough memory\n";
  } catch (const std::exception& e) {
    std::cerr << "qelconv: " << e.what() << "\n";
  }
  return 1;
}
