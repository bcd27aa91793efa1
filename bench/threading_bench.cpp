// What the number of threads costs and brings: wall-clock time of one call, on the calling thread and forked,
// from a row of the first size that forks up to a large image. Calls follow one another as a caller's that
// works row by row.
#include "qelcore.h"
#include "qelj.h"
#include "support/pair.h"

namespace {
using namespace qelj::bench;

// RGB to luma, with a setting of the core library: 1 thread, or 0 for what the environment gives.
void luma(benchmark::State& state, QelSize size, int32_t threads) {
  std::vector<uint8_t> rgb(size_t(size.width) * size_t(size.height) * 3, 100), y(rgb.size() / 3);
  qelSetNumThreads(threads);
  for (auto _ : state) qeliRGBToY_JPEG_8u_C3C1R(rgb.data(), 3 * size.width, y.data(), size.width, size);
  qelSetNumThreads(0);
}

}  // namespace

int main(int argc, char** argv) {
  for (const QelSize size : {QelSize{64, 1}, {9000, 1}, {256, 256}, {1024, 768}, {4096, 3072}})
    for (const int32_t threads : {1, 0}) {
      const bool forks = size.width * size.height > 8192;
      const std::string name = std::to_string(size.width) + "x" + std::to_string(size.height) +
                               (threads ? ", one thread"
                                : forks ? ", forked"
                                        : ", below the threshold");
      benchmark::RegisterBenchmark(name.c_str(), luma, size, threads)->UseRealTime();
    }
  if (!start({argv, argv + argc})) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
