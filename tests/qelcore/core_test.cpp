// The core library as it is delivered: what it answers, that it answers without the kernel's help, and what
// becomes of it in a child of fork(). What depends on a fresh process runs this program again, in one of the
// modes of main().
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "machine_texts.h"
#include "qelcore.h"
#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

// --- A fresh process ---------------------------------------------------------------------------------------

// In front of every constructor, the core library's own among them; but not in a mode, which shows what that
// one does.
int32_t earlyThreads, earlyCache;
uint64_t earlyFeatures;
void ask(int argc, char** argv) {
  if (argc > 1 && argv[1][0] != '-') return;
  earlyThreads = ownGetNumThreads();
  qelGetMaxCacheSizeB(&earlyCache);
  earlyFeatures = qelGetEnabledCpuFeatures();
}
__attribute__((section(".preinit_array"), used)) void (*const askEarly)(int, char**) = ask;

// Mode "count": prints the number of threads.
int printCount() { return std::printf("%d", ownGetNumThreads()) < 0; }

// Mode "quiet": calls with everything but read, write and exit forbidden to the process. Prints each step
// before it; the kernel ends the process where a call enters it.
int callQuietly() {
  static uint8_t source[3 * 2048 + 300], grey[64], image[4 * 2048 * 300];
  const uint8_t* const planes[] = {source, source + 2048, source + 4096};
  const auto say = [](const char* step) { return write(1, step, std::strlen(step)); };
  const size_t heap = mallinfo2().uordblks;
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT)) return 77;
  bool good = true;
  int32_t cache = 0;
  say("the core library");
  good &= ownGetNumThreads() >= 1;
  qelGetMaxCacheSizeB(&cache);
  qelGetEnabledCpuFeatures();
  say(", a small image");
  good &= qeliRGBToY_JPEG_8u_C3C1R(source, 192, grey, 64, {64, 1}) == qelStatusOk;
  say(", an image above 2 MiB");
  good &= qeliYCbCrToBGR_JPEG_8u_P3C4R(planes, 1, image, 4 * 2048, {2048, 300}, 0) == qelStatusOk;
  say(", a large one on one thread");
  qelSetNumThreads(1);
  good &= qeliRGBToY_JPEG_8u_C3C1R(source, 1, image, 2048, {2048, 300}) == qelStatusOk;
  say(", the heap");
  good &= mallinfo2().uordblks == heap;
  if (good) say(": done");
  syscall(SYS_exit, 0);  // exit() would end the process by another call
  return 0;
}

// What a mode of this program prints, in an environment with these settings ("-u NAME" takes one away).
std::string fresh(const std::string& environment, const std::string& mode) {
  std::array<char, 4096> program{};
  if (readlink("/proc/self/exe", program.data(), program.size() - 1) < 0) return "no program";
  FILE* pipe = popen(("exec env " + environment + " '" + program.data() + "' " + mode).c_str(), "r");
  std::string printed;
  for (int c; (c = std::fgetc(pipe)) != EOF;) printed += char(c);
  const int status = pclose(pipe);
  return WIFEXITED(status) && WEXITSTATUS(status) == 77 ? "forbidden" : printed;
}

// --- Texts -------------------------------------------------------------------------------------------------

struct Text {
  const char* text;
  int32_t number;
};

TEST(CoreTexts, ThreadList) {
  constexpr Text kLists[] = {{"4", 4},       {" 8 , 2", 8},
                             {"3,x", 3},     {"1024", 1024},
                             {"1025", 1024}, {"", 0},
                             {"0", 0},       {"-2", 0},
                             {"x", 0},       {"4x", 0},
                             {"4 4", 0},     {",4", 0},
                             {"  ", 0},      {"99999999999999999999999999", 1024}};
  for (const auto& [text, threads] : kLists) EXPECT_EQ(threads, qelcore::threadsAsked(text)) << text;
}

TEST(CoreTexts, CacheSize) {
  constexpr Text kSizes[] = {{"48K\n", 48 << 10},
                             {"32M", 32 << 20},
                             {"1G\n", 1 << 30},
                             {"2G", INT32_MAX},
                             {"512", 512},
                             {"99999999999999999999G", INT32_MAX},
                             {"", 0},
                             {"K", 0},
                             {"-1K", 0}};
  for (const auto& [text, bytes] : kSizes) EXPECT_EQ(bytes, qelcore::cacheSize(text)) << text;
}

// The processors that the quotas of a file system made of these texts grant.
int32_t granted(const std::map<std::string, std::string>& files) {
  return qelcore::processorsOfQuotas([&](const char* path, char* buffer, size_t size) -> std::string_view {
    const auto file = files.find(path);
    if (file == files.end()) return {};
    return {buffer, file->second.copy(buffer, size)};
  });
}

TEST(CoreTexts, Quotas) {
  constexpr int32_t kNone = qelcore::kMostThreads;
  const std::string groups = "/proc/self/cgroup", root = "/sys/fs/cgroup";
  EXPECT_EQ(kNone, granted({}));
  // The unified hierarchy: the group's own limit, rounded up, and those of the groups above it.
  const auto unified = [&](const std::string& limit) {
    return granted({{groups, "0::/a/b.c:d\n"}, {root + "/a/b.c:d/cpu.max", limit}});
  };
  EXPECT_EQ(2, unified("200000 100000\n"));
  EXPECT_EQ(3, unified("200001 100000\n"));
  EXPECT_EQ(1, unified("1000 100000\n"));
  for (const char* garbled : {"max 100000\n", "", "\n", "200000", "200000 0\n", "0 100000\n", "-5 1\n", "a b", "5 -1"})
    EXPECT_EQ(kNone, unified(garbled)) << garbled;
  EXPECT_EQ(kNone, unified("99999999999999999999 1\n"));
  EXPECT_EQ(2, granted({{groups, "0::/a/b/c\n"},
                        {root + "/a/b/c/cpu.max", "max 100000\n"},
                        {root + "/a/b/cpu.max", "400000 100000\n"},
                        {root + "/a/cpu.max", "150000 100000\n"},
                        {root + "/cpu.max", "300000 100000\n"}}));
  // In a container the root is its own group; a path that leads out of the mount is not followed.
  EXPECT_EQ(2, granted({{groups, "0::/\n"}, {root + "/cpu.max", "200000 100000\n"}}));
  EXPECT_EQ(2, granted({{groups, "0::/../../x\n"},
                        {root + "/cpu.max", "200000 100000\n"},
                        {root + "/../../x/cpu.max", "100000 100000\n"}}));
  // The first version's: one hierarchy a controller, and two files.
  const std::map<std::string, std::string> first{
      {groups, "4:memory:/m\n3:cpuset:/s\n2:cpuacct,cpu:/a/b\n1:name=systemd:/x\n0::/x\n"},
      {root + "/cpu/a/b/cpu.cfs_quota_us", "-1\n"},
      {root + "/cpu/a/b/cpu.cfs_period_us", "100000\n"},
      {root + "/cpu/a/cpu.cfs_quota_us", "50000\n"},
      {root + "/cpu/a/cpu.cfs_period_us", "20000\n"},
      {root + "/cpu/s/cpu.cfs_quota_us", "20000\n"},
      {root + "/cpu/s/cpu.cfs_period_us", "20000\n"}};
  EXPECT_EQ(3, granted(first));
  // Garbage: lines without their parts or without an end, and no text that fits.
  const std::string grants = root + "/cpu.max";
  EXPECT_EQ(kNone, granted({{groups, "0::/"}, {grants, "1 1\n"}}));
  EXPECT_EQ(kNone, granted({{groups, "\n:\n::\n0:\n0::\n0::a\n:::::\n/\n"}, {grants, "1 1\n"}}));
  EXPECT_EQ(kNone, granted({{groups, "0::/" + std::string(5000, 'a') + "\n"}, {grants, "1 1\n"}}));
  EXPECT_EQ(kNone, granted({{groups, "0::/" + std::string(4080, '/') + "a\n"}, {grants, "1 1\n"}}));
  EXPECT_EQ(1, granted({{groups, "0::///a///\n"}, {grants, "1 1\n"}}));
}

// --- Answers -----------------------------------------------------------------------------------------------

TEST(Core, AnswersInFrontOfItsConstructor) {
  int32_t cache = 0;
  qelGetMaxCacheSizeB(&cache);
  EXPECT_LE(1, earlyThreads);  // there is no environment yet
  EXPECT_EQ(earlyCache, cache);
  EXPECT_EQ(earlyFeatures, qelGetEnabledCpuFeatures());
  EXPECT_EQ(-8, qelGetMaxCacheSizeB(nullptr));
}

TEST(Core, CountsTheProcessorsUnlessTheUserAsks) {
  cpu_set_t all;
  ASSERT_EQ(0, sched_getaffinity(0, sizeof all, &all));
  const int32_t quota = qelcore::processorsOfQuotas([](const char* path, char* buffer, size_t size) {
    std::ifstream file(path);
    file.read(buffer, std::streamsize(size));
    return std::string_view(buffer, size_t(file.gcount()));
  });
  EXPECT_EQ(std::to_string(std::min(CPU_COUNT(&all), quota)), fresh("-u OMP_NUM_THREADS", "count"));
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  ASSERT_EQ(0, sched_setaffinity(0, sizeof one, &one));
  EXPECT_EQ("1", fresh("-u OMP_NUM_THREADS", "count"));
  EXPECT_EQ("1", fresh("OMP_NUM_THREADS=none", "count"));
  EXPECT_EQ("3", fresh("OMP_NUM_THREADS=3,2", "count"));
  EXPECT_EQ("1024", fresh("OMP_NUM_THREADS=65536", "count"));
  sched_setaffinity(0, sizeof all, &all);
}

TEST(Core, SettingIsTheThreadsOwn) {
  const int32_t without = ownGetNumThreads();
  EXPECT_EQ(0, qelSetNumThreads(5));
  EXPECT_EQ(5, ownGetNumThreads());
  std::thread([&] {
    EXPECT_EQ(without, ownGetNumThreads());
    EXPECT_EQ(0, qelSetNumThreads(7));
  }).join();
  EXPECT_EQ(5, qelSetNumThreads(100000));
  EXPECT_EQ(1024, ownGetNumThreads());
  EXPECT_EQ(1024, qelSetNumThreads(-3));
  EXPECT_EQ(without, ownGetNumThreads());
  EXPECT_EQ(0, qelSetNumThreads(1));
  EXPECT_EQ(1, qelSetNumThreads(0));
  EXPECT_EQ(without, ownGetNumThreads());
}

TEST(Core, CallsNeitherEnterTheKernelNorAllocate) {
  const std::string printed = fresh("-u OMP_NUM_THREADS", "quiet");
  if (printed == "forbidden") GTEST_SKIP() << "the kernel lets no process forbid itself system calls (seccomp)";
  EXPECT_EQ(": done", printed.substr(std::min(printed.rfind(':'), printed.size()))) << "it ended in: " << printed;
}

// --- fork() ------------------------------------------------------------------------------------------------

bool shiftsRight() {
  constexpr QelSize kSize{300, 200};
  std::vector<uint8_t> src(size_t(kSize.width) * kSize.height);
  std::vector<int16_t> dst(src.size());
  Random().fill(src.data(), src.size());
  bool right = qeliSub128_JPEG_8u16s_C1R(src.data(), kSize.width, dst.data(), 2 * kSize.width, kSize) == qelStatusOk;
  for (size_t i = 0; i < src.size(); ++i) right &= dst[i] == src[i] - 128;
  return right;
}

// Whether `work` is true in a child, and comes to its end.
template <class Work>
bool trueInChild(Work&& work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(work() ? 0 : 1);
  }
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

TEST(CoreFork, ChildOfAParentThatForkedTeamsStaysOnOneThread) {
  qelSetNumThreads(2);
  EXPECT_TRUE(shiftsRight());
  EXPECT_TRUE(trueInChild([] { return ownGetNumThreads() == 1 && shiftsRight(); }));
  // A grandchild too; and the parent goes on as before.
  EXPECT_TRUE(trueInChild([] { return trueInChild([] { return shiftsRight(); }) && shiftsRight(); }));
  EXPECT_EQ(2, ownGetNumThreads());
  EXPECT_TRUE(shiftsRight());
  qelSetNumThreads(0);
}

TEST(CoreFork, ChildMaySetAnotherCount) {
  EXPECT_TRUE(trueInChild([] {
    return qelSetNumThreads(3) == 0 && ownGetNumThreads() == 3 && qelSetNumThreads(0) == 3 && ownGetNumThreads() == 1;
  }));
}

}  // namespace
}  // namespace qelj::test

int main(int argc, char** argv) {
  if (argc == 2 && !std::strcmp(argv[1], "count")) return qelj::test::printCount();
  if (argc == 2 && !std::strcmp(argv[1], "quiet")) return qelj::test::callQuietly();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
