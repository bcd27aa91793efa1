// Runs the registered operations on images and holds what they give to the kept digests. A program with this in it
// answers for the processor: it is linked with ENABLE_EXPORTS.
#ifndef QELJ_TESTS_COMPARISON_H
#define QELJ_TESTS_COMPARISON_H

#include <iosfwd>

#include "support/compare.h"

namespace qelj::test {

extern const std::vector<const char*> kExports;

// What an image is told of threads.
extern int32_t threads;

// Of what an export gave after a twentieth of the rounds, and after all.
struct Digests {
  uint64_t quick = 0, all = 0;
};
using DigestFile = std::map<std::string, Digests>;
DigestFile readDigests(std::istream& from);

// Runs one export on all images, for a twentieth of the rounds if `quickly`; the digests of what it gave. False, and
// said on standard output, where images differ.
bool compareExport(const char* name, const std::vector<Image>& images, bool quickly, Digests& digests);
// Whether the digests are those that are kept; says on standard output that they are not.
bool hold(const char* name, const Digests& digests, const DigestFile& expected, bool quick);

// From now on, an access to inaccessible memory ends the program with a line that names export, round and image.
void reportFaults();

}  // namespace qelj::test

#endif
