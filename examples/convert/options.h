// The options of one run, by name, as the formats declared them.
#ifndef QELCONV_OPTIONS_H
#define QELCONV_OPTIONS_H

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "image.h"

namespace qelconv {

struct OptionSpec {
  const char* name;      // without the dashes
  const char* argument;  // what stands behind it in the help, such as "N"; null for a flag
  const char* help;
};

class Options {
 public:
  void set(const std::string& name, const std::string& value) { values_[name] = value; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& value : values_) names.push_back(value.first);
    return names;
  }
  bool has(const std::string& name) const { return values_.contains(name); }
  std::string text(const std::string& name, const std::string& fallback = "") const {
    const auto found = values_.find(name);
    return found == values_.end() ? fallback : found->second;
  }
  int integer(const std::string& name, int fallback, int low, int high) const {
    return int(number(name, fallback, low, high, true));
  }
  double number(const std::string& name, double fallback, double low, double high, bool whole = false) const {
    if (!has(name)) return fallback;
    const std::string value = text(name);
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (value.empty() || *end || !(number >= low && number <= high) || (whole && number != double(long(number))))
      throw Error("--" + name + " takes a " + (whole ? "whole " : "") + "number from " + shortText(low) + " to " +
                  shortText(high) + ", not \"" + value + "\"");
    return number;
  }
  // "WxH".
  std::pair<int, int> size(const std::string& name, std::pair<int, int> fallback) const {
    if (!has(name)) return fallback;
    int w = 0, h = 0, end = 0;
    const std::string value = text(name);
    if (std::sscanf(value.c_str(), "%9dx%9d%n", &w, &h, &end) != 2 || size_t(end) != value.size() || w < 1 || h < 1)
      throw Error("--" + name + " takes a size such as 64x64, not \"" + value + "\"");
    return {w, h};
  }
  // One of a few words; the result is its place in the list.
  int choice(const std::string& name, std::initializer_list<const char*> words, int fallback) const {
    if (!has(name)) return fallback;
    std::string list;
    int i = 0;
    for (const char* word : words) {
      if (text(name) == word) return i;
      list += (i++ ? ", " : "") + std::string(word);
    }
    throw Error("--" + name + " takes one of " + list + ", not \"" + text(name) + "\"");
  }

 private:
  static std::string shortText(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
  }
  std::map<std::string, std::string> values_;
};

}  // namespace qelconv

#endif
