// A benchmark beside its peer: both run on the same input in the same process, single-threaded, by turns, and
// the program prints the medians and their ratio.
//
//   int main(int argc, char** argv) {
//     pair("RGB to YCbCr, 4096x4096", pixels / 1e6, "MPix/s", [&] { ours(); }, [&] { theirs(); });
//     return runPairs(argc, argv);
//   }
//
// The options are Google Benchmark's (--benchmark_filter=...). --markdown prints the rows of a Markdown
// table.
#ifndef QELJ_BENCH_PAIR_H
#define QELJ_BENCH_PAIR_H

#include <benchmark/benchmark.h>
#include <png.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace qelj::bench {

using Work = std::function<void()>;

struct Row {
  std::string name, unit;
  double units;                           // units of work in one call
  std::map<std::string, double> seconds;  // median CPU seconds of one call, by who
};
inline std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

// `units` is the amount of work in one call, counted in the unit that `unit` divides by a second (MPix for
// MPix/s). `peer` may be empty; `limit` is a memcpy of the same bytes where that is the limit.
inline void pair(const std::string& name, double units, const std::string& unit, Work ours, Work peer = {},
                 Work limit = {}) {
  rows().push_back({name, unit, units, {}});
  const auto add = [&](const char* who, Work work) {
    if (!work) return;
    benchmark::RegisterBenchmark((name + "/" + who).c_str(), [work](benchmark::State& state) {
      for (auto _ : state) work();
    });
  };
  add("qelj", std::move(ours));
  add("peer", std::move(peer));
  add("memcpy", std::move(limit));
}

class PairReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
      const std::string full = run.run_name.function_name;
      const size_t slash = full.rfind('/');
      for (Row& row : rows())
        if (row.name == full.substr(0, slash))
          row.seconds[full.substr(slash + 1)] =
              run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }
};

// Starts Google Benchmark for medians of nine runs, taken by turns, so that a change of the machine's speed
// meets all. False for arguments that it does not know.
inline bool start(std::vector<char*> arguments) {
  for (const char* fixed : {"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                            "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true"})
    arguments.insert(arguments.begin() + 1, const_cast<char*>(fixed));
  int count = int(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  return !benchmark::ReportUnrecognizedArguments(count, arguments.data());
}

inline int runPairs(int argc, char** argv) {
  bool markdown = false;
  std::vector<char*> arguments;
  for (int i = 0; i < argc; ++i)
    if (!std::strcmp(argv[i], "--markdown")) markdown = true;
    else arguments.push_back(argv[i]);
  if (!start(std::move(arguments))) return 1;
  PairReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  if (markdown) std::printf("| what | unit | qelj | peer | ratio | memcpy |\n|---|---|---:|---:|---:|---:|\n");
  else std::printf("%-52s %-9s %9s %9s %7s %9s\n", "", "unit", "qelj", "peer", "ratio", "memcpy");
  for (const Row& row : rows()) {
    if (!row.seconds.contains("qelj")) continue;
    const auto rate = [&](const char* who) {
      char text[32] = "-";
      if (row.seconds.contains(who)) std::snprintf(text, sizeof text, "%.4g", row.units / row.seconds.at(who));
      return std::string(text);
    };
    char ratio[32] = "-";
    if (row.seconds.contains("peer"))
      std::snprintf(ratio, sizeof ratio, "%.2f", row.seconds.at("peer") / row.seconds.at("qelj"));
    std::printf(markdown ? "| %s | %s | %s | %s | %s | %s |\n" : "%-52s %-9s %9s %9s %7s %9s\n", row.name.c_str(),
                row.unit.c_str(), rate("qelj").c_str(), rate("peer").c_str(), ratio, rate("memcpy").c_str());
  }
  return 0;
}

// A photograph of examples/images, such as "raccoon.png", as interleaved RGB.
struct Photo {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
};
inline Photo loadPhoto(const std::string& name) {
  const std::string path = std::string(QELJ_IMAGES) + "/" + name;
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  Photo photo;
  if (png_image_begin_read_from_file(&png, path.c_str())) {
    png.format = PNG_FORMAT_RGB;
    photo = {int(png.width), int(png.height), std::vector<uint8_t>(PNG_IMAGE_SIZE(png))};
    png_image_finish_read(&png, nullptr, photo.rgb.data(), 0, nullptr);
  }
  if (PNG_IMAGE_FAILED(png)) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), png.message);
    std::exit(1);
  }
  return photo;
}

}  // namespace qelj::bench

#endif
