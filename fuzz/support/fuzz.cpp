// The entry points of libFuzzer, and the seeds: <target> --seeds <directory> writes them and ends.
#include "support/fuzz.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace qelj::fuzz {

void broken(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

}  // namespace qelj::fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc == 3 && std::string((*argv)[1]) == "--seeds") {
    const std::filesystem::path directory = (*argv)[2];
    std::filesystem::create_directories(directory);
    int number = 0;
    for (const auto& seed : qelj::fuzz::seeds()) {
      std::ofstream file(directory / ("seed" + std::to_string(number++)), std::ios::binary);
      file.write(reinterpret_cast<const char*>(seed.all().data()), std::streamsize(seed.all().size()));
    }
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qelj::fuzz::run(qelj::fuzz::Input(data, size));
  return 0;
}
