// tav_sr2_getProcessorCount: sysconf of the configured processors, at least 1.
// tav_sr2_setAffinity: sched_setaffinity of the calling thread through syscall. The phone masks
// name cores 0..31; here they are intersected with the CPUs this process was allowed at the
// first call, and an empty intersection means all of those CPUs. 0 or 0xC0000000.
#include "foundation/cpu.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

// The CPUs the process may use, taken once before any thread of ours has been moved.
const cpu_set_t& allowedCpus() {
    static const cpu_set_t allowed = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        if (sched_getaffinity(0, sizeof(set), &set) != 0) {
            for (int c = 0; c < CPU_SETSIZE; ++c)
                CPU_SET(c, &set);
        }
        return set;
    }();
    return allowed;
}

#ifdef TAVRIN_FAULT_INJECTION
std::atomic<uint32_t> g_failures_left{0};
std::atomic<uint32_t> g_calls{0};
#endif

}  // namespace

int32_t tav_sr2_getProcessorCount(void) {
    long n = sysconf(_SC_NPROCESSORS_CONF);
    return n < 2 ? 1 : (int32_t)n;
}

uint32_t tav_sr2_setAffinity(uint32_t mask) {
#ifdef TAVRIN_FAULT_INJECTION
    g_calls.fetch_add(1, std::memory_order_relaxed);
    uint32_t left = g_failures_left.load(std::memory_order_relaxed);
    while (left > 0) {
        if (g_failures_left.compare_exchange_weak(left, left - 1)) return TAV_ERROR_BUFFER;
    }
#endif
    const cpu_set_t& allowed = allowedCpus();
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int core = 0; core < 32; ++core) {
        if ((mask >> core) & 1u && CPU_ISSET(core, &allowed)) CPU_SET(core, &set);
    }
    if (CPU_COUNT(&set) == 0) set = allowed;
    if (syscall(SYS_sched_setaffinity, 0, sizeof(set), &set) != 0) return TAV_ERROR_BUFFER;
    return TAV_OK;
}

#ifdef TAVRIN_FAULT_INJECTION
void tav_sr2_setAffinity_injectFailure(uint32_t count) {
    g_calls.store(0);
    g_failures_left.store(count);
}

uint32_t tav_sr2_setAffinity_callCount(void) {
    return g_calls.load();
}
#endif
