// tav_sr2_Mutex: kind 0 is a recursive pthread mutex allocated from the pool; kind 1 a spin lock
// on the record's word. tryLock/lock/unlock/destroy give 0, TAV_ERROR_BUFFER when the platform
// refuses (tryLock also when the lock is held elsewhere), TAV_ERROR_STATE on an empty record.
// tav_sr2_Cond: a pthread condition variable tied to a kind-0 mutex. timedWait builds an
// absolute CLOCK_REALTIME deadline and gives TAV_ERROR_TIMEOUT when it passes.
// tav_sr2_Thread: a pthread at the lowest SCHED_OTHER priority named "TavSR", with an unnamed
// default-attribute fallback. Every record comes from the pool given at create and goes back at
// destroy or join.
#include "foundation/sync.h"

#include <errno.h>
#include <sched.h>
#include <string.h>
#include <time.h>

namespace {

uint32_t platformStatus(int rc) {
    return rc == 0 ? TAV_OK : TAV_ERROR_BUFFER;
}

// ---- empty records --------------------------------------------------------------------------

uint32_t emptyMutexOp(tav_sr2_Mutex*) {
    return TAV_ERROR_STATE;
}
uint32_t emptyCondOp(tav_sr2_Cond*) {
    return TAV_ERROR_STATE;
}
uint32_t emptyCondTimedWait(tav_sr2_Cond*, int32_t) {
    return TAV_ERROR_STATE;
}

// ---- kind 0: recursive platform mutex -------------------------------------------------------

pthread_mutex_t* platformMutex(tav_sr2_Mutex* m) {
    return (pthread_mutex_t*)m->impl;
}

uint32_t recursiveTryLock(tav_sr2_Mutex* m) {
    return platformStatus(pthread_mutex_trylock(platformMutex(m)));
}
uint32_t recursiveLock(tav_sr2_Mutex* m) {
    return platformStatus(pthread_mutex_lock(platformMutex(m)));
}
uint32_t recursiveUnlock(tav_sr2_Mutex* m) {
    return platformStatus(pthread_mutex_unlock(platformMutex(m)));
}
uint32_t recursiveDestroy(tav_sr2_Mutex* m) {
    uint32_t status = platformStatus(pthread_mutex_destroy(platformMutex(m)));
    tav_sr2_MemPool_free(m->pool, m->impl);
    tav_sr2_Mutex_setEmpty(m, m->pool);
    return status;
}

uint32_t createRecursive(tav_sr2_Mutex* m) {
    pthread_mutex_t* pm =
        (pthread_mutex_t*)tav_sr2_MemPool_alloc(m->pool, (uint32_t)sizeof(pthread_mutex_t));
    if (pm == nullptr) return TAV_ERROR_MALLOC;
    pthread_mutexattr_t attr;
    int rc = pthread_mutexattr_init(&attr);
    if (rc == 0) {
        rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        if (rc == 0) rc = pthread_mutex_init(pm, &attr);
        pthread_mutexattr_destroy(&attr);
    }
    if (rc != 0) {
        tav_sr2_MemPool_free(m->pool, pm);
        return TAV_ERROR_BUFFER;
    }
    m->impl = pm;
    m->tryLock = recursiveTryLock;
    m->lock = recursiveLock;
    m->unlock = recursiveUnlock;
    m->destroy = recursiveDestroy;
    return TAV_OK;
}

// ---- kind 1: spin lock ----------------------------------------------------------------------

bool spinTake(tav_sr2_Mutex* m) {
    uint32_t expected = 0;
    return tav_sr2_atomicCas(&m->word, &expected, 1u);
}

uint32_t spinTryLock(tav_sr2_Mutex* m) {
    return spinTake(m) ? TAV_OK : TAV_ERROR_BUFFER;
}

uint32_t spinLock(tav_sr2_Mutex* m) {
    while (!spinTake(m)) {
        // Wait for a free word with plain loads, so the cache line is not stolen on each try.
        while (tav_sr2_atomicLoad(&m->word) != 0) {
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#elif defined(__aarch64__)
            __asm__ __volatile__("yield");
#endif
        }
    }
    return TAV_OK;
}

uint32_t spinUnlock(tav_sr2_Mutex* m) {
    std::atomic_ref<uint32_t>(m->word).store(0, std::memory_order_seq_cst);
    return TAV_OK;
}

uint32_t spinDestroy(tav_sr2_Mutex* m) {
    tav_sr2_Mutex_setEmpty(m, m->pool);
    return TAV_OK;
}

// ---- condition ------------------------------------------------------------------------------

pthread_cond_t* platformCond(tav_sr2_Cond* c) {
    return (pthread_cond_t*)c->impl;
}

uint32_t condWait(tav_sr2_Cond* c) {
    return platformStatus(pthread_cond_wait(platformCond(c), platformMutex(c->mutex)));
}

uint32_t condTimedWait(tav_sr2_Cond* c, int32_t ms) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    timespec deadline = tav_sr2_Cond_deadline(now, ms);
    int rc = pthread_cond_timedwait(platformCond(c), platformMutex(c->mutex), &deadline);
    if (rc == ETIMEDOUT) return TAV_ERROR_TIMEOUT;
    return platformStatus(rc);
}

uint32_t condSignal(tav_sr2_Cond* c) {
    return platformStatus(pthread_cond_signal(platformCond(c)));
}
uint32_t condBroadcast(tav_sr2_Cond* c) {
    return platformStatus(pthread_cond_broadcast(platformCond(c)));
}

uint32_t condDestroy(tav_sr2_Cond* c) {
    uint32_t status = platformStatus(pthread_cond_destroy(platformCond(c)));
    tav_sr2_MemPool_free(c->pool, c->impl);
    tav_sr2_Cond_setEmpty(c, c->pool);
    return status;
}

// ---- thread ---------------------------------------------------------------------------------

#ifdef TAVRIN_FAULT_INJECTION
std::atomic<uint32_t> g_attr_failures{0};
std::atomic<uint32_t> g_plain_failures{0};

bool takeInjected(std::atomic<uint32_t>* left) {
    uint32_t n = left->load();
    while (n > 0) {
        if (left->compare_exchange_weak(n, n - 1)) return true;
    }
    return false;
}
#endif

void* threadMain(void* p) {
    tav_sr2_Thread* t = (tav_sr2_Thread*)p;
    t->result = t->entry(t->arg);
    return nullptr;
}

uint32_t threadJoin(tav_sr2_Thread* t, uint32_t* result) {
    if (pthread_join(t->thread, nullptr) != 0) return TAV_ERROR_BUFFER;
    if (result != nullptr) *result = t->result;
    tav_sr2_MemPool_free(t->pool, t);
    return TAV_OK;
}

// The first try: the normal policy at its lowest priority, as background work should be.
int spawnLowPriority(tav_sr2_Thread* t) {
#ifdef TAVRIN_FAULT_INJECTION
    if (takeInjected(&g_attr_failures)) return EAGAIN;
#endif
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc != 0) return rc;
    sched_param param;
    memset(&param, 0, sizeof(param));
    param.sched_priority = sched_get_priority_min(SCHED_OTHER);
    rc = pthread_attr_setschedpolicy(&attr, SCHED_OTHER);
    if (rc == 0) rc = pthread_attr_setschedparam(&attr, &param);
    if (rc == 0) rc = pthread_create(&t->thread, &attr, threadMain, t);
    pthread_attr_destroy(&attr);
    return rc;
}

int spawnPlain(tav_sr2_Thread* t) {
#ifdef TAVRIN_FAULT_INJECTION
    if (takeInjected(&g_plain_failures)) return EAGAIN;
#endif
    return pthread_create(&t->thread, nullptr, threadMain, t);
}

}  // namespace

void tav_sr2_Mutex_setEmpty(tav_sr2_Mutex* m, tav_sr2_MemPool* pool) {
    m->pool = pool;
    m->impl = nullptr;
    m->tryLock = emptyMutexOp;
    m->lock = emptyMutexOp;
    m->unlock = emptyMutexOp;
    m->destroy = emptyMutexOp;
}

uint32_t tav_sr2_Mutex_create(tav_sr2_Mutex* m, tav_sr2_MemPool* pool, int32_t kind) {
    tav_sr2_Mutex_setEmpty(m, pool);
    if (kind == TAV_SR2_MUTEX_RECURSIVE) return createRecursive(m);
    if (kind != TAV_SR2_MUTEX_SPIN) return TAV_ERROR_PARAM;
    m->word = 0;
    m->tryLock = spinTryLock;
    m->lock = spinLock;
    m->unlock = spinUnlock;
    m->destroy = spinDestroy;
    return TAV_OK;
}

timespec tav_sr2_Cond_deadline(timespec now, int32_t ms) {
    if (ms < 0) ms = 0;
    timespec deadline = now;
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += (long)(ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    return deadline;
}

void tav_sr2_Cond_setEmpty(tav_sr2_Cond* c, tav_sr2_MemPool* pool) {
    c->pool = pool;
    c->impl = nullptr;
    c->mutex = nullptr;
    c->wait = emptyCondOp;
    c->timedWait = emptyCondTimedWait;
    c->signal = emptyCondOp;
    c->broadcast = emptyCondOp;
    c->destroy = emptyCondOp;
}

uint32_t tav_sr2_Cond_create(tav_sr2_Cond* c, tav_sr2_MemPool* pool, tav_sr2_Mutex* mutex) {
    tav_sr2_Cond_setEmpty(c, pool);
    if (mutex == nullptr || mutex->lock != recursiveLock) return TAV_ERROR_PARAM;
    pthread_cond_t* pc =
        (pthread_cond_t*)tav_sr2_MemPool_alloc(pool, (uint32_t)sizeof(pthread_cond_t));
    if (pc == nullptr) return TAV_ERROR_MALLOC;
    if (pthread_cond_init(pc, nullptr) != 0) {
        tav_sr2_MemPool_free(pool, pc);
        return TAV_ERROR_BUFFER;
    }
    c->impl = pc;
    c->mutex = mutex;
    c->wait = condWait;
    c->timedWait = condTimedWait;
    c->signal = condSignal;
    c->broadcast = condBroadcast;
    c->destroy = condDestroy;
    return TAV_OK;
}

uint32_t tav_sr2_Thread_create(tav_sr2_MemPool* pool, tav_sr2_ThreadFn entry, void* arg,
                               tav_sr2_Thread** out) {
    *out = nullptr;
    tav_sr2_Thread* t =
        (tav_sr2_Thread*)tav_sr2_MemPool_alloc(pool, (uint32_t)sizeof(tav_sr2_Thread));
    if (t == nullptr) return TAV_ERROR_MALLOC;
    memset((void*)t, 0, sizeof(*t));
    t->pool = pool;
    t->join = threadJoin;
    t->entry = entry;
    t->arg = arg;
    if (spawnLowPriority(t) == 0) {
        pthread_setname_np(t->thread, "TavSR");
    } else if (spawnPlain(t) != 0) {
        tav_sr2_MemPool_free(pool, t);
        return TAV_ERROR_BUFFER;
    }
    *out = t;
    return TAV_OK;
}

#ifdef TAVRIN_FAULT_INJECTION
void tav_sr2_Thread_injectCreateFailure(uint32_t with_attributes, uint32_t plain) {
    g_attr_failures.store(with_attributes);
    g_plain_failures.store(plain);
}
#endif
