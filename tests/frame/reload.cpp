// Loads the library, lets a call fork, and unloads it again, as a program does whose plug-ins come and go:
// reload LIBRARY TIMES. This program is linked to nothing that would keep the library's parts loaded.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qelj.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  constexpr QelSize kSize{300, 200};
  std::vector<uint8_t> src(size_t(kSize.width) * kSize.height, 5);
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!library) return std::fprintf(stderr, "%s\n", dlerror()), 1;
    const auto call =
        reinterpret_cast<decltype(&qeliSub128_JPEG_8u16s_C1R)>(dlsym(library, "qeliSub128_JPEG_8u16s_C1R"));
    std::vector<int16_t> dst(src.size());
    if (!call || call(src.data(), kSize.width, dst.data(), 2 * kSize.width, kSize) != qelStatusOk) return 1;
    for (const int16_t value : dst)
      if (value != 5 - 128) return 1;
    if (dlclose(library)) return 1;
    // Whether a waiting thread meets the hole in time is chance; whether there is one is not.
    if (!dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD)) return std::fprintf(stderr, "unloaded\n"), 1;
  }
  return 0;
}
