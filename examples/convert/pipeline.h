// The strips of a picture on their way through the stages of codecs, on several cores.
#ifndef QELCONV_PIPELINE_H
#define QELCONV_PIPELINE_H

#include <cstdint>
#include <functional>
#include <vector>

#include "format.h"

namespace qelconv {

// A stage: takes strips in order, one at a time, as entropy coders must, or in any order, several at once.
struct Step {
  const char* name;  // null: has no place in the times
  bool inOrder;
  std::function<void(int32_t strip)> work;
};

// A strip is through with one stage before it comes to the next. All of it takes one fork, and inside the library's
// calls stay on one thread (see parallel.h). On a machine whose cores are taken, handing strips over costs more than it
// brings: one thread then goes on alone.
class Pipeline {
 public:
  explicit Pipeline(int32_t strips);

  // Buffers between stages: strip i has those of slot i % slots(), until strip i + 1 is through with the last stage,
  // which may look back.
  int32_t slots() const { return slots_; }

  // Takes all strips through all stages. Behind an exception, which is thrown at the end, nothing more is begun.
  void run(Stages& stages, const std::vector<Step>& steps);

 private:
  int32_t strips_, slots_;
  int threads_ = 1;
};

}  // namespace qelconv

#endif
