// compare_images [options] IMAGE...: runs every export's registered operation on all images, compares what they give,
// and holds it to the digests of a file. Exits with 1 when an export differs, or has no registered operation.
//
//   --digests FILE   the digests to hold: a line an export, after a twentieth of the rounds and after all
//   --write FILE     writes them instead
//   --quick          a twentieth of the rounds
//   --only TEXT      exports with TEXT in their names
//   --times          prints the milliseconds of each export
//   --counts         dumps the instructions of each export's calls (scripts/bench --check)
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "guard.h"
#include "qelcore.h"
#include "support/compare.h"

#if __has_include(<valgrind/callgrind.h>)
#  include <valgrind/callgrind.h>
void toggleCollect() { CALLGRIND_TOGGLE_COLLECT; }
void dumpCounts(const char* name) { CALLGRIND_DUMP_STATS_AT(name); }
bool counts() { return RUNNING_ON_VALGRIND; }
#else
void toggleCollect() {}
void dumpCounts(const char*) {}
bool counts() { return false; }
#endif

// A processor of three threads and small caches in the place of this machine's, so that large images are divided and
// take the stores that pass the caches by wherever the comparison runs.
static int32_t threads = 3;
extern "C" int32_t ownGetNumThreads(void) {
  ++qelj::test::threadQuestions;
  return threads;
}
extern "C" int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  *bytes = 1 << 20;
  return 0;
}
// Memory of the library's own, of which a round leaves none behind.
static int allocated = 0;
extern "C" void* qelMalloc(int32_t bytes) {
  ++allocated;
  return std::aligned_alloc(64, (size_t(bytes) + 63) / 64 * 64);
}
extern "C" void qelFree(void* memory) {
  allocated -= memory != nullptr;
  std::free(memory);
}

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

// Eight bytes at a time, little-endian: a multiplication spreads them upwards, a shift back down.
uint64_t mixed(uint64_t hash, uint64_t word) {
  hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
  return hash ^ hash >> 32;
}
uint64_t digest(uint64_t hash, const std::vector<uint8_t>& bytes) {
  size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, &bytes[i], 8);
    hash = mixed(hash, word);
  }
  uint64_t rest = 0;
  if (i < bytes.size()) std::memcpy(&rest, &bytes[i], bytes.size() - i);
  return mixed(mixed(hash, rest), bytes.size());
}

// What runs now, for the report of a fault.
const char* current = "";
const char* currentImage = "";
int currentRound = 0;
void reportFault(int, siginfo_t* info, void*) {
  char text[512];
  const int n = std::snprintf(text, sizeof text, "%s: round %d: %s reached the inaccessible address %p\n", current,
                              currentRound, currentImage, info->si_addr);
  [[maybe_unused]] const auto written = write(STDOUT_FILENO, text, size_t(n));
  _exit(1);
}

struct Digests {
  uint64_t quick = 0, all = 0;
};
using DigestFile = std::map<std::string, Digests>;

bool readDigests(const char* path, DigestFile& digests) {
  std::FILE* file = std::fopen(path, "r");
  if (!file) return std::printf("%s: cannot be read\n", path), false;
  char name[128];
  Digests d;
  while (std::fscanf(file, "%127s %" SCNx64 " %" SCNx64, name, &d.quick, &d.all) == 3) digests[name] = d;
  std::fclose(file);
  return true;
}

struct Options {
  const char *only = "", *digests = nullptr, *write = nullptr;
  bool quick = false, times = false, counts = false;
};

// Runs one export on all images; the digests of what it gave.
bool compareExport(const char* name, const std::vector<Image>& images, const Options& options, Digests& digests) {
  const auto found = comparisons().find(name);
  if (found == comparisons().end()) return std::printf("%s: no comparison is registered\n", name), false;
  const auto& comparison = found->second;
  const int quick = comparison.rounds / kQuickShare;
  const uint64_t stream = digest(0, std::vector<uint8_t>(name, name + std::strlen(name)));
  // Functions of floats compute in the caller's environment.
  const bool floats = std::strstr(name, "_32f_") != nullptr;
  current = name;
  for (int round = 0; round < (options.quick ? quick : comparison.rounds); ++round) {
    std::vector<uint8_t> reference;
    for (const Image& image : images) {
      void* function = image.find(name);
      if (!function) return std::printf("%s: not exported by %s\n", name, image.path().c_str()), false;
      currentImage = image.path().c_str(), currentRound = round;
      Case c(image, Random(stream + uint64_t(round)), round == 0);
      if (!floats) c.environment = kFloatEnvironments[size_t(round) % std::size(kFloatEnvironments)];
      c.mayRaiseFlags = floats;
      comparison.run(function, c);
      const std::vector<uint8_t>& given = c.finish();
      if (allocated != 0) c.fault("memory was not released");
      if (!c.fault().empty())
        return std::printf("%s: round %d: %s: %s\n", name, round, image.path().c_str(), c.fault().c_str()), false;
      if (&image == &images.front()) {
        reference = given;
        digests.all = digest(digests.all, reference);
        continue;
      }
      if (given == reference) continue;
      size_t at = 0;
      while (at < reference.size() && at < given.size() && reference[at] == given[at]) ++at;
      std::printf("%s: round %d: %s differs at traced byte %zu of %zu\n", name, round, image.path().c_str(), at,
                  reference.size());
      return false;
    }
    if (round == quick - 1) digests.quick = digests.all;
  }
  return true;
}

bool hold(const char* name, const Digests& digests, const DigestFile& expected, bool quick) {
  const auto found = expected.find(name);
  if (found == expected.end()) return std::printf("%s: no digest is kept\n", name), false;
  const Digests& e = found->second;
  if (digests.quick == e.quick && (quick || digests.all == e.all)) return true;
  std::printf("%s: gives %016" PRIx64 " %016" PRIx64 " where %016" PRIx64 " %016" PRIx64 " is kept%s\n", name,
              digests.quick, digests.all, e.quick, e.all, quick ? " (quick)" : "");
  return false;
}

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
      options.quick = true;
    } else if (argument == "--times") {
      options.times = true;
    } else if (argument == "--counts") {
      options.counts = true;
    } else {
      void* handle = dlopen(argv[i], RTLD_NOW | RTLD_LOCAL);
      if (!handle) return std::printf("%s\n", dlerror()), 1;
      if (!runsHere(dlsym(handle, "qeljGetLibVersion"))) return 1;
      images.emplace_back(argv[i], handle);
    }
  }
  if (images.empty() || (options.write && options.quick))
    return std::printf(
               "usage: compare_images [--digests FILE | --write FILE] [--quick] [--only TEXT] [--times] "
               "IMAGE...\n"),
           2;

  DigestFile expected;
  // Other data than those of the file when the seed is another.
  const bool holds = options.digests && !std::getenv("QELJ_SEED");
  if (holds && !readDigests(options.digests, expected)) return 1;
  std::FILE* written = nullptr;
  if (options.write && !(written = std::fopen(options.write, "w")))
    return std::printf("%s: cannot be written\n", options.write), 1;

  if (options.counts) {
    if (!counts()) return std::printf("--counts: not under callgrind, or built without its header\n"), 2;
    Case::aroundCall = toggleCollect;
    threads = 1;  // how long one waits for another is no fixed number of instructions
  }
  struct sigaction action{};
  action.sa_sigaction = reportFault;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);

  int compared = 0, failed = 0;
  for (const char* name : kExports) {
    if (!std::strstr(name, options.only)) continue;
    Digests digests;
    const std::clock_t start = std::clock();
    const bool good =
        compareExport(name, images, options, digests) && (!holds || hold(name, digests, expected, options.quick));
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
