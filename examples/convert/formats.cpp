#include <algorithm>
#include <cctype>
#include <iomanip>
#include <ostream>

#include "format.h"

namespace qelconv {

// A program without other libraries (QELCONV_ALONE) has neither PNG nor TIFF.
extern const Format kPnm, kPgm, kPpm, kPfm, kPng, kJpeg, kJpeg2000, kJp2, kJpegXr, kTiff, kDds, kKtx2;

const std::vector<const Format*>& formats() {
  static const std::vector<const Format*> all = {
      &kPnm,  &kPgm,      &kPpm, &kPfm,
#ifndef QELCONV_ALONE
      &kPng,
#endif
      &kJpeg, &kJpeg2000, &kJp2, &kJpegXr,
#ifndef QELCONV_ALONE
      &kTiff,
#endif
      &kDds,  &kKtx2,
  };
  return all;
}

const Format* formatOfContent(Bytes file) {
  for (const Format* format : formats())
    if (format->recognises(file)) return format;
  return nullptr;
}

const Format* formatOfName(const std::string& path) {
  std::string lower = path;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  for (const Format* format : formats())
    for (const char* extension : format->extensions)
      if (lower.ends_with(extension)) return format;
  return nullptr;
}

void Stages::report(std::ostream& out, double megapixels) const {
  const auto line = [&](const std::string& name, double time) {
    out << "  " << std::left << std::setw(28) << name << std::right << std::fixed << std::setprecision(2)
        << std::setw(9) << time * 1e3 << " ms " << std::setw(9) << megapixels / time << " MPix/s\n";
  };
  for (const auto& [name, time] : stages_) line(name, time);
  line("together", seconds());
}

}  // namespace qelconv
