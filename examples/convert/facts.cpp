#include "facts.h"

#include <ostream>

namespace qelconv {
namespace {

void quote(std::ostream& out, const std::string& text) {
  constexpr char kHex[] = "0123456789abcdef";
  out << '"';
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') out << '\\' << c;
    else if (code < 32 || code > 126) out << "\\u00" << kHex[code >> 4] << kHex[code & 15];
    else out << c;
  }
  out << '"';
}

// Of a picture's own facts, those in the first line.
constexpr size_t kHeadline = 5;

}  // namespace

Facts& Facts::put(const std::string& name, Fact::Kind kind, int64_t value, const std::string& words) {
  Fact& fact = facts_.emplace_back();
  fact.name = name, fact.kind = kind, fact.value = value, fact.words = words;
  return *this;
}

Facts& Facts::another(const std::string& list) {
  for (Fact& fact : facts_)
    if (fact.name == list) return fact.records.emplace_back();
  put(list, Fact::list, 0, "");
  return facts_.back().records.emplace_back();
}

void Facts::printPlain(std::ostream& out, const Fact& fact) {
  if (fact.kind == Fact::flag) out << (fact.value ? "yes" : "no");
  else if (fact.kind == Fact::number) out << fact.value;
  else out << fact.words;
}

void Facts::print(std::ostream& out) const {
  for (size_t i = 0; i < kHeadline; ++i) {
    constexpr const char* kBetween[kHeadline] = {"", ", ", " x ", ", ", " of "};
    out << kBetween[i];
    printPlain(out, facts_[i]);
  }
  out << (facts_[kHeadline - 1].value == 1 ? " bit\n" : " bits\n");
  for (size_t i = kHeadline; i < facts_.size(); ++i) {
    const Fact& fact = facts_[i];
    out << "  " << fact.name << ":";
    if (fact.kind != Fact::list) {
      out << " ";
      printPlain(out, fact);
    }
    for (const Facts& record : fact.records) {
      out << "\n   ";
      for (const Fact& item : record.facts_) {
        out << " " << item.name << " ";
        printPlain(out, item);
      }
    }
    out << "\n";
  }
}

void Facts::printJson(std::ostream& out, int indent) const {
  const std::string margin(size_t(indent), ' ');
  const char* between = "{\n";
  for (const Fact& fact : facts_) {
    out << between << margin << "  ";
    between = ",\n";
    quote(out, fact.name);
    out << ": ";
    if (fact.kind == Fact::flag) {
      out << (fact.value ? "true" : "false");
    } else if (fact.kind == Fact::number) {
      out << fact.value;
    } else if (fact.kind == Fact::text) {
      quote(out, fact.words);
    } else {
      const char* comma = "[";
      for (const Facts& record : fact.records) {
        out << comma;
        comma = ", ";
        record.printJson(out, indent + 2);
      }
      out << "]";
    }
  }
  out << "\n" << margin << "}";
}

}  // namespace qelconv
