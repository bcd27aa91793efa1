// The exported entries: each jumps through its own slot of the table and leaves arguments and result alone. It begins
// with a landing pad, which processors ask for that guard indirect branches; 16 bytes hold pad and jump.
#if defined(__x86_64__) && defined(__LP64__) && defined(__ELF__)

#ifdef __CET__
#include <cet.h> // the pad, and the note that it is there
#else
#define _CET_ENDBR
#endif

.macro qelj_thunk name
  .globl \name
  .type \name, @function
  .p2align 4
\name:
  _CET_ENDBR
  jmp *qeljExportTable+slot(%rip)
  .size \name, . - \name
  .set slot, slot + 8
.endm

#elif defined(__aarch64__) && defined(__ELF__)

.macro qelj_thunk name
  .globl \name
  .type \name, %function
  .p2align 4
\name:
#ifdef __ARM_FEATURE_BTI_DEFAULT
  hint 34 // bti c
#endif
  adrp x16, qeljExportTable + slot
  ldr x16, [x16, :lo12:qeljExportTable + slot]
  br x16 // the front's pad admits a branch by way of x16
  .size \name, . - \name
  .set slot, slot + 8
.endm

#ifdef __ARM_FEATURE_BTI_DEFAULT
  .pushsection .note.gnu.property, "a"
  .balign 8
  .long 4, 16, 5 // sizes of the name and of what follows it; NT_GNU_PROPERTY_TYPE_0
  .asciz "GNU"
  .long 0xC0000000, 4, 3, 0 // GNU_PROPERTY_AARCH64_FEATURE_1_AND: BTI and PAC (no return address is stored here)
  .popsection
#endif

#else // the exports are the fronts themselves (frame/fronts.h)
#define QELJ_NO_THUNKS
#endif

#ifndef QELJ_NO_THUNKS
#define QELJ_EXPORT(name) qelj_thunk name
#define QELJ_EXPORT_AS(name, implementation) qelj_thunk name

.text
.set slot, 0
.p2align 4
.cfi_startproc // of all: a jump leaves the frame alone
#include "frame/exports.def"
.cfi_endproc
#endif

#ifdef __ELF__
.section .note.GNU-stack, "", %progbits
#endif
