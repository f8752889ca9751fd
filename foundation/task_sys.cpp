// Life cycle of tav_sr2_TaskSys and the two built-in task types.
//
// init clears the record, leaves every lock empty and sets the default configuration. start
// applies the configuration (below 1 thread: the processor count; 17 or more: 16 workers and
// no placement at all), builds the core list from the highest set bit down, resets the tables,
// creates the locks and spawns count - 1 threads when the caller is a worker (count otherwise),
// each at the lowest priority and named "TavSR". It returns when every thread has reported its
// worker index, with the index table sorted for lookup. stop clears `running`, puts the end
// marker at the head of the ready queue, joins the threads and destroys the locks; queued tasks
// are dropped. Locks and threads come from the pool given at init; the task path never
// allocates.
#include <sched.h>
#include <string.h>

#include "foundation/task_sys_internal.h"

using namespace tav_sr2_task;

namespace {

// ---- the built-in types ----------------------------------------------------------------------

uint32_t callEntry(tav_sr2_TaskCtx*, void* arg, int32_t* row_counter, int32_t end_row,
                   uint32_t affinity_mask, int32_t* applied) {
    tav_sr2_TaskCall* call = (tav_sr2_TaskCall*)arg;
    return tav_sr2_TaskRows_run(row_counter, end_row, affinity_mask, applied,
                                [call](int32_t) { return call->fn(call->arg); });
}

uint32_t callDirect(void* arg, tav_sr2_TaskCtx*, void*, int32_t) {
    tav_sr2_TaskCall* call = (tav_sr2_TaskCall*)arg;
    return call->fn(call->arg);
}

uint32_t forEntry(tav_sr2_TaskCtx* ctx, void* arg, int32_t* row_counter, int32_t end_row,
                  uint32_t affinity_mask, int32_t* applied) {
    tav_sr2_TaskFor* f = (tav_sr2_TaskFor*)arg;
    return tav_sr2_TaskRows_run(row_counter, end_row, affinity_mask, applied,
                                [f, ctx](int32_t row) { return f->fn(f->arg, row, ctx->count); });
}

uint32_t forDirect(void* arg, int32_t row, tav_sr2_TaskCtx* ctx) {
    tav_sr2_TaskFor* f = (tav_sr2_TaskFor*)arg;
    return f->fn(f->arg, row, ctx->count);
}

// ---- start and stop ---------------------------------------------------------------------------

void applyLimits(tav_sr2_TaskSysConfig* c) {
    if (c->thread_count < 1) c->thread_count = tav_sr2_getProcessorCount();
    if (c->thread_count > TAV_SR2_TASK_MAX_WORKERS) {
        // More workers than the tables allow: 16, and placement is dropped altogether.
        c->core_mask = 0;
        c->reserved0 = 0;
        c->pin_workers = 0;
        c->thread_count = TAV_SR2_TASK_MAX_WORKERS;
    }
}

// The set cores from bit 31 down, repeated to fill the 32 entries.
void buildCoreList(tav_sr2_TaskSys* ts) {
    uint32_t mask = ts->active.core_mask;
    if (ts->active.pin_workers && mask == 0) mask = (1u << ts->active.thread_count) - 1u;
    memset(ts->cores, 0, sizeof(ts->cores));
    if (mask == 0) return;
    uint8_t list[32];
    int32_t n = 0;
    for (int32_t bit = 31; bit >= 0; --bit) {
        if ((mask >> bit) & 1u) list[n++] = (uint8_t)bit;
    }
    for (int32_t i = 0; i < 32; ++i)
        ts->cores[i] = list[i % n];
}

void destroyLocks(tav_sr2_TaskSys* ts) {
    tav_sr2_Cond_destroy(&ts->work_ready);
    tav_sr2_Cond_destroy(&ts->task_done);
    tav_sr2_Mutex_destroy(&ts->slot_lock);
    tav_sr2_Mutex_destroy(&ts->queue_lock);
    tav_sr2_Mutex_destroy(&ts->steal_lock);
}

uint32_t createLocks(tav_sr2_TaskSys* ts) {
    tav_sr2_Mutex* mutexes[3] = {&ts->slot_lock, &ts->queue_lock, &ts->steal_lock};
    uint32_t status = TAV_OK;
    for (tav_sr2_Mutex* m : mutexes) {
        if (status == TAV_OK) status = tav_sr2_Mutex_create(m, ts->pool, TAV_SR2_MUTEX_RECURSIVE);
    }
    if (status == TAV_OK) status = tav_sr2_Cond_create(&ts->work_ready, ts->pool, &ts->queue_lock);
    if (status == TAV_OK) status = tav_sr2_Cond_create(&ts->task_done, ts->pool, &ts->slot_lock);
    if (status != TAV_OK) destroyLocks(ts);
    return status;
}

uint32_t workerMain(void* arg) {
    tav_sr2_TaskSys* ts = (tav_sr2_TaskSys*)arg;
    int32_t index = tav_sr2_atomicAdd(&ts->thread_counter, 1);
    int32_t entry = index - (ts->active.caller_is_worker ? 1 : 0);
    ts->thread_ids[entry].thread = (uint64_t)pthread_self();
    ts->thread_ids[entry].worker_index = index;
    tav_sr2_atomicAdd(&ts->reported, 1);
    if (ts->active.thread_begin != nullptr) ts->active.thread_begin(ts->active.user, index);
    WorkerMasks masks = workerMasks(ts, index);
    if (masks.row_mask != 0) tav_sr2_setAffinity(masks.row_mask);  // failure is harmless
    enterIndex(ts, index);
    workerLoop(ts, index, 0, nullptr);
    leaveIndex(ts, index);
    if (ts->active.thread_end != nullptr) ts->active.thread_end(ts->active.user, index);
    return TAV_OK;
}

// Puts the end marker at the head of the queue and joins every spawned thread.
void sendWorkersHome(tav_sr2_TaskSys* ts) {
    tav_sr2_Mutex_lock(&ts->queue_lock);
    ts->end_marker.next = ts->queue_head;
    if (ts->queue_head == nullptr) ts->queue_tail = &ts->end_marker;
    ts->queue_head = &ts->end_marker;
    tav_sr2_Cond_broadcast(&ts->work_ready);
    tav_sr2_Mutex_unlock(&ts->queue_lock);
    for (int32_t i = 0; i < ts->spawned; ++i) {
        tav_sr2_Thread_join(ts->threads[i], nullptr);
        ts->threads[i] = nullptr;
    }
    ts->spawned = 0;
}

void sortThreadIds(tav_sr2_TaskSys* ts) {
    for (int32_t i = 1; i < ts->spawned; ++i) {
        tav_sr2_TaskThreadId key = ts->thread_ids[i];
        int32_t j = i - 1;
        while (j >= 0 && ts->thread_ids[j].thread > key.thread) {
            ts->thread_ids[j + 1] = ts->thread_ids[j];
            --j;
        }
        ts->thread_ids[j + 1] = key;
    }
}

uint32_t spawnWorkers(tav_sr2_TaskSys* ts) {
    int32_t want = ts->active.thread_count - (ts->active.caller_is_worker ? 1 : 0);
    ts->thread_counter = ts->active.caller_is_worker ? 1 : 0;
    ts->reported = 0;
    ts->spawned = 0;
    for (int32_t i = 0; i < want; ++i) {
        uint32_t status = tav_sr2_Thread_create(ts->pool, workerMain, ts, &ts->threads[i]);
        if (status != TAV_OK) {
            sendWorkersHome(ts);
            return status;
        }
        ts->spawned = i + 1;
    }
    while (tav_sr2_atomicLoad(&ts->reported) < want)
        sched_yield();
    sortThreadIds(ts);
    return TAV_OK;
}

uint32_t poolBlock(uint32_t bytes) {
    return ((bytes + 8 < 24 ? 24 : bytes + 8) + 15) & ~15u;
}

}  // namespace

const tav_sr2_TaskType tav_sr2_TaskType_call = {
    callEntry, {.call = callDirect}, TAV_SR2_TASK_KIND_CALL};
const tav_sr2_TaskType tav_sr2_TaskType_for = {
    forEntry, {.row = forDirect}, TAV_SR2_TASK_KIND_ROWS};

void tav_sr2_TaskSys_setDefaultConfig(tav_sr2_TaskSysConfig* config) {
    memset((void*)config, 0, sizeof(*config));
    config->thread_count = 0;
    config->core_mask = 0;
    config->caller_is_worker = 1;
    config->pin_workers = 0;
    config->dynamic_split = 0;
    config->wait_ms = 3000;
}

void tav_sr2_TaskSys_init(tav_sr2_TaskSys* ts, tav_sr2_MemPool* pool) {
    memset((void*)ts, 0, sizeof(*ts));
    ts->pool = pool;
    ts->next_id = 1;
    tav_sr2_Mutex_setEmpty(&ts->slot_lock, pool);
    tav_sr2_Mutex_setEmpty(&ts->queue_lock, pool);
    tav_sr2_Mutex_setEmpty(&ts->steal_lock, pool);
    tav_sr2_Cond_setEmpty(&ts->work_ready, pool);
    tav_sr2_Cond_setEmpty(&ts->task_done, pool);
    tav_sr2_TaskSys_setDefaultConfig(&ts->config);
    ts->active = ts->config;
    ts->active.thread_count = 1;
}

uint32_t tav_sr2_TaskSys_start(tav_sr2_TaskSys* ts) {
    if (ts == nullptr) return TAV_ERROR_PARAM;
    if (tav_sr2_atomicLoad(&ts->running)) tav_sr2_TaskSys_stop(ts);
    ts->active = ts->config;
    applyLimits(&ts->active);
    buildCoreList(ts);
    resetTables(ts);
    memset(ts->nesting, 0, sizeof(ts->nesting));
    memset(ts->nesting_owner, 0, sizeof(ts->nesting_owner));
    memset(ts->nesting_refused, 0, sizeof(ts->nesting_refused));
    ts->loop_waiters = 0;
    uint32_t status = createLocks(ts);
    if (status == TAV_OK) {
        status = spawnWorkers(ts);
        if (status != TAV_OK) destroyLocks(ts);
    }
    if (status != TAV_OK) return status;
    tav_sr2_atomicStore(&ts->running, 1);
    return TAV_OK;
}

uint32_t tav_sr2_TaskSys_stop(tav_sr2_TaskSys* ts) {
    if (ts == nullptr) return TAV_ERROR_PARAM;
    if (!tav_sr2_atomicLoad(&ts->running)) return TAV_OK;
    tav_sr2_atomicStore(&ts->running, 0);
    sendWorkersHome(ts);
    destroyLocks(ts);
    return TAV_OK;
}

uint32_t tav_sr2_TaskSys_finish(tav_sr2_TaskSys* ts) {
    if (ts == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = tav_sr2_TaskSys_stop(ts);
    memset((void*)ts, 0, sizeof(*ts));
    return status;
}

void tav_sr2_TaskSys_getConfig(const tav_sr2_TaskSys* ts, tav_sr2_TaskSysConfig* config) {
    if (ts != nullptr && tav_sr2_atomicLoad(&ts->running)) {
        *config = ts->active;
        return;
    }
    tav_sr2_TaskSys_setDefaultConfig(config);
    config->thread_count = 1;
}

int32_t tav_sr2_TaskSys_threadCount(const tav_sr2_TaskSys* ts) {
    if (ts == nullptr || !tav_sr2_atomicLoad(&ts->running)) return 1;
    return ts->active.thread_count;
}

uint32_t tav_sr2_TaskSys_requiredSize(void) {
    return (uint32_t)(TAV_SR2_TASK_MAX_WORKERS - 1) * poolBlock(sizeof(tav_sr2_Thread)) +
           3 * poolBlock(sizeof(pthread_mutex_t)) + 2 * poolBlock(sizeof(pthread_cond_t));
}
