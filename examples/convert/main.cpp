// qelconv: converts a picture from one file format to another.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

#include "compare.h"
#include "file_limits.h"
#include "files.h"
#include "format.h"
#include "orientation.h"
#include "parallel.h"
#include "qelcore.h"
#include "rows.h"

namespace {

using namespace qelconv;

// What the program ends with.
enum Status { kSuccess, kFailure, kUsage };
struct WrongUsage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

constexpr OptionSpec kToolOptions[] = {
    {"info", nullptr, "say what files are, and of what parts"},
    {"json", nullptr, "the same as JSON, an array of the files"},
    {"compare", nullptr, "how far two pictures of one size are apart: PSNR, SSIM, largest difference"},
    {"orient", nullptr, "turn pictures upright, as their EXIF data tell"},
    {"to", "ENDING", "the format of OUT, such as jpg, where its name doesn't tell"},
    {"threads", "N", "how many threads are used at most (one a core)"},
    {"repeat", "N", "read and write N times, for the times: the fastest counts"}};

template <class Specs>
void printOptions(const Specs& specs) {
  for (const OptionSpec& option : specs) {
    std::string left = std::string("--") + option.name + (option.argument ? std::string(" ") + option.argument : "");
    left.resize(std::max<size_t>(left.size(), 22), ' ');
    std::cout << "  " << left << " " << option.help << "\n";
  }
}

void printFormat(const Format& format) {
  std::cout << "\n" << format.name << " (";
  for (size_t i = 0; i < format.extensions.size(); ++i) std::cout << (i ? " " : "") << format.extensions[i];
  std::cout << (format.write ? format.read ? ")" : "), written only" : "), read only") << "\n";
  printOptions(format.options);
}

const Format* formatOfEnding(const std::string& ending) {
  std::string name = ending;
  if (!name.starts_with('.')) name.insert(name.begin(), '.');
  return formatOfName(name);
}

// All of it, or what the named formats take.
void printHelp(const std::vector<std::string>& endings) {
  for (const std::string& ending : endings) {
    const Format* const format = formatOfEnding(ending);
    if (!format) throw Error("no format has files that end in ." + ending);
    printFormat(*format);
  }
  if (!endings.empty()) return;
  std::cout << "usage: qelconv IN OUT [options]        convert a picture; OUT's name tells its format\n"
               "       qelconv IN... OUT% [options]    convert several; % stands for each one's name\n"
               "       qelconv --info IN...            say what files are\n"
               "       qelconv --compare A B           tell two pictures apart\n"
               "       qelconv --help ENDING...        what formats take\n"
               "IN and OUT may be -, for standard input and output.\n\n"
               "  -v, --verbose          print the time of each stage\n"
               "  -h, --help             print this text, or that of formats such as jpg\n"
               "  --version              print the library's version and the image that was loaded\n";
  printOptions(kToolOptions);
  printOptions(kReadOptions);
  for (const Format* format : formats()) printFormat(*format);
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

// The picture in a file, which way up the options say.
Image readPicture(const Format& format, Bytes bytes, const Options& options, Stages& stages) {
  Image image = format.read(bytes, options, stages);
  if (options.has("orient")) return upright(std::move(image));
  return image;
}

// What has no place in a format.
void loseMetadata(const Format& format, const Metadata& metadata, Stages& stages) {
  if (!metadata.profile.empty() && !(format.keeps & kProfile)) stages.lose("the colour profile is dropped");
  if (!metadata.exif.empty() && !(format.keeps & kExif)) stages.lose("the EXIF data are dropped");
  for (const char* other : metadata.others) stages.lose(std::string("the ") + other + " are dropped");
}

// Says what is missing of a picture that was read under --partial.
void warn(const std::string& path, const std::string& missing) {
  if (!missing.empty()) std::cerr << "qelconv: " << path << ": only part of the picture: " << missing << "\n";
}
Image warned(const std::string& path, Image image) {
  warn(path, image.missing);
  return image;
}

// Says what had no place in the new form of a picture.
void tellLosses(const std::string& path, const Stages& stages) {
  for (const std::string& loss : stages.losses()) std::cerr << "qelconv: " << path << ": " << loss << "\n";
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

// One conversion, and what it did.
struct Job {
  std::string from, to;
  const Format* format;  // of `to`
  size_t bytesIn = 0, bytesOut = 0;
};

// Says which options neither format has a use for. Formats that share a reader share their options.
void tellUnused(const Job& job, const Format& from, const Options& options) {
  std::set<std::string> used;
  for (const OptionSpec& spec : kToolOptions) used.insert(spec.name);
  for (const OptionSpec& spec : kReadOptions) used.insert(spec.name);
  for (const Format* format : formats())
    if (format->read == from.read || format->read == job.format->read)
      for (const OptionSpec& spec : format->options) used.insert(spec.name);
  for (const std::string& name : options.names())
    if (!used.contains(name))
      std::cerr << "qelconv: " << job.to << ": --" << name << " has no meaning for " << job.format->name << "\n";
}

void tellVerbosely(const Job& job, const Format& from, const Shape& shape, const Stages& reading,
                   const Stages& writing) {
  std::ostream& out = job.to == "-" ? std::cerr : std::cout;
  out << job.from << ": " << from.name << ", " << shape.width << " x " << shape.height << ", " << nameOf(shape.colour)
      << ", " << shape.bits << " bits, " << job.bytesIn << " bytes\n";
  if (reading.seconds() > 0) reading.report(out, shape.megapixels());
  out << job.to << ": " << job.format->name << ", " << job.bytesOut << " bytes\n";
  writing.report(out, shape.megapixels());
}

// The same stages, whose errors bear a file's name.
std::vector<Step> named(const std::string& path, std::vector<Step> steps) {
  for (Step& step : steps)
    step.work = [path, work = std::move(step.work)](int32_t strip) { on(path, [&] { work(strip); }); };
  return steps;
}

// A source or sink of some file, whose errors bear that one's name.
class NamedSource : public RowSource {
 public:
  NamedSource(RowSource& source, const std::string& path) : source_(source), path_(path) { shape_ = source.shape(); }
  StripRows strips() const override { return source_.strips(); }
  std::vector<Step> steps(Rows& rows, int32_t slots) override {
    return named(path_, on(path_, [&] { return source_.steps(rows, slots); }));
  }
  std::string missing() const override { return source_.missing(); }

 private:
  RowSource& source_;
  const std::string path_;
};
class NamedSink : public RowSink {
 public:
  NamedSink(RowSink& sink, const std::string& path) : sink_(sink), path_(path) {}
  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) override {
    return named(path_, on(path_, [&] { return sink_.steps(rows, strips, slots); }));
  }
  void finish() override {
    on(path_, [&] { sink_.finish(); });
  }

 private:
  RowSink& sink_;
  const std::string path_;
};

// Without the picture as a whole, where both formats can; returns whether they could. Standard output waits for a whole
// file, since what has been put there can't be taken back.
bool convertByRows(Job& job, const Contents& file, const Format& from, const Options& options, bool verbose) {
  if (!from.readRows || !job.format->writeRows || job.to == "-" || options.has("repeat")) return false;
  Stages reading, writing;
  const auto source = on(job.from, [&] { return from.readRows(file, options, reading); });
  if (!source || (options.has("orient") && orientationOf(source->shape().metadata) != 1)) return false;
  FileOutput out = on(job.to, [&] { return FileOutput(job.to); });
  const auto sink = on(job.to, [&] { return job.format->writeRows(source->shape(), options, writing, out); });
  if (!sink) return false;
  loseMetadata(*job.format, source->shape().metadata, writing);
  NamedSource namedSource(*source, job.from);
  NamedSink namedSink(*sink, job.to);
  const std::string missing = passRows(namedSource, namedSink, writing);
  on(job.to, [&] { out.finish(); });
  warn(job.from, missing);
  tellLosses(job.from, reading);
  tellLosses(job.to, writing);
  job.bytesIn = file.bytes().size(), job.bytesOut = out.size();
  if (verbose) tellVerbosely(job, from, source->shape(), reading, writing);
  return true;
}

void convert(Job& job, const Options& options, bool verbose) {
  const int repeat = options.integer("repeat", 1, 1, 1000);
  const Contents bytes = on(job.from, [&] { return Contents(job.from); });
  const Format& from = on(job.from, [&]() -> const Format& { return recognise(bytes); });
  tellUnused(job, from, options);
  if (convertByRows(job, bytes, from, options, verbose)) return;
  Stages reading, writing;
  const Image image = on(job.from, [&] {
    return warned(job.from, fastest(repeat, reading, [&](Stages& s) { return readPicture(from, bytes, options, s); }));
  });
  bytes.forget(bytes.bytes().size());
  const auto result = on(job.to, [&] {
    return fastest(repeat, writing, [&](Stages& s) { return job.format->write(image, options, s); });
  });
  loseMetadata(*job.format, image.metadata, writing);
  tellLosses(job.from, reading);
  tellLosses(job.to, writing);
  on(job.to, [&] {
    FileOutput out(job.to);
    out.put(result);
    out.finish();
  });
  job.bytesIn = bytes.bytes().size(), job.bytesOut = result.size();
  if (verbose) tellVerbosely(job, from, image, reading, writing);
}

// How far a series is, on a terminal.
class Progress {
 public:
  explicit Progress(size_t count) : count_(count), shown_(count > 1 && isatty(STDERR_FILENO)) {}
  ~Progress() { clear(); }
  void show(size_t done, const std::string& name) const {
    if (!shown_) return;
    constexpr size_t kWidth = 30;
    const size_t filled = kWidth * done / count_;
    clear();
    std::cerr << "[" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] " << done << "/" << count_
              << " " << name << std::flush;
  }
  void clear() const {
    if (shown_) std::cerr << "\r\033[K" << std::flush;
  }

 private:
  size_t count_;
  bool shown_;
};

// Several files: those that can be converted are, and the others are told.
int convertSeries(std::vector<Job>& jobs, const Options& options, bool verbose) {
  const Progress progress(jobs.size());
  size_t done = 0, bytesIn = 0, bytesOut = 0;
  for (size_t i = 0; i < jobs.size(); ++i) {
    progress.show(i, jobs[i].from);
    try {
      convert(jobs[i], options, verbose);
      ++done, bytesIn += jobs[i].bytesIn, bytesOut += jobs[i].bytesOut;
    } catch (const Error& e) {
      progress.clear();
      std::cerr << "qelconv: " << e.what() << "\n";
    }
  }
  progress.clear();
  std::cout << done << " of " << jobs.size() << " files converted, " << bytesIn << " bytes to " << bytesOut << "\n";
  return done == jobs.size() ? kSuccess : kFailure;
}

// What the last path makes of each of the others.
std::vector<Job> jobsOf(const std::vector<std::string>& paths, const Options& options) {
  const std::string& pattern = paths.back();
  const Format* const format = options.has("to") ? formatOfEnding(options.text("to")) : formatOfName(pattern);
  if (!format) throw Error(pattern + ": the name's ending is not that of a known format");
  if (!format->write) throw Error(pattern + ": " + format->name + " files can't be written");
  std::vector<Job> jobs;
  for (size_t i = 0; i + 1 < paths.size(); ++i) {
    std::string to = pattern;
    const size_t place = to.find('%');
    if (paths.size() > 2 && place == std::string::npos) throw WrongUsage("several files need a % in OUT");
    if (place != std::string::npos && paths.size() > 2)
      to.replace(place, 1, std::filesystem::path(paths[i]).stem().string());
    for (const Job& other : jobs)
      if (other.to == to) throw WrongUsage(other.from + " and " + paths[i] + " would both become " + to);
    jobs.push_back({paths[i], to, format});
  }
  return jobs;
}

void printVersion() {
  const QelLibVersion& version = *qeljGetLibVersion();
  const char* const image = qelGetImageName(&version);
  std::cout << "qelconv with libqelj " << version.versionText << ", image " << (image ? image : "unknown") << "\n";
}

void printInfo(const std::vector<std::string>& paths, bool json) {
  std::vector<Facts> files(paths.size());
  for (size_t i = 0; i < paths.size(); ++i)
    on(paths[i], [&] {
      const Contents bytes(paths[i]);
      if (json) files[i].add("file", paths[i]);
      recognise(bytes).describe(bytes, files[i]);
    });
  for (size_t i = 0; i < paths.size(); ++i) {
    if (json) {
      std::cout << (i ? ", " : "[");
      files[i].printJson(std::cout);
    } else {
      if (paths.size() > 1) std::cout << paths[i] << ": ";
      files[i].print(std::cout);
    }
  }
  if (json) std::cout << "]\n";
}

void printComparison(const std::string& a, const std::string& b, const Options& options) {
  const auto load = [&](const std::string& path) {
    return on(path, [&] {
      const Contents bytes(path);
      Stages stages;
      Image image = warned(path, readPicture(recognise(bytes), bytes, options, stages));
      tellLosses(path, stages);
      return image;
    });
  };
  const Difference d = compare(load(a), load(b));
  std::printf("%.2f dB, SSIM %.5f, largest difference %u\n", d.psnr, d.ssim, d.largest);
}

int run(int argc, char** argv) {
  Options options;
  bool verbose = false, help = false, version = false;

  enum { kVersion = 256, kLongOption };
  std::map<std::string, const char*> seen;  // option name -> argument's name
  for (const OptionSpec& spec : kToolOptions) seen.emplace(spec.name, spec.argument);
  for (const OptionSpec& spec : kReadOptions) seen.emplace(spec.name, spec.argument);
  for (const Format* format : formats())
    for (const OptionSpec& spec : format->options) seen.emplace(spec.name, spec.argument);
  std::vector<option> table = {{"help", no_argument, nullptr, 'h'},
                               {"verbose", no_argument, nullptr, 'v'},
                               {"version", no_argument, nullptr, kVersion}};
  for (const auto& [name, argument] : seen)
    table.push_back({name.c_str(), argument ? required_argument : no_argument, nullptr, kLongOption});
  table.push_back({nullptr, 0, nullptr, 0});

  for (int index = 0, c; (c = getopt_long(argc, argv, "hv", table.data(), &index)) != -1;) {
    if (c == 'h') help = true;
    else if (c == 'v') verbose = true;
    else if (c == kVersion) version = true;
    else if (c == kLongOption) options.set(table[size_t(index)].name, optarg ? optarg : "1");
    else return kUsage;  // getopt_long has said why
  }
  const std::vector<std::string> paths(argv + optind, argv + argc);
  if (help) return printHelp(paths), kSuccess;
  if (version) return printVersion(), kSuccess;
  if (options.has("threads")) {
    const int threads = options.integer("threads", 1, 1, 1024);
    omp_set_num_threads(threads), qelSetNumThreads(threads);
  }
  const bool info = options.has("info") || options.has("json"), compares = options.has("compare");
  if (info && paths.empty()) throw WrongUsage("--info takes files");
  if (!info && (paths.size() < 2 || (compares && paths.size() > 2)))
    throw WrongUsage(compares ? "--compare takes two files" : "two files are needed, IN and OUT");

  if (info) return printInfo(paths, options.has("json")), kSuccess;
  if (compares) return printComparison(paths[0], paths[1], options), kSuccess;
  auto jobs = jobsOf(paths, options);
  if (jobs.size() > 1) return convertSeries(jobs, options, verbose);
  convert(jobs[0], options, verbose);
  return kSuccess;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const WrongUsage& e) {
    std::cerr << "qelconv: " << e.what() << " (--help tells more)\n";
    return kUsage;
  } catch (const std::bad_alloc&) {
    std::cerr << "qelconv: not enough memory\n";
  } catch (const std::exception& e) {
    std::cerr << "qelconv: " << e.what() << "\n";
  }
  return kFailure;
}
