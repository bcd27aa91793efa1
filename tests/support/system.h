// What the tests take from the system: libraries by path, memory between inaccessible pages, a report of faults.
#ifndef QELJ_TESTS_SYSTEM_H
#define QELJ_TESTS_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#if defined(_WIN32)
#  include <windows.h>
#elif !defined(__EMSCRIPTEN__)
#  include <dlfcn.h>
#  include <signal.h>
#  include <sys/mman.h>
#  include <unistd.h>
#endif

namespace qelj::test {

#if defined(_WIN32)

inline void* openLibrary(const char* path) { return LoadLibraryA(path); }
inline std::string openFailure() { return "error " + std::to_string(GetLastError()); }
inline void* findSymbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

inline size_t pageSize() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}
inline uint8_t* guardedMemory(size_t bytes) {
  auto* const memory = static_cast<uint8_t*>(VirtualAlloc(nullptr, bytes + 2 * pageSize(), MEM_RESERVE, PAGE_NOACCESS));
  void* const body = memory ? VirtualAlloc(memory + pageSize(), bytes, MEM_COMMIT, PAGE_READWRITE) : nullptr;
  if (!body) throw std::runtime_error("VirtualAlloc");
  return static_cast<uint8_t*>(body);
}

// report(address) for an access to inaccessible memory, then the end of the program.
template <void (*report)(void*)>
inline void onFault() {
  AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS* e) -> LONG {
    const EXCEPTION_RECORD& record = *e->ExceptionRecord;
    if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
    report(reinterpret_cast<void*>(record.ExceptionInformation[1]));
    std::_Exit(1);
  });
}

#elif defined(__EMSCRIPTEN__)

// The one image is a part of the program (comparison.cpp).
inline void* openLibrary(const char* path) { return const_cast<char*>(path); }
inline std::string openFailure() { return {}; }
void* findSymbol(void* library, const char* name);

// No page can be made inaccessible. What lies beside a buffer is watched all the same.
inline size_t pageSize() { return 4096; }
inline uint8_t* guardedMemory(size_t bytes) {
  auto* const memory = static_cast<uint8_t*>(std::aligned_alloc(pageSize(), bytes + 2 * pageSize()));
  if (!memory) throw std::runtime_error("aligned_alloc");
  return memory + pageSize();
}
template <void (*report)(void*)>
inline void onFault() {}

#else

inline void* openLibrary(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
inline std::string openFailure() { return dlerror(); }
inline void* findSymbol(void* library, const char* name) { return dlsym(library, name); }

inline size_t pageSize() { return size_t(sysconf(_SC_PAGESIZE)); }
inline uint8_t* guardedMemory(size_t bytes) {
  const size_t page = pageSize();
  void* const memory = mmap(nullptr, bytes + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  auto* const body = static_cast<uint8_t*>(memory) + page;
  if (memory == MAP_FAILED || mprotect(body, bytes, PROT_READ | PROT_WRITE) != 0) throw std::runtime_error("mmap");
  return body;
}

template <void (*report)(void*)>
inline void onFault() {
  struct sigaction action{};
  action.sa_sigaction = [](int, siginfo_t* info, void*) {
    report(info->si_addr);
    _exit(1);
  };
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

#endif

}  // namespace qelj::test

#endif
