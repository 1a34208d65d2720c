// A plugin of qemu's user-mode emulators that writes the address of every instruction executed
// between calls of markBegin() and markEnd() to the file named by its argument `out`. Debian's
// packages of qemu carry no header for plugins, hence the declarations.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef uint64_t Id;

enum { kPassive };  // a callback that touches no registers

size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* block, size_t i);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn* instruction);
const char* qemu_plugin_insn_symbol(const struct qemu_plugin_insn* instruction);
void qemu_plugin_register_vcpu_tb_trans_cb(Id id, void (*call)(Id, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn* instruction,
                                            void (*call)(unsigned cpu, void* data), int registers,
                                            void* data);
void qemu_plugin_register_atexit_cb(Id id, void (*call)(Id, void*), void* data);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static FILE* out;
static int following;

static void executed(unsigned cpu, void* address) {
  (void)cpu;
  if (following) fwrite(&address, sizeof address, 1, out);
}

static void marked(unsigned cpu, void* begins) {
  (void)cpu;
  following = begins != NULL;
}

static void translated(Id id, struct qemu_plugin_tb* block) {
  (void)id;
  for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
    struct qemu_plugin_insn* const instruction = qemu_plugin_tb_get_insn(block, i);
    const char* const symbol = qemu_plugin_insn_symbol(instruction);
    const int begins = symbol && strcmp(symbol, "markBegin") == 0;
    if (begins || (symbol && strcmp(symbol, "markEnd") == 0)) {
      qemu_plugin_register_vcpu_insn_exec_cb(instruction, marked, kPassive, begins ? &out : NULL);
      continue;
    }
    const uint64_t address = qemu_plugin_insn_vaddr(instruction);
    qemu_plugin_register_vcpu_insn_exec_cb(instruction, executed, kPassive, (void*)address);
  }
}

static void finished(Id id, void* data) {
  (void)id;
  (void)data;
  fclose(out);
}

__attribute__((visibility("default"))) int qemu_plugin_install(Id id, const void* info, int count,
                                                               char** arguments) {
  (void)info;
  if (count != 1 || strncmp(arguments[0], "out=", 4) != 0) return -1;
  out = fopen(arguments[0] + 4, "wb");
  if (!out) return -1;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, finished, NULL);
  return 0;
}
