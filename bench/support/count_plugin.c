/* A plugin of the user-mode emulator (QEMU 6 and later) that counts what an emulated AArch64 program runs between the
 * marks of tests/support/marks.h, and prints each count among what the program prints.
 *
 *   qemu-aarch64 -plugin ./libcount_plugin.so ... PROGRAM
 */
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

/* What is taken of qemu-plugin.h, which Debian has no package of: version 1 of the interface. */
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef struct qemu_info_t qemu_info_t;
typedef void (*TranslatedBlock)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*Executed)(unsigned int cpu, void* data);
enum { kAddU64 = 0, kNoRegisters = 0 };
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, TranslatedBlock call);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* tb, size_t i);
const void* qemu_plugin_insn_data(const struct qemu_plugin_insn* insn);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, int operation, void* to, uint64_t add);
void qemu_plugin_register_vcpu_insn_exec_inline(struct qemu_plugin_insn* insn, int operation, void* to, uint64_t add);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn* insn, Executed call, int flags, void* data);

#define EXPORTED __attribute__((visibility("default")))
EXPORTED int qemu_plugin_version = 1;

static uint64_t all, start, counted;
static bool counts;

static void toggle(unsigned int cpu, void* data) {
  (void)cpu, (void)data;
  if (counts) counted += all - start;
  start = all;
  counts = !counts;
}
static void print(unsigned int cpu, void* data) {
  (void)cpu, (void)data;
  printf("%" PRIu64 "\n", counted);
  fflush(stdout);
  counted = 0;
}

static uint32_t code(const struct qemu_plugin_insn* insn) {
  uint32_t value;
  memcpy(&value, qemu_plugin_insn_data(insn), sizeof value);
  return value;
}
/* Counts a block of instructions at once, and one by one where a mark is among them. */
static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  const uint32_t kToggle = 0xD5032FDF, kPrint = 0xD5032FFF; /* hints 0x7e and 0x7f */
  const size_t n = qemu_plugin_tb_n_insns(tb);
  bool marked = false;
  for (size_t i = 0; i < n; ++i) {
    struct qemu_plugin_insn* const insn = qemu_plugin_tb_get_insn(tb, i);
    const uint32_t what = code(insn);
    if (what != kToggle && what != kPrint) continue;
    qemu_plugin_register_vcpu_insn_exec_cb(insn, what == kToggle ? toggle : print, kNoRegisters, NULL);
    marked = true;
  }
  if (!marked) {
    qemu_plugin_register_vcpu_tb_exec_inline(tb, kAddU64, &all, n);
    return;
  }
  for (size_t i = 0; i < n; ++i)
    qemu_plugin_register_vcpu_insn_exec_inline(qemu_plugin_tb_get_insn(tb, i), kAddU64, &all, 1);
}

EXPORTED int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc, char** argv) {
  (void)info, (void)argc, (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  return 0;
}
