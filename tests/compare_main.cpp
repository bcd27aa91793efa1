// compare_images [options] IMAGE...: runs every export's registered operation on all images, compares what they give,
// and holds it to the digests of a file. Exits with 1 when an export differs, or has no registered operation.
//
//   --digests FILE   the digests to hold: a line an export, after a twentieth of the rounds and after all
//   --write FILE     writes them instead
//   --quick          a twentieth of the rounds
//   --forks          the same, but all rounds of exports that fork
//   --only TEXT      exports with TEXT in their names
//   --times          prints the milliseconds of each export
//   --counts         dumps the instructions of each export's calls (scripts/bench --check, --arm)
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include "guard.h"
#include "support/comparison.h"
#include "support/marks.h"

#if !defined(__aarch64__) && __has_include(<valgrind/callgrind.h>)
#  include <valgrind/callgrind.h>
void toggleCollect() { CALLGRIND_TOGGLE_COLLECT; }
void dumpCounts(const char* name) { CALLGRIND_DUMP_STATS_AT(name); }
bool counts() { return RUNNING_ON_VALGRIND; }
#else
void toggleCollect() { qelj::marks::toggle(); }
void dumpCounts(const char* name) {
  std::printf("%s ", name), std::fflush(stdout);
  qelj::marks::print();
}
bool counts() { return qelj::marks::kThere; }
#endif

namespace {

using namespace qelj::test;
using qelj::runsHere;

struct Options {
  const char *only = "", *digests = nullptr, *write = nullptr;
  Rounds rounds = Rounds::kAll;
  bool times = false, counts = false;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<Image> images;
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto text = [&] { return i + 1 < argc ? argv[++i] : ""; };
    if (argument == "--only") {
      options.only = text();
    } else if (argument == "--digests") {
      options.digests = text();
    } else if (argument == "--write") {
      options.write = text();
    } else if (argument == "--quick") {
      options.rounds = Rounds::kQuick;
    } else if (argument == "--forks") {
      options.rounds = Rounds::kAllOfForks;
    } else if (argument == "--times") {
      options.times = true;
    } else if (argument == "--counts") {
      options.counts = true;
    } else {
      void* handle = openLibrary(argv[i]);
      if (!handle) return std::printf("%s: %s\n", argv[i], openFailure().c_str()), 1;
      if (!runsHere(findSymbol(handle, "qeljGetLibVersion"))) return 1;
      images.emplace_back(argv[i], handle);
    }
  }
  const bool quick = options.rounds != Rounds::kAll;
  if (images.empty() || (options.write && quick))
    return std::printf(
               "usage: compare_images [--digests FILE | --write FILE] [--quick | --forks] [--only TEXT] "
               "[--times] IMAGE...\n"),
           2;

  DigestFile expected;
  // Other data than those of the file when the seed is another.
  const bool holds = options.digests && !std::getenv("QELJ_SEED");
  if (holds) {
    std::ifstream file(options.digests);
    if (!file) return std::printf("%s: cannot be read\n", options.digests), 1;
    expected = readDigests(file);
  }
  std::FILE* written = nullptr;
  if (options.write && !(written = std::fopen(options.write, "w")))
    return std::printf("%s: cannot be written\n", options.write), 1;

  if (options.counts) {
    if (!counts()) return std::printf("--counts: not under callgrind, or built without its header\n"), 2;
    Case::aroundCall = toggleCollect;
    core().threads = 1;  // how long one waits for another is no fixed number of instructions
  }
  reportFaults();

  int compared = 0, failed = 0;
  for (const char* name : kExports) {
    if (!std::strstr(name, options.only)) continue;
    Digests digests;
    const std::clock_t start = std::clock();
    const bool good =
        compareExport(name, images, options.rounds, digests) && (!holds || hold(name, digests, expected, quick));
    if (options.times) std::printf("%7.1f ms %s\n", 1000.0 * double(std::clock() - start) / CLOCKS_PER_SEC, name);
    if (options.counts) dumpCounts(name);
    ++compared;
    failed += !good;
    if (written) std::fprintf(written, "%s %016" PRIx64 " %016" PRIx64 "\n", name, digests.quick, digests.all);
  }
  if (written) std::fclose(written);
  std::printf("%d exports on %zu image%s, %d failed\n", compared, images.size(), images.size() > 1 ? "s" : "", failed);
  return failed ? 1 : 0;
}
