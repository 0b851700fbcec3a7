/*
 * Guest instruction counter for qemu user mode, so that the armhf figures are instruction counts
 * of the device's own code rather than of the emulator running it.
 *
 * Each translated block adds its instruction count when it runs, into a counter of the running
 * thread's own: qemu-user runs every guest thread on a host thread of its own, in parallel, and a
 * single shared counter updated inline would lose the increments that race. Blocks are counted
 * whole, so an instruction is counted when it is issued (a condition-failed ARM instruction
 * counts too), as a core's retired-instruction counter does. System calls are counted apart: the
 * kernel's share of a call is not guest code under qemu-user and is in no instruction figure.
 *
 * Arguments: outfile=PATH appends one line per process at its exit (default: qemu's log):
 *   "insns=<n> threads=<n> syscalls=<n> pid=<n>"
 *
 * Build with the native compiler against the qemu-plugin.h of the qemu that loads it:
 *   cc -shared -fPIC -O2 -I<dir of qemu-plugin.h> -o libqemu_insn_count.so qemu_insn_count.c
 * Run: qemu-arm -plugin ./libqemu_insn_count.so,outfile=/tmp/count -L SYSROOT PROGRAM ...
 */
#include <inttypes.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <qemu-plugin.h>

QEMU_PLUGIN_EXPORT int qemu_plugin_version = QEMU_PLUGIN_VERSION;

/* One per guest thread; kept after the thread ends so that its count is still in the total. */
struct counter {
    uint64_t insns;
    uint64_t syscalls;
    struct counter* next;
};

static pthread_mutex_t counters_lock = PTHREAD_MUTEX_INITIALIZER;
static struct counter* counters; /* guarded by counters_lock */
static __thread struct counter* mine;
static const char* outfile;

static struct counter* own_counter(void) {
    if (mine == NULL) {
        mine = calloc(1, sizeof *mine);
        if (mine == NULL) abort();
        pthread_mutex_lock(&counters_lock);
        mine->next = counters;
        counters = mine;
        pthread_mutex_unlock(&counters_lock);
    }
    return mine;
}

static void on_block(unsigned int vcpu_index, void* insns) {
    (void)vcpu_index;
    own_counter()->insns += (uintptr_t)insns;
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(tb, on_block, QEMU_PLUGIN_CB_NO_REGS,
                                         (void*)(uintptr_t)qemu_plugin_tb_n_insns(tb));
}

static void on_syscall(qemu_plugin_id_t id, unsigned int vcpu_index, int64_t number, uint64_t a1,
                       uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7,
                       uint64_t a8) {
    (void)id, (void)vcpu_index, (void)number, (void)a1, (void)a2, (void)a3, (void)a4, (void)a5,
        (void)a6, (void)a7, (void)a8;
    own_counter()->syscalls++;
}

static void report(qemu_plugin_id_t id, void* unused) {
    (void)id, (void)unused;
    uint64_t insns = 0;
    uint64_t syscalls = 0;
    unsigned threads = 0;
    /* Threads still running at the process's exit may add a block or two after this sum: noise. */
    pthread_mutex_lock(&counters_lock);
    for (const struct counter* c = counters; c != NULL; c = c->next, ++threads) {
        insns += c->insns;
        syscalls += c->syscalls;
    }
    pthread_mutex_unlock(&counters_lock);
    char line[160];
    snprintf(line, sizeof line, "insns=%" PRIu64 " threads=%u syscalls=%" PRIu64 " pid=%d\n", insns,
             threads, syscalls, (int)getpid());
    FILE* out = outfile != NULL ? fopen(outfile, "a") : NULL;
    if (out != NULL) {
        fputs(line, out);
        fclose(out);
    } else {
        qemu_plugin_outs(line);
    }
}

QEMU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc,
                                           char** argv) {
    (void)info;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "outfile=", 8) == 0) {
            outfile = argv[i] + 8;
        } else {
            fprintf(stderr, "qemu_insn_count: unknown argument '%s'\n", argv[i]);
            return 1;
        }
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
    qemu_plugin_register_vcpu_syscall_cb(id, on_syscall);
    qemu_plugin_register_atexit_cb(id, report, NULL);
    return 0;
}
