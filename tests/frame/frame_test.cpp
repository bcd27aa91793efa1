// The library as a whole: its dynamic symbols, the services that it takes from outside, and how calls fork.
// This program supplies its own core library, in front of libqelcore.
#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "frame/core_stub.h"
#include "qelj.h"
#include "support/random.h"

// Of the compiler's runtime: the rule for unwinding at an address.
extern "C" const void* _Unwind_Find_FDE(void* address, void** bases);

namespace qelj::test {
namespace {

// What a command prints.
std::string printed(const char* command) {
  std::string text;
  FILE* pipe = popen(command, "r");
  std::array<char, 512> line;
  while (pipe && std::fgets(line.data(), int(line.size()), pipe)) text += line.data();
  if (pipe) pclose(pipe);
  return text;
}

// The names of one kind ('T' defined, 'U' undefined) among the dynamic symbols of the library.
std::set<std::string> dynamicSymbols(char kind) {
  std::set<std::string> names;
  std::istringstream lines(printed("nm -D --portability " QELJ_LIBRARY));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    char type = 0;
    words >> name >> type;
    if (type == kind) names.insert(name.substr(0, name.find('@')));
  }
  return names;
}

void* const kEntries[] = {
#define QELJ_EXPORT(name) reinterpret_cast<void*>(&::name),
#define QELJ_EXPORT_AS(name, implementation) reinterpret_cast<void*>(&::name),
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
};

TEST(Frame, ExportsExactlyTheList) {
  const std::set<std::string> listed = {
#define QELJ_EXPORT(name) #name,
#define QELJ_EXPORT_AS(name, implementation) #name,
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
  };
  EXPECT_EQ(listed, dynamicSymbols('T'));
}

TEST(Frame, ExportListIsInOrder) {
  const char* const names[] = {
#define QELJ_EXPORT(name) #name,
#define QELJ_EXPORT_AS(name, implementation) #name,
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
  };
  for (size_t i = 1; i < std::size(names); ++i) EXPECT_LT(std::string(names[i - 1]), names[i]);
}

TEST(Frame, ImportsFiveServices) {
  std::set<std::string> services;
  for (const auto& name : dynamicSymbols('U'))
    if (name.starts_with("qel") || name.starts_with("own")) services.insert(name);
  EXPECT_EQ((std::set<std::string>{"ownGetNumThreads", "qelFree", "qelGetEnabledCpuFeatures", "qelGetMaxCacheSizeB",
                                   "qelMalloc"}),
            services);
}

#if defined(__x86_64__)
[[maybe_unused]] constexpr const char* kProtection = "IBT, SHSTK";
constexpr uint8_t kLandingPad[] = {0xF3, 0x0F, 0x1E, 0xFA};  // endbr64
#elif defined(__aarch64__)
[[maybe_unused]] constexpr const char* kProtection = "BTI";
constexpr uint8_t kLandingPad[] = {0x5F, 0x24, 0x03, 0xD5};  // bti c
#endif

#if defined(__x86_64__) || defined(__aarch64__)
// A library without the note takes the protection of indirect branches from the whole process; one with it whose
// entries lack the landing pad ends the process.
TEST(Frame, AdmitsIndirectCallsWhereTheyAreGuarded) {
#  ifndef QELJ_SANITIZED  // what a sanitizer adds to a library has no note
  for (const char* command : {"readelf -nW " QELJ_LIBRARY, "readelf -nW " QELCORE_LIBRARY})
    EXPECT_NE(std::string::npos, printed(command).find(kProtection)) << command;
#  endif
  for (const void* entry : kEntries) {
    ASSERT_EQ(0, std::memcmp(entry, kLandingPad, sizeof kLandingPad));
#  if defined(__x86_64__)
    int32_t toSlot = 0;
    std::memcpy(&toSlot, static_cast<const char*>(entry) + 6, 4);  // endbr64; jmp *toSlot(%rip)
    const void* front = nullptr;
    std::memcpy(&front, static_cast<const char*>(entry) + 10 + toSlot, sizeof front);
    EXPECT_EQ(0, std::memcmp(front, kLandingPad, sizeof kLandingPad));
#  endif
  }
}
#endif

// A debugger and a profiler find their way out of any entry.
TEST(Frame, EntriesTellHowToUnwind) {
  for (void* entry : kEntries) {
    void* bases[3];
    EXPECT_NE(nullptr, _Unwind_Find_FDE(entry, bases));
  }
}

TEST(Frame, LoadAsksForTheFeaturesOnce) { EXPECT_EQ(1, core.featureQuestions); }

struct Shift {
  explicit Shift(QelSize s) : size(s), src(size_t(s.width) * size_t(s.height)), dst(src.size()) {
    Random random;
    random.fill(src.data(), src.size());
  }
  QelStatus run() { return qeliSub128_JPEG_8u16s_C1R(src.data(), size.width, dst.data(), 2 * size.width, size); }
  bool right() const {
    for (size_t i = 0; i < src.size(); ++i)
      if (dst[i] != src[i] - 128) return false;
    return true;
  }
  QelSize size;
  std::vector<uint8_t> src;
  std::vector<int16_t> dst;
};

// Rows here do not overlap: only so far do the bytes not depend on the team.
TEST(Fork, SameBytesForAnyTeam) {
  for (const QelSize size : {QelSize{128, 64}, {8193, 1}, {91, 91}, {1, 9000}, {300, 200}}) {
    for (const int threads : {-3, 0, 1, 2, 3, 7, 64}) {
      core.threads = threads;
      Shift shift(size);
      EXPECT_EQ(qelStatusOk, shift.run());
      EXPECT_TRUE(shift.right()) << size.width << "x" << size.height << " on " << threads;
    }
  }
  core.threads = 2;
}

// The one forking function whose rows may overlap: an odd width writes a pixel more, into the next row's place.
TEST(Fork, PackedRowsThatOverlapStandInOrder) {
  constexpr int32_t kWidth = 91, kHeight = 100;
  Random random;
  std::vector<uint8_t> src(2 * (kWidth + 1) * kHeight);
  random.fill(src.data(), src.size());
  for (const int32_t step : {3 * kWidth, kWidth, 1, 0}) {
    std::vector<uint8_t> expected(size_t(step * (kHeight - 1) + 3 * (kWidth + 1)));
    for (int32_t y = 0; y < kHeight; ++y)
      qeliYCbCr422ToRGB_JPEG_8u_C2C3R(&src[size_t(2 * (kWidth + 1) * y)], 1, &expected[size_t(step * y)], 1,
                                      {kWidth, 1});
    for (const int threads : {1, 2, 7}) {
      core.threads = threads;
      std::vector<uint8_t> dst(expected.size());
      EXPECT_EQ(qelStatusOk,
                qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), 2 * (kWidth + 1), dst.data(), step, {kWidth, kHeight}));
      EXPECT_EQ(expected, dst) << step << " on " << threads;
    }
  }
  core.threads = 2;
}

TEST(Fork, SameBytesInsideAParallelRegion) {
  for (const int levels : {1, 2}) {
    omp_set_max_active_levels(levels);  // 1: the runtime refuses the inner fork
    std::atomic<int> wrong{0};
#pragma omp parallel num_threads(2)
    {
      Shift shift({300, 200});
      if (shift.run() != qelStatusOk || !shift.right()) ++wrong;
    }
    EXPECT_EQ(0, wrong);
  }
}

}  // namespace
}  // namespace qelj::test
