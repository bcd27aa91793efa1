// Every export as the comparison of images calls it, with numbers drawn from the input: the image at hand and the
// portable one give the same bytes, in buffers beside inaccessible pages.
#include <dlfcn.h>

#include "support/comparison.h"
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

test::Image open(const char* path) {
  void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (!handle) broken(dlerror(), __FILE__, __LINE__);
  return {path, handle};
}

}  // namespace

void run(Input input) {
  test::core().threads = 1;  // forks nothing in each of many small calls
  static const test::Image images[] = {open(QELJ_LIBRARY), open(QELJ_PORTABLE_LIBRARY)};
  const char* name = test::kExports[input.take<uint16_t>() % test::kExports.size()];
  const uint8_t choices = input.take();
  const auto bytes = input.rest();
  std::vector<uint8_t> given[std::size(images)];
  for (size_t i = 0; i < std::size(images); ++i) {
    // Some raise flags on data that the kept digests don't have.
    auto outcome = test::runRound(name, images[i], test::Random(bytes.data(), bytes.size()), choices / 16,
                                  choices % 16 == 15, true);
    if (!outcome.fault.empty()) broken(outcome.fault.c_str(), name, 0);
    given[i] = std::move(outcome.given);
  }
  if (given[0] != given[1]) broken("the images agree", name, 0);
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  for (uint16_t i = 0; i < test::kExports.size(); ++i) all.push_back(Seed().put(i).byte(i));
  return all;
}

}  // namespace qelj::fuzz
