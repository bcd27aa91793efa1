// compare_images [--only TEXT] [--rounds N] [--digest] IMAGE IMAGE...: runs every export's registered operation on
// all images and compares what they give. Exits with 1 when an export differs, or has no registered operation.
// --digest prints a number for what each export gave, to compare machines; one image will do then.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "guard.h"
#include "support/compare.h"

namespace qelj::test {
void* Image::find(const char* name) const { return dlsym(handle_, name); }
}  // namespace qelj::test

namespace {

using namespace qelj::test;
using qelj::runsHere;

const char* const kExports[] = {
#define QELJ_EXPORT(name) #name,
#define QELJ_EXPORT_AS(name, implementation) #name,
#include "frame/exports.def"
};

// FNV-1a.
uint64_t digest(uint64_t hash, const std::vector<uint8_t>& bytes) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  return hash;
}

bool compareExport(const char* name, const std::vector<Image>& images, int rounds, bool printDigest) {
  const auto found = comparisons().find(name);
  if (found == comparisons().end()) {
    std::printf("%s: no comparison is registered\n", name);
    return false;
  }
  uint64_t hash = 0xCBF29CE484222325u;
  for (int round = 0; round < rounds; ++round) {
    std::vector<uint8_t> reference;
    for (const Image& image : images) {
      void* function = image.find(name);
      if (!function) {
        std::printf("%s: not exported by %s\n", name, image.path().c_str());
        return false;
      }
      Random random(uint64_t(round) + 1);
      Trace trace;
      found->second(function, image, random, trace);
      if (&image == &images.front()) {
        reference = trace.all();
        hash = digest(hash, reference);
        continue;
      }
      if (trace.all() == reference) continue;
      size_t at = 0;
      while (at < reference.size() && at < trace.all().size() && reference[at] == trace.all()[at]) ++at;
      std::printf("%s: round %d (QELJ_SEED=%llu): %s differs at traced byte %zu of %zu\n", name, round,
                  static_cast<unsigned long long>(Random::seed()), image.path().c_str(), at,
                  reference.size());
      return false;
    }
  }
  if (printDigest) std::printf("%016llx %s\n", static_cast<unsigned long long>(hash), name);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Image> images;
  const char* only = "";
  int rounds = 40;
  bool printDigest = false;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--only") && i + 1 < argc) {
      only = argv[++i];
    } else if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc) {
      rounds = std::atoi(argv[++i]);
    } else if (!std::strcmp(argv[i], "--digest")) {
      printDigest = true;
    } else {
      void* handle = dlopen(argv[i], RTLD_NOW | RTLD_LOCAL);
      if (!handle) return std::printf("%s\n", dlerror()), 1;
      if (!runsHere(dlsym(handle, "qeljGetLibVersion"))) return 1;
      images.emplace_back(argv[i], handle);
    }
  }
  if (images.size() < (printDigest ? 1 : 2))
    return std::printf("usage: compare_images [--only TEXT] [--rounds N] [--digest] IMAGE IMAGE...\n"), 2;

  int compared = 0, failed = 0;
  for (const char* name : kExports) {
    if (!std::strstr(name, only)) continue;
    ++compared;
    failed += !compareExport(name, images, rounds, printDigest);
  }
  std::printf("compared %d exports on %zu images, %d failed\n", compared, images.size(), failed);
  return failed ? 1 : 0;
}
