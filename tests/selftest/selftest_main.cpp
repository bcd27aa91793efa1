// qelj-selftest: runs every export of the image that the loader has found for a twentieth of the comparison's rounds, and
// holds what it gives to the digests that this program was built with. Says which image that is and how it did; exits
// with 1 when an export gives anything else.
#include <dlfcn.h>

#include <cstdio>
#include <sstream>

#include "kept_digests.h"
#include "qelcore.h"
#include "support/comparison.h"

int main(int argc, char**) {
  using namespace qelj::test;
  if (argc > 1) return std::printf("usage: qelj-selftest\n"), 2;
  const QelLibVersion* version = qeljGetLibVersion();
  Dl_info object{};
  dladdr(version, &object);
  const char* path = object.dli_fname ? object.dli_fname : "this program";
  std::printf("qelj %s, image %s, %s\n", version->versionText, qelGetImageName(version), path);

  std::istringstream kept(kKeptDigests);
  const DigestFile expected = readDigests(kept);
  const std::vector<Image> images = {{path, RTLD_DEFAULT}};
  reportFaults();
  int failed = 0;
  for (const char* name : kExports) {
    Digests digests;
    failed += !(compareExport(name, images, Rounds::kQuick, digests) && hold(name, digests, expected, true));
  }
  if (failed) std::printf("%d of %zu exports do NOT give what they should\n", failed, kExports.size());
  else std::printf("%zu exports give what they should\n", kExports.size());
  return failed != 0;
}
