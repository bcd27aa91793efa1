#include "support/pair.h"

#include <dlfcn.h>
#include <malloc.h>
#include <omp.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <vector>

#include "guard.h"
#include "support/marks.h"

// The programs call the library through thunks of their own, so that another image can take its place between two
// turns. Such a thunk costs what the call of a shared library's function costs anyway.
using Code = void (*)();
constexpr const char* kExports[] = {
#define QELJ_EXPORT(name) #name,
#define QELJ_EXPORT_AS(name, implementation) #name,
#include "frame/exports.def"
#undef QELJ_EXPORT
#undef QELJ_EXPORT_AS
};
extern "C" {
__attribute__((visibility("hidden"))) Code qeljExportTable[std::size(kExports)];
}

namespace qelj::bench {
namespace {

using Image = std::array<Code, std::size(kExports)>;

void use(const Image& image) { std::copy(image.begin(), image.end(), qeljExportTable); }

Image open(const char* path) {
  void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  require(handle != nullptr, path);
  if (!runsHere(dlsym(handle, "qeljGetLibVersion"))) std::exit(1);
  Image image;
  for (size_t i = 0; i < image.size(); ++i) image[i] = reinterpret_cast<Code>(dlsym(handle, kExports[i]));
  return image;
}

struct Road {
  std::string name, unit, peer;
  double goal;
};

struct State {
  const char* program = "";
  std::regex filter;
  bool filtered = false, quick = false, beside = false, counts = false;
  std::FILE* rows = nullptr;
  Image image, other;
  Road road;
  clockid_t clock = CLOCK_THREAD_CPUTIME_ID;
  bool roadPrinted = false;
  double lowest = 0;
  std::string lowestInput;
} s;

double now() {
  timespec t;
  clock_gettime(s.clock, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}
double timed(const Work& work, int calls) {
  const double start = now();
  for (int i = 0; i < calls; ++i) work();
  return (now() - start) / calls;
}
double median(std::vector<double> values) {
  const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The processor's cycles in a second: a chain of additions takes one each.
double frequency() {
  static const double hz = [] {
    constexpr uint64_t kCount = 1000000;
    double best = 1;
    const Work chain = [] {
      uint64_t sum = 0;
      for (uint64_t i = 0; i < kCount; ++i) {
        sum += i;
        asm volatile("" : "+r"(sum));
      }
    };
    for (int turn = 0; turn < 9; ++turn) best = std::min(best, timed(chain, 1));
    return double(kCount) / best;
  }();
  return hz;
}

bool isTime() { return s.road.unit.find(" a ") != std::string::npos; }
double figure(double seconds, double units) {
  if (!isTime()) return units / seconds;
  return seconds / units * (s.road.unit.starts_with("ns ") ? 1e9 : s.road.unit.starts_with("us ") ? 1e6 : frequency());
}

void endRoad() {
  if (!s.lowestInput.empty() && s.road.goal > 0 && !s.beside) {
    // Within 3 % counts as met.
    std::printf("  lowest %.2f of %s, goal %.2f: %s\n", s.lowest, s.lowestInput.c_str(),
                s.road.peer.empty() ? 1.0 : s.road.goal,
                s.lowest >= 0.97 * (s.road.peer.empty() ? 1.0 : s.road.goal) ? "met" : "behind");
  }
  s.lowestInput.clear();
  s.roadPrinted = false;
}

}  // namespace

void begin(int argc, char** argv) {
  const char* slash = std::strrchr(argv[0], '/');
  s.program = slash ? slash + 1 : argv[0];
  if (std::strncmp(s.program, "bench_", 6) == 0) s.program += 6;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  s.image = open("libqelj.so.7");
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--quick") s.quick = true;
    else if (option == "--counts" && marks::kThere) s.counts = true;
    else if (option == "--rows" && i + 1 < argc) s.rows = std::fopen(argv[++i], "a");
    else if (option == "--beside" && i + 1 < argc) s.other = open(argv[++i]), s.beside = true;
    else if (!option.starts_with("--") && !s.filtered) s.filter = std::regex(option), s.filtered = true;
    else {
      std::printf("usage: %s [FILTER] [--quick] [--rows FILE] [--beside IMAGE]\n", argv[0]);
      std::exit(2);
    }
  }
  use(s.image);
  allocate(Buffers::warm);
  qelSetNumThreads(1);
  omp_set_num_threads(1);  // converter and peers: one thread's time is what is measured
}

void road(const std::string& name, const std::string& unit, const std::string& peer, double goal) {
  endRoad();
  s.road = {name, unit, peer, goal};
}

bool wanted(const std::string& input) {
  return !s.filtered || std::regex_search(std::string(s.program) + ": " + s.road.name + ", " + input, s.filter);
}

Seconds measure(const Work& ours, const Work& peer, const Work& limit) {
  const double turnSeconds = s.quick ? 0.001 : 0.004, budget = s.quick ? 0.05 : 0.5;
  const Work* works[] = {&ours, s.beside ? &ours : &peer, &limit};
  int calls[3] = {};
  double total = 0;
  const auto run = [&](int i, int count) {
    if (s.beside && i == 1) use(s.other);
    const double seconds = timed(*works[i], count);
    if (s.beside && i == 1) use(s.image);
    return seconds;
  };
  for (int i = 0; i < 3; ++i) {
    if (!*works[i]) continue;
    run(i, 1);
    const double once = std::max(run(i, 1), 1e-9);
    calls[i] = std::max(1, int(std::ceil(turnSeconds / once)));
    total += once * calls[i];
  }
  const int turns = std::clamp(int(budget / total), 5, s.quick ? 9 : 25);
  std::vector<double> seconds[3], ratios;
  for (int turn = 0; turn < turns; ++turn) {
    for (int i = 0; i < 3; ++i)
      if (calls[i]) seconds[i].push_back(run(i, calls[i]));
    if (calls[1]) ratios.push_back(seconds[1].back() / seconds[0].back());
  }
  const auto at = [&](int i) { return calls[i] ? median(seconds[i]) : 0; };
  return {at(0), at(1), at(2), calls[1] ? median(ratios) : 0};
}

// What each side runs, warm: a line that names the row and one a side, which the emulator's plugin writes.
void countRow(const std::string& input, const Work& ours, const Work& peer) {
  if (!peer) return;
  std::printf("%s: %s, %s\n", s.program, s.road.name.c_str(), input.c_str());
  for (const Work& work : {ours, peer}) {
    work();
    std::fflush(stdout);
    marks::toggle();
    work();
    marks::toggle();
    marks::print();
  }
}

void row(const std::string& input, double units, const Work& ours, const Work& peer, const Work& limit,
         const std::string& note) {
  if (!wanted(input)) return;
  if (s.counts) return countRow(input, ours, peer);
  const Seconds t = measure(ours, peer, limit);
  const double mine = figure(t.ours, units), theirs = t.ratio > 0 ? figure(t.peer, units) : 0;
  double ratio = t.ratio;
  if (ratio == 0 && s.road.goal > 0) ratio = isTime() ? s.road.goal / mine : mine / s.road.goal;

  if (!s.roadPrinted) {
    std::printf("%s: %s [%s]%s%s\n", s.program, s.road.name.c_str(), s.road.unit.c_str(),
                s.beside              ? " beside the other image"
                : s.road.peer.empty() ? ""
                                      : (" beside " + s.road.peer).c_str(),
                !peer && s.road.goal > 0 ? text(", goal %g", s.road.goal).c_str() : "");
    s.roadPrinted = true;
  }
  std::string line = text("  %-44s %9.4g", input.c_str(), mine);
  line += theirs > 0 ? text(" %9.4g", theirs) : "         -";
  line += ratio > 0 ? text("  %6.2f", ratio) : "       -";
  if (limit) line += text("  memcpy %.2f", t.limit / t.ours);
  if (!note.empty()) line += "  " + note;
  std::printf("%s\n", line.c_str());
  if (s.rows) {
    std::fprintf(s.rows, "%s\t%s\t%s\t%s\t%g\t%s\t%.6g\t%.6g\t%.4f\t%.4f\t%s\n", s.program, s.road.name.c_str(),
                 s.road.unit.c_str(), s.road.peer.c_str(), s.road.goal, input.c_str(), mine, theirs, ratio,
                 limit ? t.limit / t.ours : 0, note.c_str());
    std::fflush(s.rows);
  }
  if (ratio > 0 && (s.lowestInput.empty() || ratio < s.lowest)) s.lowest = ratio, s.lowestInput = input;
}

int finish() {
  endRoad();
  if (s.rows) std::fclose(s.rows);
  return 0;
}

ThreadsUnset::ThreadsUnset() { qelSetNumThreads(0); }
ThreadsUnset::~ThreadsUnset() { qelSetNumThreads(1); }

void clock(Clock clock) { s.clock = clock == Clock::wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID; }

void allocate(Buffers buffers) {
  const bool warm = buffers == Buffers::warm;
  mallopt(M_MMAP_THRESHOLD, 128 << 10);
  mallopt(M_MMAP_MAX, warm ? 0 : 1 << 16);
  mallopt(M_TRIM_THRESHOLD, warm ? -1 : 128 << 10);
}

void require(bool good, const std::string& what) {
  if (good) return;
  std::fprintf(stderr, "bench_%s: %s\n", s.program, what.c_str());
  std::exit(1);
}

std::string text(const char* format, ...) {
  char buffer[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  return buffer;
}

}  // namespace qelj::bench
