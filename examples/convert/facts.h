// What --info tells of a file: as lines of text, or as JSON.
#ifndef QELCONV_FACTS_H
#define QELCONV_FACTS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace qelconv {

class Facts {
 public:
  Facts& add(const std::string& name, const std::string& text) { return put(name, Fact::text, 0, text); }
  Facts& add(const std::string& name, const char* text) { return add(name, std::string(text)); }
  Facts& add(const std::string& name, bool yes) { return put(name, Fact::flag, yes, ""); }
  Facts& add(const std::string& name, int64_t number) { return put(name, Fact::number, number, ""); }
  Facts& add(const std::string& name, int number) { return add(name, int64_t(number)); }
  Facts& add(const std::string& name, size_t number) { return add(name, int64_t(number)); }
  // One more of a list of records, such as scans.
  Facts& another(const std::string& list);
  // What every picture has.
  Facts& picture(const std::string& format, int64_t width, int64_t height, const std::string& colour, int64_t bits) {
    return add("format", format).add("width", width).add("height", height).add("colour", colour).add("bits", bits);
  }

  // The picture in a line, and the rest below it.
  void print(std::ostream& out) const;
  void printJson(std::ostream& out, int indent = 0) const;

 private:
  struct Fact {
    enum Kind { flag, number, text, list };
    std::string name;
    Kind kind = flag;
    int64_t value = 0;  // of a flag or number
    std::string words;
    std::vector<Facts> records;
  };
  Facts& put(const std::string& name, Fact::Kind kind, int64_t value, const std::string& words);
  static void printPlain(std::ostream& out, const Fact& fact);
  std::vector<Fact> facts_;
};

}  // namespace qelconv

#endif
