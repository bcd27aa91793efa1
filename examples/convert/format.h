// One file format: a record of a few functions, memory to memory. A new format is one source file that
// defines such a record, and its line in formats.cpp.
#ifndef QELCONV_FORMAT_H
#define QELCONV_FORMAT_H

#include <algorithm>
#include <chrono>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "facts.h"
#include "image.h"
#include "options.h"

namespace qelconv {

class Contents;
class Destination;
class RowSink;
class RowSource;

// Wall-clock time by stage, for -v, where stages of one name add up; and what was lost on the way.
class Stages {
 public:
  // What a picture has and its new form has no place for, in a few words; said once.
  void lose(const std::string& what) {
    if (std::find(losses_.begin(), losses_.end(), what) == losses_.end()) losses_.push_back(what);
  }
  const std::vector<std::string>& losses() const { return losses_; }

  template <class Work>
  auto time(const char* name, Work&& work) {
    const Clock clock(*this, name);
    return work();
  }
  // Stages that ran side by side share the time on the clock, by what each took of the cores. Those without a name
  // took none.
  template <class Names, class Seconds>
  void share(double clock, const Names& names, const Seconds& busy) {
    double sum = 0;
    for (size_t i = 0; i < names.size(); ++i) sum += names[i] ? busy[i] : 0;
    for (size_t i = 0; i < names.size(); ++i)
      if (names[i] && sum > 0) add(names[i], clock * busy[i] / sum);
  }
  const std::vector<std::pair<std::string, double>>& times() const { return stages_; }
  double seconds() const {
    double sum = 0;
    for (const auto& stage : stages_) sum += stage.second;
    return sum;
  }
  void report(std::ostream& out, double megapixels) const;

 private:
  using Now = std::chrono::steady_clock;
  struct Clock {
    Clock(Stages& stages, const char* name) : stages_(stages), name_(name), start_(Now::now()) {}
    ~Clock() { stages_.add(name_, std::chrono::duration<double>(Now::now() - start_).count()); }
    Stages& stages_;
    const char* name_;
    Now::time_point start_;
  };
  void add(const char* name, double seconds) {
    for (auto& stage : stages_)
      if (stage.first == name) {
        stage.second += seconds;
        return;
      }
    stages_.emplace_back(name, seconds);
  }
  std::vector<std::pair<std::string, double>> stages_;
  std::vector<std::string> losses_;
};

// The metadata that a format has a place for.
enum Keeps : unsigned { kNothing = 0, kProfile = 1, kExif = 2 };

struct Format {
  const char* name;
  std::vector<const char*> extensions;  // with the dot, in lower case
  std::vector<OptionSpec> options;      // several formats may share one name, with or without an argument alike
  bool (*recognises)(Bytes file);
  Image (*read)(Bytes file, const Options& options, Stages& stages);  // null: only written
  std::vector<uint8_t> (*write)(const Image& image, const Options& options,
                                Stages& stages);  // null: only read
  void (*describe)(Bytes file, Facts& facts);     // for --info
  unsigned keeps = kNothing;
  // By rows (see rows.h), where a format can without holding the picture: null otherwise, and no source or sink where
  // this file, picture or option wants all of it.
  std::unique_ptr<RowSource> (*readRows)(const Contents& file, const Options& options, Stages& stages) = nullptr;
  std::unique_ptr<RowSink> (*writeRows)(const Shape& shape, const Options& options, Stages& stages,
                                        Destination& out) = nullptr;
};

const std::vector<const Format*>& formats();
const Format* formatOfContent(Bytes file);
const Format* formatOfName(const std::string& path);

}  // namespace qelconv

#endif
