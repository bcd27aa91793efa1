#include "support/comparison.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>

namespace qelj::test {

void* Image::find(const char* name) const { return findSymbol(handle_, name); }

#if defined(__EMSCRIPTEN__)
void* findSymbol(void*, const char* name) {
  static const std::map<std::string, void*> linked = {
#  define QELJ_EXPORT(name) {#name, reinterpret_cast<void*>(&::name)},
#  define QELJ_EXPORT_AS(name, implementation) {#name, reinterpret_cast<void*>(&::name)},
#  include "frame/exports.def"
#  undef QELJ_EXPORT
#  undef QELJ_EXPORT_AS
  };
  const auto found = linked.find(name);
  return found == linked.end() ? nullptr : found->second;
}
#endif

namespace {

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

// So many rounds are also run without memory.
constexpr int kRefusedRounds = 5;

// What runs now, for the report of a fault.
const char* current = "";
const char* currentImage = "";
int currentRound = 0;
void reportFault(void* address) {
  std::printf("%s: round %d: %s reached the inaccessible address %p\n", current, currentRound, currentImage, address);
  std::fflush(stdout);
}

}  // namespace

const std::vector<const char*> kExports = {
#define QELJ_EXPORT(name) #name,
#define QELJ_EXPORT_AS(name, implementation) #name,
#include "frame/exports.def"
};

DigestFile readDigests(std::istream& from) {
  DigestFile digests;
  std::string name;
  Digests d;
  while (from >> name >> std::hex >> d.quick >> d.all) digests[name] = d;
  return digests;
}

void reportFaults() { onFault<reportFault>(); }

Outcome runRound(const char* name, const Image& image, const Random& numbers, size_t environment, bool tryChecks,
                 bool anyFlags) {
  const bool floats = std::strstr(name, "_32f_") != nullptr;
  Case c(image, numbers, tryChecks);
  if (!floats) c.environment = kFloatEnvironments[environment % std::size(kFloatEnvironments)];
  c.mayRaiseFlags = floats || anyFlags;
  comparisons().at(name).run(image.find(name), c);
  const std::vector<uint8_t>& given = c.finish();
  if (core().allocated != 0) c.fault("memory was not released");
  return {given, c.fault()};
}

namespace {

// The round again, once for each block that it asked for, which is refused then: what it gives is not compared, but it
// keeps to its buffers and releases what it got.
std::string refuseEachBlock(const char* name, const Image& image, const Random& numbers, size_t environment,
                            int blocks) {
  std::string fault;
  for (int n = 1; n <= blocks && fault.empty(); ++n) {
    core().asked = 0, core().refused = n;
    fault = runRound(name, image, numbers, environment, false).fault;
    if (!fault.empty()) fault += ", with block " + std::to_string(n) + " refused";
  }
  core().refused = 0;
  return fault;
}

}  // namespace

bool compareExport(const char* name, const std::vector<Image>& images, Rounds rounds, Digests& digests) {
  const auto found = comparisons().find(name);
  if (found == comparisons().end()) return std::printf("%s: no comparison is registered\n", name), false;
  const int all = found->second.rounds, quick = all / kQuickShare, asked = core().threadQuestions;
  const uint64_t stream = digest(0, std::vector<uint8_t>(name, name + std::strlen(name)));
  current = name;
  for (int round = 0; round < all; ++round) {
    if (round >= quick &&
        (rounds == Rounds::kQuick || (rounds == Rounds::kAllOfForks && core().threadQuestions == asked)))
      break;
    std::vector<uint8_t> reference;
    for (const Image& image : images) {
      if (!image.find(name)) return std::printf("%s: not exported by %s\n", name, image.path().c_str()), false;
      currentImage = image.path().c_str(), currentRound = round;
      const Random numbers(stream + uint64_t(round));
      core().asked = 0;
      auto [given, fault] = runRound(name, image, numbers, size_t(round), round == 0);
      if (const int blocks = core().asked; blocks && round < kRefusedRounds && fault.empty() && !Case::aroundCall)
        fault = refuseEachBlock(name, image, numbers, size_t(round), blocks);
      if (!fault.empty())
        return std::printf("%s: round %d: %s: %s\n", name, round, image.path().c_str(), fault.c_str()), false;
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

}  // namespace qelj::test
