// Tasks of tav_sr2_TaskSys: the slot table, dependencies, events, holds and waits.
//
// add takes a slot under slot_lock (waiting, or helping when the caller is a worker, while the
// table or the dependency nodes are full), links the task behind its unfinished dependencies
// and queues it when none is open. A task id names its slot in the low 14 bits; a slot's id
// moves on when the slot is freed, so an old id never reaches a new task: it simply counts as
// finished. Completion ORs the result into the dependents, queues those that became ready and
// frees the slot when no caller holds the id. wait makes a worker caller help in the worker loop
// and otherwise sleeps on task_done, each sleep bounded by wait_ms; a thread turned away because
// another one works under the same worker index is woken when that index frees, and takes it
// over. result/retain/release give TAV_ERROR_STATE for a stale id.
#include <string.h>

#include "foundation/task_sys_internal.h"

using namespace tav_sr2_task;

namespace {

// Dependency nodes this task needs: one per distinct live, unfinished dependency.
int32_t nodesNeeded(tav_sr2_TaskSys* ts, int32_t dep_count, const uint32_t* deps) {
    int32_t needed = 0;
    for (int32_t k = 0; k < dep_count; ++k) {
        tav_sr2_TaskSlot* d = liveSlot(ts, deps[k]);
        if (d == nullptr || isFinished(d)) continue;
        bool repeated = false;
        for (int32_t j = 0; j < k && !repeated; ++j)
            repeated = deps[j] == deps[k];
        if (!repeated) ++needed;
    }
    return needed;
}

// A free slot, and dependency nodes for every open dependency. slot_lock held.
bool hasRoom(tav_sr2_TaskSys* ts, int32_t dep_count, const uint32_t* deps) {
    return ts->free_slots > 0 && nodesNeeded(ts, dep_count, deps) <= ts->free_dep_count;
}

// With slot_lock held: waits until there may be room. A worker runs one step of the loop
// instead when work is ready. TAV_ERROR_TIMEOUT after wait_ms without any completion.
uint32_t waitForRoom(tav_sr2_TaskSys* ts, int32_t dep_count, const uint32_t* deps) {
    int32_t wi = workerIndexOf(ts);
    if (wi >= 0) {
        tav_sr2_Mutex_unlock(&ts->slot_lock);
        // Only the thread that holds the index may work under it.
        bool did = false, wake = false;
        if (enterIndex(ts, wi)) {
            did = workerStep(ts, wi);
            wake = leaveIndex(ts, wi);
        }
        tav_sr2_Mutex_lock(&ts->slot_lock);
        if (wake) tav_sr2_Cond_broadcast(&ts->task_done);
        // Completions while slot_lock was free broadcast to nobody: look before sleeping.
        if (did || hasRoom(ts, dep_count, deps)) return TAV_OK;
    }
    return tav_sr2_Cond_timedWait(&ts->task_done, ts->active.wait_ms);
}

// Leaves worker index `wi` and, when a thread was turned away from it meanwhile, wakes it so
// that it can take the index over. slot_lock not held.
void leaveAndHandOver(tav_sr2_TaskSys* ts, int32_t wi) {
    if (!leaveIndex(ts, wi)) return;
    tav_sr2_Mutex_lock(&ts->slot_lock);
    tav_sr2_Cond_broadcast(&ts->task_done);
    tav_sr2_Mutex_unlock(&ts->slot_lock);
}

tav_sr2_TaskSlot* takeSlot(tav_sr2_TaskSys* ts) {
    uint32_t id;
    tav_sr2_TaskSlot* s;
    for (;;) {
        id = ts->next_id++;
        if (id == 0) continue;
        s = &ts->slots[id & TAV_SR2_TASK_ID_MASK];
        if ((s->id & TAV_SR2_TASK_ID_MASK) != (id & TAV_SR2_TASK_ID_MASK)) break;  // free
    }
    --ts->free_slots;
    s->next = nullptr;
    s->result = 0;
    s->holds = 0;
    s->pending = 0;
    s->count = 0;
    s->fn = nullptr;
    s->arg = nullptr;
    s->ranges = nullptr;
    tav_sr2_atomicStore(&s->dependents, (tav_sr2_TaskDep*)nullptr);
    s->dependents_tail = nullptr;
    tav_sr2_atomicStore(&s->id, id);
    return s;
}

// slot_lock held. Wakes adders that wait for a slot (completion broadcasts anyway; a release
// frees slots too).
void freeSlot(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* s) {
    tav_sr2_atomicStore(&s->id, s->id + 1);
    if (ts->free_slots++ == 0) tav_sr2_Cond_broadcast(&ts->task_done);
}

// Puts `t` behind each unfinished dependency; a finished one passes its result on at once.
void linkDependencies(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t, int32_t dep_count,
                      const uint32_t* deps) {
    for (int32_t k = 0; k < dep_count; ++k) {
        tav_sr2_TaskSlot* d = liveSlot(ts, deps[k]);
        if (d == nullptr) continue;
        if (isFinished(d)) {
            t->result |= d->result;
            continue;
        }
        if (d->dependents_tail != nullptr && d->dependents_tail->task == t) continue;
        tav_sr2_TaskDep* node = ts->free_deps;
        ts->free_deps = node->next;
        --ts->free_dep_count;
        node->next = nullptr;
        node->task = t;
        if (d->dependents_tail == nullptr) {
            tav_sr2_atomicStore(&d->dependents, node);
        } else {
            d->dependents_tail->next = node;
        }
        d->dependents_tail = node;
        ++t->pending;
    }
}

const int32_t kEventCount = -1;

// The common part of add and addEvent, for a running scheduler.
uint32_t addSlot(tav_sr2_TaskSys* ts, tav_sr2_TaskEntryFn fn, void* arg, int32_t count,
                 int32_t dep_count, const uint32_t* deps, uint32_t* out_id) {
    uint32_t status = tav_sr2_Mutex_lock(&ts->slot_lock);
    if (status != TAV_OK) return status;
    while (!hasRoom(ts, dep_count, deps)) {
        status = waitForRoom(ts, dep_count, deps);
        if (status != TAV_OK && !hasRoom(ts, dep_count, deps)) {
            tav_sr2_Mutex_unlock(&ts->slot_lock);
            return status;
        }
    }
    tav_sr2_TaskSlot* t = takeSlot(ts);
    t->fn = fn;
    t->arg = arg;
    t->count = count;
    linkDependencies(ts, t, dep_count, deps);
    tav_sr2_atomicAdd(&ts->submitted, 1);
    if (out_id != nullptr) {
        *out_id = t->id;
        t->holds = 1;
    }
    if (fn == nullptr) {
        t->next = doneLink();
        tav_sr2_atomicAdd(&ts->started, 1);
    }
    // An event waits for setEvent; anything else runs when its dependencies are done.
    bool ready = t->pending == 0 && count != kEventCount;
    tav_sr2_Mutex_unlock(&ts->slot_lock);
    if (ready) enqueue(ts, t);
    return TAV_OK;
}

uint32_t runDirect(const tav_sr2_TaskType* type, void* arg, int32_t count) {
    tav_sr2_TaskCtx ctx;
    memset(&ctx, 0, sizeof(ctx));
    ctx.count = count;
    if (type->direct.call == nullptr) return TAV_ERROR_PARAM;
    switch (type->kind) {
        case TAV_SR2_TASK_KIND_CALL:
            return type->direct.call(arg, &ctx, arg, count);
        case TAV_SR2_TASK_KIND_ROWS: {
            uint32_t result = 0;
            for (int32_t row = 0; row < count; ++row)
                result |= type->direct.row(arg, row, &ctx);
            return result;
        }
        case TAV_SR2_TASK_KIND_RANGE:
            return type->direct.range(arg, 0, count, &ctx);
        default:
            return TAV_ERROR_PARAM;
    }
}

bool goalMet(tav_sr2_TaskSys* ts, int32_t id_count, const uint32_t* ids) {
    if (id_count > 0) return idsDone(ts, id_count, ids);
    return tav_sr2_atomicLoad(&ts->finished) == tav_sr2_atomicLoad(&ts->submitted);
}

// Runs `body` on the live slot of `id` under slot_lock; TAV_ERROR_STATE for a stale id.
template <typename Body>
uint32_t withSlot(tav_sr2_TaskSys* ts, uint32_t id, Body body) {
    if (ts == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_Mutex_lock(&ts->slot_lock);
    if (status != TAV_OK) return status;
    tav_sr2_TaskSlot* s = liveSlot(ts, id);
    status = s == nullptr ? TAV_ERROR_STATE : body(s);
    tav_sr2_Mutex_unlock(&ts->slot_lock);
    return status;
}

}  // namespace

namespace tav_sr2_task {

void completeLocked(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t) {
    tav_sr2_TaskDep* node = tav_sr2_atomicLoad(&t->dependents);
    while (node != nullptr) {
        tav_sr2_TaskSlot* d = node->task;
        d->result |= t->result;
        if (--d->pending == 0) enqueue(ts, d);
        tav_sr2_TaskDep* next = node->next;
        node->next = ts->free_deps;
        ts->free_deps = node;
        ++ts->free_dep_count;
        node = next;
    }
    tav_sr2_atomicStore(&t->dependents, doneDeps());
    t->dependents_tail = nullptr;
    tav_sr2_atomicAdd(&ts->finished, 1);
    tav_sr2_Cond_broadcast(&ts->task_done);
    if (t->holds == 0) freeSlot(ts, t);
    // Waiters inside the worker loop sleep on work_ready; they must see this too.
    tav_sr2_Mutex_lock(&ts->queue_lock);
    if (ts->loop_waiters > 0) tav_sr2_Cond_broadcast(&ts->work_ready);
    tav_sr2_Mutex_unlock(&ts->queue_lock);
}

void resetTables(tav_sr2_TaskSys* ts) {
    memset((void*)ts->slots, 0, sizeof(ts->slots));
    for (int32_t i = 0; i < TAV_SR2_TASK_SLOTS; ++i)
        ts->slots[i].id = (uint32_t)i + 1;
    ts->free_slots = TAV_SR2_TASK_SLOTS;
    for (int32_t i = 0; i < TAV_SR2_TASK_SLOTS; ++i) {
        ts->deps[i].task = nullptr;
        ts->deps[i].next = i + 1 < TAV_SR2_TASK_SLOTS ? &ts->deps[i + 1] : nullptr;
    }
    ts->free_deps = &ts->deps[0];
    ts->free_dep_count = TAV_SR2_TASK_SLOTS;
    memset((void*)ts->ranges, 0, sizeof(ts->ranges));
    ts->free_range_count = TAV_SR2_TASK_RANGE_PAIRS / ts->active.thread_count;
    for (int32_t b = 0; b < ts->free_range_count; ++b) {
        ts->free_ranges[b] = (int16_t)(ts->free_range_count - 1 - b);
    }
    ts->queue_head = nullptr;
    ts->queue_tail = nullptr;
    memset((void*)&ts->end_marker, 0, sizeof(ts->end_marker));
    ts->submitted = 0;
    ts->started = 0;
    ts->finished = 0;
    if (ts->next_id == 0) ts->next_id = 1;
}

}  // namespace tav_sr2_task

uint32_t tav_sr2_TaskSys_add(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                             int32_t count, int32_t dep_count, const uint32_t* deps,
                             uint32_t* out_id) {
    if (out_id != nullptr) *out_id = 0;
    if (count < 0 || dep_count < 0 || type == nullptr || type->entry == nullptr ||
        (dep_count > 0 && deps == nullptr)) {
        return TAV_ERROR_PARAM;
    }
    if (ts == nullptr) return runDirect(type, arg, count);
    if (!tav_sr2_atomicLoad(&ts->running)) return TAV_OK;
    // A row type with no rows has nothing to run: it finishes as soon as it is reached.
    tav_sr2_TaskEntryFn fn =
        count < 1 && type->kind != TAV_SR2_TASK_KIND_CALL ? nullptr : type->entry;
    return addSlot(ts, fn, arg, count, dep_count, deps, out_id);
}

uint32_t tav_sr2_TaskSys_addOne(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                                int32_t dep_count, const uint32_t* deps, uint32_t* out_id) {
    return tav_sr2_TaskSys_add(ts, type, arg, 0, dep_count, deps, out_id);
}

uint32_t tav_sr2_TaskSys_run(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                             int32_t count) {
    if (type == nullptr || type->entry == nullptr) return TAV_ERROR_PARAM;
    if (count < 1) return TAV_OK;
    if (ts == nullptr) return runDirect(type, arg, count);
    if (!tav_sr2_atomicLoad(&ts->running)) return TAV_OK;
    uint32_t id = 0;
    uint32_t status = tav_sr2_TaskSys_add(ts, type, arg, count, 0, nullptr, &id);
    if (status != TAV_OK || id == 0) return status;
    // Without a hold the slot frees itself on completion; the rows' results go with it.
    tav_sr2_TaskSys_release(ts, id);
    return tav_sr2_TaskSys_wait(ts, 1, &id);
}

uint32_t tav_sr2_TaskSys_wait(tav_sr2_TaskSys* ts, int32_t id_count, const uint32_t* ids) {
    if (ts == nullptr || id_count == 0) return TAV_OK;
    if (id_count > 0 && ids == nullptr) return TAV_ERROR_PARAM;
    if (!tav_sr2_atomicLoad(&ts->running)) return TAV_ERROR_STATE;
    int32_t mode = id_count > 0 ? id_count : -1;
    int32_t wi = workerIndexOf(ts);
    uint32_t status = tav_sr2_Mutex_lock(&ts->slot_lock);
    if (status != TAV_OK) return status;
    bool helping = false;
    while (!goalMet(ts, mode, ids)) {
        // Another thread may be inside under our index; it wakes us when it leaves.
        if (!helping && wi >= 0) helping = enterIndex(ts, wi);
        if (helping) {
            tav_sr2_Mutex_unlock(&ts->slot_lock);
            workerLoop(ts, wi, mode, ids);
            tav_sr2_Mutex_lock(&ts->slot_lock);
            if (goalMet(ts, mode, ids)) break;
        }
        uint32_t waited = tav_sr2_Cond_timedWait(&ts->task_done, ts->active.wait_ms);
        if (waited != TAV_OK) {
            if (!goalMet(ts, mode, ids)) status = waited;
            break;
        }
    }
    tav_sr2_Mutex_unlock(&ts->slot_lock);
    if (helping) leaveAndHandOver(ts, wi);
    return status;
}

uint32_t tav_sr2_TaskSys_result(tav_sr2_TaskSys* ts, uint32_t id, int32_t reserved, uint32_t* out) {
    if (out == nullptr || reserved != 0) return TAV_ERROR_PARAM;
    return withSlot(ts, id, [out](tav_sr2_TaskSlot* s) {
        bool done = isFinished(s);
        *out = done ? s->result : TAV_SR2_TASK_UNFINISHED;
        return done ? TAV_OK : TAV_SR2_TASK_UNFINISHED;
    });
}

uint32_t tav_sr2_TaskSys_retain(tav_sr2_TaskSys* ts, uint32_t id) {
    return withSlot(ts, id, [](tav_sr2_TaskSlot* s) {
        ++s->holds;
        return TAV_OK;
    });
}

uint32_t tav_sr2_TaskSys_release(tav_sr2_TaskSys* ts, uint32_t id) {
    return withSlot(ts, id, [ts](tav_sr2_TaskSlot* s) {
        if (s->holds <= 0) return TAV_ERROR_STATE;
        if (--s->holds == 0 && isFinished(s)) freeSlot(ts, s);
        return TAV_OK;
    });
}

uint32_t tav_sr2_TaskSys_addEvent(tav_sr2_TaskSys* ts, uint32_t* out_id) {
    if (out_id == nullptr || ts == nullptr) return TAV_ERROR_PARAM;
    *out_id = 0;
    if (!tav_sr2_atomicLoad(&ts->running)) return TAV_OK;
    return addSlot(ts, nullptr, nullptr, kEventCount, 0, nullptr, out_id);
}

uint32_t tav_sr2_TaskSys_setEvent(tav_sr2_TaskSys* ts, uint32_t id, uint32_t status) {
    if (status == TAV_SR2_TASK_UNFINISHED) return TAV_ERROR_PARAM;
    return withSlot(ts, id, [ts, status](tav_sr2_TaskSlot* s) {
        if (s->count != kEventCount || isFinished(s)) return TAV_ERROR_STATE;
        s->result = status;
        completeLocked(ts, s);
        return TAV_OK;
    });
}
