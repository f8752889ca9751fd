// The worker loop of tav_sr2_TaskSys.
//
// A worker (a spawned thread, or a thread waiting in tav_sr2_TaskSys_wait) runs under queue_lock
// and releases it only around a task's function. It takes the task at the head of the ready
// queue. A one-shot leaves the queue at once; a ranged task stays at the head until the first
// worker has finished its share, so that every idle worker enters it. The first worker in takes
// a range block (one {begin, end} pair per worker) and the last one out gives it back and
// completes the task. Rows are claimed one at a time with an atomic add on a pair's begin, so
// workers share a pair without further arrangement. With dynamic_split the task starts whole in
// pair 0 and idle workers steal the lower half of the fullest pair under steal_lock.
#include <pthread.h>

#include "foundation/task_sys_internal.h"

namespace tav_sr2_task {
namespace {

int32_t teamSize(const tav_sr2_TaskSys* ts) {
    return ts->active.thread_count;
}

void leaveQueue(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t) {
    ts->queue_head = t->next;
    if (ts->queue_head == nullptr) ts->queue_tail = nullptr;
    t->next = doneLink();
    // Tasks without a function were counted as started when they were added.
    if (t->fn != nullptr) tav_sr2_atomicAdd(&ts->started, 1);
}

bool takeRanges(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t) {
    if (ts->free_range_count == 0) return false;
    int32_t block = ts->free_ranges[--ts->free_range_count];
    t->ranges = &ts->ranges[block * teamSize(ts)];
    spreadRows(t->ranges, teamSize(ts), t->count, ts->active.dynamic_split != 0);
    return true;
}

void giveRanges(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t) {
    int32_t block = (int32_t)(t->ranges - ts->ranges) / teamSize(ts);
    // A worker may be sleeping because no block was free.
    if (ts->free_range_count == 0) tav_sr2_Cond_broadcast(&ts->work_ready);
    ts->free_ranges[ts->free_range_count++] = (int16_t)block;
    t->ranges = nullptr;
}

// Under steal_lock, moves the lower half of the fullest other pair into `own`. False when no
// pair has rows left.
bool stealHalf(tav_sr2_TaskSys* ts, tav_sr2_TaskRange* pairs, int32_t wi, tav_sr2_TaskRange* own,
               bool* stolen) {
    int32_t w = teamSize(ts), victim = -1, most = 0;
    for (int32_t k = 1; k < w; ++k) {
        int32_t v = (wi + k) % w;
        int32_t left = tav_sr2_atomicLoad(&pairs[v].end) - tav_sr2_atomicLoad(&pairs[v].begin);
        if (left > most) {
            most = left;
            victim = v;
        }
    }
    *stolen = false;
    if (victim < 0) return false;
    tav_sr2_Mutex_lock(&ts->steal_lock);
    tav_sr2_TaskRange* vp = &pairs[victim];
    for (int tries = 0; tries < 3; ++tries) {
        int32_t b = tav_sr2_atomicLoad(&vp->begin), e = tav_sr2_atomicLoad(&vp->end);
        if (b >= e) break;
        int32_t mid = (int32_t)(((int64_t)b + e + 1) / 2);
        if (tav_sr2_atomicCas(&vp->begin, &b, mid)) {
            tav_sr2_atomicStore(&own->end, mid);
            tav_sr2_atomicStore(&own->begin, b);
            *stolen = true;
            break;
        }
    }
    tav_sr2_Mutex_unlock(&ts->steal_lock);
    return true;
}

uint32_t runPair(tav_sr2_TaskSlot* t, tav_sr2_TaskCtx* ctx, tav_sr2_TaskRange* pair, uint32_t mask,
                 int32_t* applied) {
    int32_t end = tav_sr2_atomicLoad(&pair->end);
    if (tav_sr2_atomicLoad(&pair->begin) >= end) return 0;
    return t->fn(ctx, t->arg, &pair->begin, end, mask, applied);
}

uint32_t runStealing(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t, tav_sr2_TaskCtx* ctx, uint32_t mask,
                     int32_t* applied) {
    int32_t w = teamSize(ts), wi = ctx->worker_index % w;
    tav_sr2_TaskRange* own = &t->ranges[wi];
    uint32_t result = 0;
    for (;;) {
        result |= runPair(t, ctx, own, mask, applied);
        tav_sr2_atomicStore(&own->begin, t->count);  // eaten: thieves look elsewhere
        bool stolen = false;
        while (!stolen) {
            if (!stealHalf(ts, t->ranges, wi, own, &stolen)) return result;
        }
    }
}

// Every worker first eats its own pair, then helps with the others'.
uint32_t runFixed(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t, tav_sr2_TaskCtx* ctx, uint32_t mask,
                  int32_t* applied) {
    int32_t w = teamSize(ts);
    uint32_t result = 0;
    for (int32_t k = 0; k < w; ++k) {
        result |= runPair(t, ctx, &t->ranges[(ctx->worker_index + k) % w], mask, applied);
    }
    return result;
}

// This worker's share of `t`, with queue_lock released.
uint32_t runShare(tav_sr2_TaskSys* ts, int32_t wi, const WorkerMasks& masks, tav_sr2_TaskSlot* t) {
    uint32_t mask = t->count > 0 ? masks.row_mask : masks.one_mask;
    int32_t applied = mask == 0 || tav_sr2_setAffinity(mask) == TAV_OK ? 1 : 0;
    tav_sr2_TaskCtx ctx = {ts, wi, t->count, tav_sr2_atomicLoad(&t->id)};
    if (t->count <= 0) {
        int32_t counter = 0;
        applied = 1;
        return t->fn(&ctx, t->arg, &counter, 1, mask, &applied);
    }
    if (ts->active.dynamic_split) return runStealing(ts, t, &ctx, mask, &applied);
    return runFixed(ts, t, &ctx, mask, &applied);
}

// Steps 4 to 7 of the loop for the head task; queue_lock held on entry and on return. False
// when the task could not be entered because no range block is free.
bool runTask(tav_sr2_TaskSys* ts, int32_t wi, const WorkerMasks& masks, tav_sr2_TaskSlot* t) {
    bool first = t->pending == 0;
    if (first && t->count > 0 && !takeRanges(ts, t)) return false;
    ++t->pending;
    if (first && t->count <= 0) leaveQueue(ts, t);
    if (t->fn != nullptr) {
        if (t->result == 0) {
            tav_sr2_Mutex_unlock(&ts->queue_lock);
            uint32_t result = runShare(ts, wi, masks, t);
            tav_sr2_Mutex_lock(&ts->queue_lock);
            t->result |= result;
        } else {
            t->result |= TAV_SR2_TASK_CANCELLED;  // a dependency failed: run nothing
        }
    }
    if (ts->queue_head == t) leaveQueue(ts, t);
    if (--t->pending == 0) {
        if (t->ranges != nullptr) giveRanges(ts, t);
        tav_sr2_Mutex_unlock(&ts->queue_lock);
        tav_sr2_Mutex_lock(&ts->slot_lock);
        completeLocked(ts, t);
        tav_sr2_Mutex_unlock(&ts->slot_lock);
        tav_sr2_Mutex_lock(&ts->queue_lock);
    }
    return true;
}

bool goalReached(tav_sr2_TaskSys* ts, int32_t mode, const uint32_t* ids) {
    if (mode > 0) return idsDone(ts, mode, ids);
    if (mode < 0) return tav_sr2_atomicLoad(&ts->submitted) == tav_sr2_atomicLoad(&ts->started);
    return false;
}

// Sleeps until work may be ready. False when the loop should end: a waiter whose wait failed or
// timed out, or whose scheduler is stopping.
bool sleepForWork(tav_sr2_TaskSys* ts, int32_t mode) {
    if (mode == 0) return tav_sr2_Cond_wait(&ts->work_ready) == TAV_OK;
    if (!tav_sr2_atomicLoad(&ts->running)) return false;
    ++ts->loop_waiters;
    uint32_t status = tav_sr2_Cond_timedWait(&ts->work_ready, ts->active.wait_ms);
    --ts->loop_waiters;
    return status == TAV_OK;
}

uint64_t selfId() {
    return (uint64_t)pthread_self();
}

}  // namespace

void spreadRows(tav_sr2_TaskRange* pairs, int32_t w, int32_t count, bool dynamic_split) {
    if (dynamic_split) {
        for (int32_t k = 0; k < w; ++k) {
            tav_sr2_atomicStore(&pairs[k].begin, 0);
            tav_sr2_atomicStore(&pairs[k].end, k == 0 ? count : 0);
        }
        return;
    }
    int32_t q = count / w, r = count % w, acc = 0, begin = 0;
    for (int32_t k = 0; k < w; ++k) {
        int32_t rows = q;
        acc += r;
        if (acc >= w) {
            acc -= w;
            ++rows;
        }
        tav_sr2_atomicStore(&pairs[k].begin, begin);
        tav_sr2_atomicStore(&pairs[k].end, begin + rows);
        begin += rows;
    }
}

bool idsDone(tav_sr2_TaskSys* ts, int32_t count, const uint32_t* ids) {
    for (int32_t k = 0; k < count; ++k) {
        tav_sr2_TaskSlot* s = liveSlot(ts, ids[k]);
        if (s == nullptr || isFinished(s)) continue;
        // Without slot_lock the slot may have been freed and taken by a new task between the
        // two reads; then its id has moved on and the task we wait for is finished.
        if (tav_sr2_atomicLoad(&s->id) == ids[k]) return false;
    }
    return true;
}

WorkerMasks workerMasks(const tav_sr2_TaskSys* ts, int32_t worker_index) {
    const tav_sr2_TaskSysConfig& c = ts->active;
    WorkerMasks m;
    m.one_mask = c.core_mask;
    if (c.pin_workers) {
        m.row_mask = 1u << ts->cores[worker_index & 31];
        return m;
    }
    // Fixed placement: the first four workers run rows on cores 6 and 7, whatever the mask.
    m.row_mask = worker_index <= 3 ? 0xC0u : c.core_mask;
    if (m.row_mask != 0 && c.core_mask == 0) m.one_mask = 0xFFFFFFFFu;
    return m;
}

int32_t workerIndexOf(const tav_sr2_TaskSys* ts) {
    uint64_t self = selfId();
    int32_t lo = 0, hi = ts->spawned;
    while (lo < hi) {
        int32_t mid = (lo + hi) / 2;
        if (ts->thread_ids[mid].thread < self) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    if (lo < ts->spawned && ts->thread_ids[lo].thread == self) {
        return ts->thread_ids[lo].worker_index;
    }
    return ts->active.caller_is_worker ? 0 : -1;
}

bool enterIndex(tav_sr2_TaskSys* ts, int32_t wi) {
    uint64_t self = selfId();
    tav_sr2_Mutex_lock(&ts->queue_lock);
    bool free = ts->nesting[wi] == 0 || ts->nesting_owner[wi] == self;
    if (free) {
        ++ts->nesting[wi];
        ts->nesting_owner[wi] = self;
    } else {
        ++ts->nesting_refused[wi];
    }
    tav_sr2_Mutex_unlock(&ts->queue_lock);
    return free;
}

bool leaveIndex(tav_sr2_TaskSys* ts, int32_t wi) {
    tav_sr2_Mutex_lock(&ts->queue_lock);
    bool wake = --ts->nesting[wi] == 0 && ts->nesting_refused[wi] > 0;
    if (wake) ts->nesting_refused[wi] = 0;
    tav_sr2_Mutex_unlock(&ts->queue_lock);
    return wake;
}

void workerLoop(tav_sr2_TaskSys* ts, int32_t wi, int32_t mode, const uint32_t* ids) {
    WorkerMasks masks = workerMasks(ts, wi);
    tav_sr2_Mutex_lock(&ts->queue_lock);
    for (;;) {
        if (mode != 0 && goalReached(ts, mode, ids)) break;
        tav_sr2_TaskSlot* t = ts->queue_head;
        if (t == &ts->end_marker) break;  // left in place for the other workers
        if (t == nullptr || !runTask(ts, wi, masks, t)) {
            if (!sleepForWork(ts, mode)) break;
        }
    }
    tav_sr2_Mutex_unlock(&ts->queue_lock);
}

bool workerStep(tav_sr2_TaskSys* ts, int32_t wi) {
    WorkerMasks masks = workerMasks(ts, wi);
    tav_sr2_Mutex_lock(&ts->queue_lock);
    tav_sr2_TaskSlot* t = ts->queue_head;
    bool did = t != nullptr && t != &ts->end_marker && runTask(ts, wi, masks, t);
    tav_sr2_Mutex_unlock(&ts->queue_lock);
    return did;
}

void enqueue(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t) {
    tav_sr2_Mutex_lock(&ts->queue_lock);
    t->next = nullptr;
    bool was_empty = ts->queue_head == nullptr;
    if (was_empty) {
        ts->queue_head = t;
    } else {
        ts->queue_tail->next = t;
    }
    ts->queue_tail = t;
    if (was_empty) tav_sr2_Cond_broadcast(&ts->work_ready);
    tav_sr2_Mutex_unlock(&ts->queue_lock);
}

}  // namespace tav_sr2_task
