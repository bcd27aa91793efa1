// The strips of a picture on their way through the stages of a codec, on several cores.
#ifndef QELCONV_PIPELINE_H
#define QELCONV_PIPELINE_H

#include <omp.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <vector>

#include "format.h"

namespace qelconv {

// Three stages: `first` and `last` take the strips in order, as entropy coders must, `middle` in any order; a
// strip is through with one stage before it comes to the next. All of it takes one fork, and inside the
// library's calls stay on one thread (see parallel.h). On a machine whose cores are taken, handing strips
// over costs more than it brings: one thread then goes on alone.
class Pipeline {
 public:
  explicit Pipeline(int32_t strips) : strips_(strips) {
    // An entropy coder goes one way and takes about half of the time: more threads would only wait.
    constexpr int kMostThreads = 4;
    if (strips > 1 && !omp_in_parallel()) threads_ = std::min(omp_get_max_threads(), kMostThreads);
    // Without other threads the fewest, for the sake of the cache; with them, some to fall back on while one
    // of them has to let other programs pass.
    slots_ = threads_ > 1 ? std::min(4 * threads_, strips + 1) : 2;
  }

  // Buffers between stages: strip i has those of slot i % slots(), until strip i + 1 is through with `last`,
  // which may look back.
  int32_t slots() const { return slots_; }

  // Calls first(i), middle(i) and last(i) for all strips. Behind an exception, which is thrown at the end,
  // nothing more is begun. A stage without a name has no place in the times.
  template <class First, class Middle, class Last>
  void run(Stages& stages, const std::array<const char*, 3>& names, First&& first, Middle&& middle, Last&& last) {
    std::mutex mutex;
    std::condition_variable changed, finished;
    std::exception_ptr failure;
    std::array<int32_t, 3> begun{}, ended{};           // strips, by stage
    std::vector<int32_t> waiting(size_t(slots_), -1);  // for the last stage, by slot
    std::array<double, 3> busy{};

    // A stage that has something to do, or -1. Who leaves the first stage goes on with it.
    const auto next = [&] {
      if (begun[0] == ended[0] && begun[0] < std::min(strips_, ended[2] + slots_ - 1)) return 0;
      if (begun[2] == ended[2] && waiting[size_t(begun[2] % slots_)] == begun[2]) return 2;
      return begun[1] < ended[0] ? 1 : -1;
    };
    int working = 0;
    bool crowded = false;  // a thread has had its core for less than half the time
    const auto work = [&] {
      Share share;
      std::unique_lock lock(mutex);
      ++working;
      const auto over = [&] { return failure || ended[2] == strips_; };
      while (!over()) {
        if (crowded && working > 1) {
          --working;
          return finished.wait(lock, over);
        }
        const int stage = next();
        if (stage < 0) {
          share.pause();
          changed.wait(lock);
          share.resume();
          continue;
        }
        const int32_t strip = begun[size_t(stage)]++;
        lock.unlock();
        const double start = omp_get_wtime();
        std::exception_ptr thrown;
        try {
          stage == 0 ? first(strip) : stage == 1 ? middle(strip) : last(strip);
        } catch (...) {
          thrown = std::current_exception();
        }
        const double seconds = omp_get_wtime() - start;
        lock.lock();
        busy[size_t(stage)] += seconds;
        ++ended[size_t(stage)];
        if (stage == 1) waiting[size_t(strip % slots_)] = strip;
        if (thrown && !failure) failure = thrown;
        crowded |= share.isSmall();
        changed.notify_all();
      }
      finished.notify_all();
    };
    const double start = omp_get_wtime();
#pragma omp parallel num_threads(threads_) if (threads_ > 1)
    work();
    if (failure) std::rethrow_exception(failure);
    stages.share(omp_get_wtime() - start, names, busy);
  }

 private:
  // What a thread has of its core while it isn't waiting.
  class Share {
   public:
    void pause() { waited_ -= omp_get_wtime(); }
    void resume() { waited_ += omp_get_wtime(); }
    bool isSmall() const {
      const double awake = omp_get_wtime() - start_ - waited_;
      return awake > 0.02 && cpu() - cpu_ < awake / 2;
    }

   private:
    static double cpu() {
      timespec time;
      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
      return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
    }
    double start_ = omp_get_wtime(), cpu_ = cpu(), waited_ = 0;
  };

  int32_t strips_, slots_;
  int threads_ = 1;
};

}  // namespace qelconv

#endif
