// Marks in a program's run for who counts its instructions from outside: on AArch64 hints without a meaning, which the
// emulator's plugin of bench/support/count_plugin.c knows.
#ifndef QELJ_TESTS_SUPPORT_MARKS_H
#define QELJ_TESTS_SUPPORT_MARKS_H

namespace qelj::marks {

#if defined(__aarch64__)
inline constexpr bool kThere = true;
// From here on, and no longer from here on.
inline void toggle() { asm volatile("hint #0x7e" : : : "memory"); }
// The plugin prints what it has counted, and begins anew.
inline void print() { asm volatile("hint #0x7f" : : : "memory"); }
#else
inline constexpr bool kThere = false;
inline void toggle() {}
inline void print() {}
#endif

}  // namespace qelj::marks

#endif
