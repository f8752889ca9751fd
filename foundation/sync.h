// Portable synchronisation records: tav_sr2_Mutex, tav_sr2_Cond, tav_sr2_Thread.
//
// Each record is a pool pointer, the platform object (taken from that pool), and a small table of
// function pointers, so that a phone build and a host build differ only in sync.cpp. A record
// that was cleared with its _setEmpty (or never created) answers every call with
// TAV_ERROR_STATE, so a scheduler that has been stopped fails softly instead of touching freed
// memory; so does a record that was only zeroed. Platform failures are TAV_ERROR_BUFFER
// (0xC0000000).
//
// The records are plain data (no constructors), so they can sit in zeroed memory. Shared
// counters elsewhere in the foundation are plain integers touched through the atomic helpers
// below.
#pragma once

#include <pthread.h>
#include <stdint.h>
#include <time.h>

#include <atomic>

#include "foundation/mem_pool.h"
#include "foundation/status.h"

// ---- atomic access to plain fields ----------------------------------------------------------

template <typename T>
inline T tav_sr2_atomicLoad(const T* p) {
    return std::atomic_ref<T>(*const_cast<T*>(p)).load(std::memory_order_acquire);
}
template <typename T>
inline void tav_sr2_atomicStore(T* p, T v) {
    std::atomic_ref<T>(*p).store(v, std::memory_order_release);
}
template <typename T>
inline T tav_sr2_atomicAdd(T* p, T v) {
    return std::atomic_ref<T>(*p).fetch_add(v, std::memory_order_acq_rel);
}
template <typename T>
inline T tav_sr2_atomicOr(T* p, T v) {
    return std::atomic_ref<T>(*p).fetch_or(v, std::memory_order_acq_rel);
}
// Strong compare-and-swap; on failure *expected receives the current value.
template <typename T>
inline bool tav_sr2_atomicCas(T* p, T* expected, T desired) {
    return std::atomic_ref<T>(*p).compare_exchange_strong(*expected, desired,
                                                          std::memory_order_acq_rel);
}

// ---- tav_sr2_Mutex ---------------------------------------------------------------------------

// Kind 0: recursive platform mutex from pool memory. Kind 1: spin lock on the record's own word
// (compare-and-swap 0 -> 1, store 0 to release); it cannot be used with a tav_sr2_Cond.
static const int32_t TAV_SR2_MUTEX_RECURSIVE = 0;
static const int32_t TAV_SR2_MUTEX_SPIN = 1;

struct tav_sr2_Mutex {
    tav_sr2_MemPool* pool;
    union {
        void* impl;     // kind 0: the platform mutex
        uint32_t word;  // kind 1: 0 free, 1 held
    };
    // tryLock gives 0 when it took the lock and TAV_ERROR_BUFFER when another thread holds it.
    uint32_t (*tryLock)(tav_sr2_Mutex* m);
    uint32_t (*lock)(tav_sr2_Mutex* m);
    uint32_t (*unlock)(tav_sr2_Mutex* m);
    // Releases the platform object and leaves the record empty.
    uint32_t (*destroy)(tav_sr2_Mutex* m);
};

void tav_sr2_Mutex_setEmpty(tav_sr2_Mutex* m, tav_sr2_MemPool* pool);
// TAV_ERROR_PARAM for an unknown kind, TAV_ERROR_MALLOC when the pool is full, TAV_ERROR_BUFFER
// when the platform refuses. On failure the record is left empty.
uint32_t tav_sr2_Mutex_create(tav_sr2_Mutex* m, tav_sr2_MemPool* pool, int32_t kind);

// A record that was only zeroed (never set up, or cleared by its owner's _finish) has no
// operations; it answers TAV_ERROR_STATE like an empty one.
inline uint32_t tav_sr2_Mutex_tryLock(tav_sr2_Mutex* m) {
    return m->tryLock != nullptr ? m->tryLock(m) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Mutex_lock(tav_sr2_Mutex* m) {
    return m->lock != nullptr ? m->lock(m) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Mutex_unlock(tav_sr2_Mutex* m) {
    return m->unlock != nullptr ? m->unlock(m) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Mutex_destroy(tav_sr2_Mutex* m) {
    return m->destroy != nullptr ? m->destroy(m) : TAV_ERROR_STATE;
}

// ---- tav_sr2_Cond ----------------------------------------------------------------------------

struct tav_sr2_Cond {
    tav_sr2_MemPool* pool;
    void* impl;            // the platform condition variable
    tav_sr2_Mutex* mutex;  // a kind-0 mutex; waits release and retake it
    uint32_t (*wait)(tav_sr2_Cond* c);
    // Waits at most `ms` milliseconds (measured on CLOCK_REALTIME); TAV_ERROR_TIMEOUT when the
    // time ran out. A wake-up without a signal is possible, as with any condition variable.
    uint32_t (*timedWait)(tav_sr2_Cond* c, int32_t ms);
    uint32_t (*signal)(tav_sr2_Cond* c);
    uint32_t (*broadcast)(tav_sr2_Cond* c);
    uint32_t (*destroy)(tav_sr2_Cond* c);
};

void tav_sr2_Cond_setEmpty(tav_sr2_Cond* c, tav_sr2_MemPool* pool);
// `mutex` must be a created kind-0 mutex (TAV_ERROR_PARAM otherwise).
uint32_t tav_sr2_Cond_create(tav_sr2_Cond* c, tav_sr2_MemPool* pool, tav_sr2_Mutex* mutex);

// The absolute time `ms` milliseconds after `now` (negative counts as 0), with the nanoseconds
// folded into seconds; timedWait uses it on CLOCK_REALTIME.
timespec tav_sr2_Cond_deadline(timespec now, int32_t ms);

inline uint32_t tav_sr2_Cond_wait(tav_sr2_Cond* c) {
    return c->wait != nullptr ? c->wait(c) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Cond_timedWait(tav_sr2_Cond* c, int32_t ms) {
    return c->timedWait != nullptr ? c->timedWait(c, ms) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Cond_signal(tav_sr2_Cond* c) {
    return c->signal != nullptr ? c->signal(c) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Cond_broadcast(tav_sr2_Cond* c) {
    return c->broadcast != nullptr ? c->broadcast(c) : TAV_ERROR_STATE;
}
inline uint32_t tav_sr2_Cond_destroy(tav_sr2_Cond* c) {
    return c->destroy != nullptr ? c->destroy(c) : TAV_ERROR_STATE;
}

// Bytes of platform object per record, as the budget formulas count them.
static const uint32_t TAV_SR2_MUTEX_IMPL_SIZE = 40;
static const uint32_t TAV_SR2_COND_IMPL_SIZE = 48;

// ---- tav_sr2_Thread --------------------------------------------------------------------------

typedef uint32_t (*tav_sr2_ThreadFn)(void* arg);

// A started thread. The record comes from the pool and is given back by `join`.
struct tav_sr2_Thread {
    tav_sr2_MemPool* pool;
    // Waits for the thread, stores its entry's result in *result (when not null) and releases
    // the record. TAV_ERROR_BUFFER if the platform join fails; the record is then kept.
    uint32_t (*join)(tav_sr2_Thread* t, uint32_t* result);
    pthread_t thread;
    uint32_t result;
    tav_sr2_ThreadFn entry;
    void* arg;
};

// Starts entry(arg) on a new thread at the lowest priority of the normal policy, named "TavSR".
// If the platform refuses those attributes, the thread is started with default attributes and
// no name. TAV_ERROR_MALLOC, or TAV_ERROR_BUFFER when both tries fail.
uint32_t tav_sr2_Thread_create(tav_sr2_MemPool* pool, tav_sr2_ThreadFn entry, void* arg,
                               tav_sr2_Thread** out);

inline uint32_t tav_sr2_Thread_join(tav_sr2_Thread* t, uint32_t* result) {
    return t->join(t, result);
}

#ifdef TAVRIN_FAULT_INJECTION
// Test builds only: the next `with_attributes` creations fail their first try, and the next
// `plain` fallback tries fail too.
void tav_sr2_Thread_injectCreateFailure(uint32_t with_attributes, uint32_t plain);
#endif
