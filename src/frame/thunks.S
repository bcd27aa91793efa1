// The exported entries: each jumps through its own slot of the table and leaves arguments and result alone.
#if defined(__x86_64__)

.macro qelj_thunk name
  .globl \name
  .type \name, @function
  .p2align 3
\name:
  jmp *qeljExportTable+slot(%rip)
  .size \name, . - \name
  .set slot, slot + 8
.endm

#elif defined(__aarch64__)

.macro qelj_thunk name
  .globl \name
  .type \name, %function
  .p2align 2
\name:
  adrp x16, qeljExportTable + slot
  ldr x16, [x16, :lo12:qeljExportTable + slot]
  br x16
  .size \name, . - \name
  .set slot, slot + 8
.endm

#else
#error "frame/thunks.S: write this processor's indirect jump"
#endif

#define QELJ_EXPORT(name) qelj_thunk name
#define QELJ_EXPORT_AS(name, implementation) qelj_thunk name

.text
.set slot, 0
#include "frame/exports.def"

.section .note.GNU-stack, "", %progbits
