// In place of the toolchain's start-up objects, which the libraries are linked without: one that lacks landing pads
// for indirect branches (the C library's _init does, and on AArch64 the compiler's objects too) takes the protection
// from the whole process. Constructors and destructors don't need them, the loader finds those by their arrays. What
// remains is the library's name to the C library, for functions that are registered with it.
extern "C" {
[[gnu::visibility("hidden"), gnu::weak]] void* __dso_handle = &__dso_handle;
}
