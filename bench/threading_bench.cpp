// What the number of threads brings: wall-clock time of one call, forked as the environment says and on the calling
// thread, from a row of the first size that forks up to a large image. Calls follow one another as a caller's that
// works row by row.
#include <omp.h>

#include <vector>

#include "qelj.h"
#include "support/pair.h"

int main(int argc, char** argv) {
  using namespace qelj::bench;
  const int threads = omp_get_max_threads();
  begin(argc, argv);
  omp_set_num_threads(threads);
  clock(Clock::wall);
  road("RGB to Y, forked, wall-clock time", "us a call", "one thread");
  for (const QelSize size : {QelSize{9000, 1}, {256, 256}, {1024, 768}, {4096, 3072}}) {
    std::vector<uint8_t> rgb(size_t(size.width) * size_t(size.height) * 3, 100), y(rgb.size() / 3);
    const Work luma = [&] { qeliRGBToY_JPEG_8u_C3C1R(rgb.data(), 3 * size.width, y.data(), size.width, size); };
    row(
        std::to_string(size.width) + "x" + std::to_string(size.height), 1,
        [&] {
          const ThreadsUnset unset;
          luma();
        },
        luma);
  }
  return finish();
}
