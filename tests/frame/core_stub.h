// The core library that this program supplies in front of libqelcore: it notes calls and fails on request.
#ifndef QELJ_TESTS_CORE_STUB_H
#define QELJ_TESTS_CORE_STUB_H

#include <atomic>
#include <cstdint>

namespace qelj::test {

struct Core {
  std::atomic<int> featureQuestions{0};
  std::atomic<int32_t> threads{2};
  std::atomic<int32_t> requestedBytes{0};  // by the last allocation
  std::atomic<bool> refuseAllocations{false};
};
extern Core core;

}  // namespace qelj::test

#endif
