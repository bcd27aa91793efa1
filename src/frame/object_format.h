// What differs between the kinds of object files: how the image's name is kept in one, for qelGetImageName of qelcore.
#ifndef QELJ_FRAME_OBJECT_FORMAT_H
#define QELJ_FRAME_OBJECT_FORMAT_H

#if defined(__ELF__)
// A note, which readelf -n shows.
#  define QELJ_KEEP_IMAGE_NAME(name)              \
    __asm__(                                      \
        ".pushsection .note.qelj, \"a\", %note\n" \
        ".balign 4\n"                             \
        ".long 2f - 1f, 4f - 3f, 1\n"             \
        "1: .asciz \"qelj\"\n"                    \
        "2: .balign 4\n"                          \
        "3: .asciz \"" name                       \
        "\"\n"                                    \
        "4: .balign 4\n"                          \
        ".popsection")
#elif defined(_WIN32)
// A section that holds nothing else.
#  define QELJ_KEEP_IMAGE_NAME(name) __asm__(".section .qelj, \"dr\"\n.asciz \"" name "\"\n.text")
#elif defined(__APPLE__)
#  define QELJ_KEEP_IMAGE_NAME(name) __asm__(".section __TEXT,__qelj\n.asciz \"" name "\"\n.text")
#else
#  define QELJ_KEEP_IMAGE_NAME(name) static_assert(true)
#endif

#endif
