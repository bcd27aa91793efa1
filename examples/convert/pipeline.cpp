#include "pipeline.h"

#include <omp.h>
#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>

#include "qelcore.h"

namespace qelconv {
namespace {

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

}  // namespace

Pipeline::Pipeline(int32_t strips) : strips_(strips) {
  // An entropy coder goes one way and takes about half of the time: more threads would only wait.
  constexpr int kMostThreads = 4;
  if (strips > 1 && !omp_in_parallel()) threads_ = std::min(omp_get_max_threads(), kMostThreads);
  // Without other threads the fewest, for the sake of the cache; with them, some to fall back on while one
  // of them has to let other programs pass.
  slots_ = threads_ > 1 ? std::min(2 * threads_ + 2, strips + 1) : 2;
}

void Pipeline::run(Stages& stages, const std::vector<Step>& steps) {
  if (steps.empty()) return;
  const size_t last = steps.size() - 1;
  std::mutex mutex;
  std::condition_variable changed, finished;
  std::exception_ptr failure;  // in the first strip that has one, whichever came first, for a fault to have one message
  int32_t failed = 0;
  std::vector<int32_t> begun(steps.size()), ended(steps.size());  // strips, by stage
  std::vector<size_t> through(static_cast<size_t>(slots_));       // stages behind the strip in each slot
  int32_t out = 0;                                                // strips up to this one are through with all stages
  std::vector<double> busy(steps.size());

  const auto isReady = [&](size_t s) {
    const int32_t strip = begun[s];
    if (strip == strips_ || (steps[s].inOrder && ended[s] != strip)) return false;
    // A strip looks back to the one before it.
    if (s == 0) return strip < out + slots_ - 1;
    return strip < begun[0] && through[size_t(strip % slots_)] == s;
  };
  // A stage that has something to do, or none. What can't be shared comes first; who leaves a stage goes on with it.
  const auto next = [&] {
    for (size_t s = 0; s <= last; ++s)
      if (steps[s].inOrder && isReady(s)) return s;
    for (size_t s = last + 1; s-- > 0;)
      if (isReady(s)) return s;
    return steps.size();
  };
  int working = 0;
  bool crowded = false;  // a thread has had its core for less than half the time
  const auto work = [&] {
    Share share;
    std::unique_lock lock(mutex);
    ++working;
    const auto over = [&] { return failure || out == strips_; };
    while (!over()) {
      if (crowded && working > 1) {
        --working;
        return finished.wait(lock, over);
      }
      const size_t stage = next();
      if (stage > last) {
        share.pause();
        changed.wait(lock);
        share.resume();
        continue;
      }
      const int32_t strip = begun[stage]++;
      if (stage == 0) through[size_t(strip % slots_)] = 0;
      lock.unlock();
      const double start = omp_get_wtime();
      std::exception_ptr thrown;
      try {
        steps[stage].work(strip);
      } catch (...) {
        thrown = std::current_exception();
      }
      const double seconds = omp_get_wtime() - start;
      lock.lock();
      busy[stage] += seconds;
      ++ended[stage];
      through[size_t(strip % slots_)] = stage + 1;
      while (out < begun[0] && through[size_t(out % slots_)] == steps.size()) ++out;
      if (thrown && (!failure || strip < failed)) failure = thrown, failed = strip;
      crowded |= share.isSmall();
      changed.notify_all();
    }
    finished.notify_all();
  };
  const double start = omp_get_wtime();
  // The library forks in no strip, also where there is one thread, and so no region that would keep it from that.
  const int32_t before = qelSetNumThreads(1);
#pragma omp parallel num_threads(threads_) if (threads_ > 1)
  work();
  qelSetNumThreads(before);
  if (failure) std::rethrow_exception(failure);
  std::vector<const char*> names;
  for (const Step& step : steps) names.push_back(step.name);
  stages.share(omp_get_wtime() - start, names, busy);
}

}  // namespace qelconv
