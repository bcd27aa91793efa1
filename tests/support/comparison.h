// Runs the registered operations on images and holds what they give to the kept digests. A program with this in it
// answers for the processor: it is linked with ENABLE_EXPORTS.
#ifndef QELJ_TESTS_COMPARISON_H
#define QELJ_TESTS_COMPARISON_H

#include <iosfwd>

#include "support/compare.h"

namespace qelj::test {

extern const std::vector<const char*> kExports;

// Of what an export gave after a twentieth of the rounds, and after all.
struct Digests {
  uint64_t quick = 0, all = 0;
};
using DigestFile = std::map<std::string, Digests>;
DigestFile readDigests(std::istream& from);

// One round of an export on an image: every byte that it gave, and what was wrong beside that, or nothing. `environment`
// chooses the floating-point environment, but functions of floats compute in the caller's; and those may raise flags, as
// all may with `anyFlags`.
struct Outcome {
  std::vector<uint8_t> given;
  std::string fault;
};
Outcome runRound(const char* name, const Image& image, const Random& numbers, size_t environment, bool tryChecks,
                 bool anyFlags = false);

// A twentieth of the rounds, unless the export asks for the number of threads; a twentieth; all.
enum class Rounds { kAllOfForks, kQuick, kAll };
// Runs one export on all images; the digests of what it gave. False, and said on standard output, where images differ.
bool compareExport(const char* name, const std::vector<Image>& images, Rounds rounds, Digests& digests);
// Whether the digests are those that are kept; says on standard output that they are not.
bool hold(const char* name, const Digests& digests, const DigestFile& expected, bool quick);

// From now on, an access to inaccessible memory ends the program with a line that names export, round and image.
void reportFaults();

}  // namespace qelj::test

#endif
