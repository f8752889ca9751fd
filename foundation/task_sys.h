// tav_sr2_TaskSys: the row scheduler every CPU stage runs on.
//
// A fixed team of workers (the thread that waits is worker 0, up to 15 more threads named
// "TavSR") eats tasks from a FIFO ready queue. A task is either a one-shot call or a ranged task
// of `count` rows that the whole team shares: a ranged task stays at the head of the queue until
// the first worker has finished its share, so every idle worker joins it. Tasks may depend on
// other tasks; a task whose dependency failed is skipped and gets TAV_SR2_TASK_CANCELLED.
// Everything on the task path is a fixed table inside the record (16384 task slots, 16384
// dependency nodes, 256 row ranges), so adding and running tasks never allocates; only start
// takes the threads and the platform locks from the pool given at init.
//
// ---- The kernel entry contract -------------------------------------------------------------
//
// A kernel is a tav_sr2_TaskType: `entry` runs on a worker, `direct` runs when there is no
// scheduler (null record). A worker calls
//
//     result = entry(ctx, arg, row_counter, end_row, affinity_mask, &applied)
//
// possibly several times per task and from several workers at once, all sharing one counter.
// The entry must:
//   1. While `applied` is 0: claim a row with a relaxed atomic add of 1 on *row_counter. A row
//      at or past end_row ends the call: set `applied` to 0 and return. Otherwise, with a
//      nonzero affinity_mask call tav_sr2_setAffinity(affinity_mask) and count it as applied if
//      that gave 0 (a zero mask counts as applied). Run the row and OR its result in. Once
//      applied, leave this loop.
//   2. Set `applied` to 1, then claim rows the same way and run them until end_row is reached,
//      with no further affinity calls.
//   3. Return the OR of the row results (0 or TAV_ERROR_* bits).
// tav_sr2_TaskRows_run below implements exactly this loop; a kernel only supplies its row body.
// Rows are 0..count-1 and mean what the kernel wants (an image row, a band, a plane). Rows of
// one task run concurrently on different workers and in no particular order, so a row must only
// write its own output. A row body that itself waits for tasks (tav_sr2_TaskSys_run inside a
// row) may meet further rows of its own task on the same thread, so it must not keep per-worker
// scratch across that call. ctx->worker_index (0..thread_count-1) is stable for the duration of
// one entry call and may index per-worker scratch otherwise.
//
// Row results travel into the task's `result` and on to its dependents, but
// tav_sr2_TaskSys_run returns only the scheduling status: a row kernel that must report a
// failure to its caller keeps it in its argument block (for instance with tav_sr2_atomicOr).
//
// ---- Typical use ---------------------------------------------------------------------------
//
//     static uint32_t blurRow(void* arg, int32_t row, tav_sr2_TaskCtx* ctx) { ... }
//     static const tav_sr2_TaskType kBlurRows = tav_sr2_rowTaskType<blurRow>();
//     status = tav_sr2_TaskSys_run(ts, &kBlurRows, &args, rows);
//
// Lock order: slot_lock, then queue_lock; steal_lock is a leaf.
#pragma once

#include <stdint.h>

#include "foundation/cpu.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/sync.h"

// A task that was skipped because a dependency failed (or a job posted to a stopping pool).
static const uint32_t TAV_SR2_TASK_CANCELLED = 0x20000u;
// tav_sr2_TaskSys_result of a task that has not finished yet.
static const uint32_t TAV_SR2_TASK_UNFINISHED = 0x10000u;

static const int32_t TAV_SR2_TASK_SLOTS = 16384;
static const uint32_t TAV_SR2_TASK_ID_MASK = 0x3FFF;  // low 14 bits of an id: its slot
static const int32_t TAV_SR2_TASK_RANGE_PAIRS = 256;
static const int32_t TAV_SR2_TASK_MAX_WORKERS = 16;

struct tav_sr2_TaskSys;

// Built by each worker on its stack for one call of `entry`; in direct mode cleared but for
// `count`.
struct tav_sr2_TaskCtx {
    tav_sr2_TaskSys* sys;
    int32_t worker_index;
    int32_t count;  // rows of the task
    uint32_t task_id;
};

typedef uint32_t (*tav_sr2_TaskEntryFn)(tav_sr2_TaskCtx* ctx, void* arg, int32_t* row_counter,
                                        int32_t end_row, uint32_t affinity_mask, int32_t* applied);
// Direct forms, by kind.
typedef uint32_t (*tav_sr2_TaskDirectCallFn)(void* arg, tav_sr2_TaskCtx* ctx, void* arg_again,
                                             int32_t count);
typedef uint32_t (*tav_sr2_TaskDirectRowFn)(void* arg, int32_t row, tav_sr2_TaskCtx* ctx);
typedef uint32_t (*tav_sr2_TaskDirectRangeFn)(void* arg, int32_t begin, int32_t end,
                                              tav_sr2_TaskCtx* ctx);

// How `direct` is called when there is no scheduler.
static const uint64_t TAV_SR2_TASK_KIND_CALL = 0;   // once: direct(arg, ctx, arg, count)
static const uint64_t TAV_SR2_TASK_KIND_ROWS = 1;   // per row: direct(arg, row, ctx), ORed
static const uint64_t TAV_SR2_TASK_KIND_RANGE = 2;  // once: direct(arg, 0, count, ctx)

// A static table entry, one per row kernel or task kind. `entry` must not be null.
struct tav_sr2_TaskType {
    tav_sr2_TaskEntryFn entry;
    union {
        tav_sr2_TaskDirectCallFn call;
        tav_sr2_TaskDirectRowFn row;
        tav_sr2_TaskDirectRangeFn range;
    } direct;
    uint64_t kind;
};

// The closures of the two built-in types. tav_sr2_TaskType_call runs fn(arg) once per row
// (once for a one-shot); tav_sr2_TaskType_for runs fn(arg, row, count) for each row.
struct tav_sr2_TaskCall {
    uint32_t (*fn)(void* arg);
    void* arg;
};
struct tav_sr2_TaskFor {
    uint32_t (*fn)(void* arg, int32_t row, int32_t count);
    void* arg;
};
extern const tav_sr2_TaskType tav_sr2_TaskType_call;  // kind 0, argument a tav_sr2_TaskCall*
extern const tav_sr2_TaskType tav_sr2_TaskType_for;   // kind 1, argument a tav_sr2_TaskFor*

// The contract loop of an entry (see the top of this file); row(r) runs one row.
template <typename RowFn>
inline uint32_t tav_sr2_TaskRows_run(int32_t* row_counter, int32_t end_row, uint32_t affinity_mask,
                                     int32_t* applied, RowFn&& row) {
    uint32_t result = 0;
    if (*applied == 0) {
        for (;;) {
            int32_t r =
                std::atomic_ref<int32_t>(*row_counter).fetch_add(1, std::memory_order_relaxed);
            if (r >= end_row) {
                *applied = 0;
                return result;
            }
            bool placed = affinity_mask == 0 || tav_sr2_setAffinity(affinity_mask) == TAV_OK;
            result |= row(r);
            if (placed) break;
        }
    }
    *applied = 1;
    for (;;) {
        int32_t r = std::atomic_ref<int32_t>(*row_counter).fetch_add(1, std::memory_order_relaxed);
        if (r >= end_row) break;
        result |= row(r);
    }
    return result;
}

// A kind-1 type made from a row function: `entry` is the contract loop around Row and `direct`
// is Row itself.
template <uint32_t (*Row)(void* arg, int32_t row, tav_sr2_TaskCtx* ctx)>
uint32_t tav_sr2_rowTaskEntry(tav_sr2_TaskCtx* ctx, void* arg, int32_t* row_counter,
                              int32_t end_row, uint32_t affinity_mask, int32_t* applied) {
    return tav_sr2_TaskRows_run(row_counter, end_row, affinity_mask, applied,
                                [&](int32_t r) { return Row(arg, r, ctx); });
}
template <uint32_t (*Row)(void* arg, int32_t row, tav_sr2_TaskCtx* ctx)>
constexpr tav_sr2_TaskType tav_sr2_rowTaskType() {
    tav_sr2_TaskType type{};
    type.entry = tav_sr2_rowTaskEntry<Row>;
    type.direct.row = Row;
    type.kind = TAV_SR2_TASK_KIND_ROWS;
    return type;
}

// ---- configuration ---------------------------------------------------------------------------

struct tav_sr2_TaskSysConfig {
    int32_t thread_count;      // workers, the calling thread included; < 1: processor count
    uint32_t core_mask;        // allowed cores; 0: no restriction
    int32_t reserved0;         // not read
    int32_t caller_is_worker;  // the thread that waits is worker 0 and helps
    int32_t pin_workers;       // each worker bound to one core of the core list
    int32_t dynamic_split;     // ranged tasks start whole in range 0, workers steal halves
    int32_t wait_ms;           // bound of each timed wait
    void* user;                // passed to the hooks
    void (*thread_begin)(void* user, int32_t worker_index);  // on each spawned worker
    void (*thread_end)(void* user, int32_t worker_index);
};

// ---- records ---------------------------------------------------------------------------------

struct tav_sr2_TaskDep;

// Sentinel of `next` (left the queue for good) and of `dependents` (finished).
#define TAV_SR2_TASK_DONE_LINK ((void*)(uintptr_t)1)

struct tav_sr2_TaskSlot {
    tav_sr2_TaskSlot* next;  // ready-queue link; TAV_SR2_TASK_DONE_LINK once out for good
    uint32_t id;             // atomic; low 14 bits equal the slot index while in use
    uint32_t result;         // OR of row results and of the dependencies' results
    int32_t holds;           // references of callers that took the id
    int32_t pending;         // before running: open dependencies; while running: workers in
    int32_t count;           // rows; 0 for a one-shot, -1 for an event
    tav_sr2_TaskEntryFn fn;  // null for an event or an empty ranged task
    void* arg;
    struct tav_sr2_TaskRange* ranges;  // the range block while running
    tav_sr2_TaskDep* dependents;       // atomic; TAV_SR2_TASK_DONE_LINK when finished
    tav_sr2_TaskDep* dependents_tail;
};

struct tav_sr2_TaskDep {
    tav_sr2_TaskDep* next;
    tav_sr2_TaskSlot* task;
};

// One worker's rows of a running task: begin is the shared row counter.
struct tav_sr2_TaskRange {
    int32_t begin;  // atomic
    int32_t end;    // atomic
};

struct tav_sr2_TaskThreadId {
    uint64_t thread;  // pthread_self of a spawned worker
    int32_t worker_index;
    int32_t pad;
};

struct tav_sr2_TaskSys {
    tav_sr2_MemPool* pool;
    tav_sr2_TaskSysConfig config;  // as the caller set it; read by start
    int32_t running;               // atomic
    tav_sr2_TaskSysConfig active;  // as start applied it

    tav_sr2_TaskSlot slots[TAV_SR2_TASK_SLOTS];
    int32_t free_slots;
    uint32_t next_id;
    int32_t submitted;  // atomic counters of tasks
    int32_t started;
    int32_t finished;

    tav_sr2_TaskSlot* queue_head;  // ready queue, guarded by queue_lock
    tav_sr2_TaskSlot* queue_tail;
    tav_sr2_TaskSlot end_marker;  // put at the head by stop

    tav_sr2_TaskDep deps[TAV_SR2_TASK_SLOTS];
    tav_sr2_TaskDep* free_deps;
    int32_t free_dep_count;

    tav_sr2_TaskRange ranges[TAV_SR2_TASK_RANGE_PAIRS];
    int16_t free_ranges[TAV_SR2_TASK_RANGE_PAIRS];  // stack of free block numbers
    int32_t free_range_count;

    uint8_t cores[32];  // core list, highest core first, repeated

    tav_sr2_Thread* threads[TAV_SR2_TASK_MAX_WORKERS];
    int32_t spawned;
    tav_sr2_TaskThreadId thread_ids[TAV_SR2_TASK_MAX_WORKERS];  // sorted by thread
    int32_t thread_counter;                                     // atomic: next worker index
    int32_t reported;  // atomic: spawned threads that are up

    // Per worker index, guarded by queue_lock: how deep the owner thread is in the loop, and
    // how many other threads were turned away since (they must hear when the index frees).
    int32_t nesting[TAV_SR2_TASK_MAX_WORKERS];
    uint64_t nesting_owner[TAV_SR2_TASK_MAX_WORKERS];
    int32_t nesting_refused[TAV_SR2_TASK_MAX_WORKERS];
    int32_t loop_waiters;  // waiters sleeping on work_ready, guarded by queue_lock

    tav_sr2_Mutex slot_lock;   // slot table and dependencies
    tav_sr2_Mutex queue_lock;  // ready queue and the worker loop
    tav_sr2_Mutex steal_lock;  // splitting of ranges
    tav_sr2_Cond work_ready;   // on queue_lock
    tav_sr2_Cond task_done;    // on slot_lock
};

// ---- operations ------------------------------------------------------------------------------

// Clears the record, leaves its locks empty and sets the default configuration. The record is
// about 1.4 MB; it may live in zeroed memory of any origin.
void tav_sr2_TaskSys_init(tav_sr2_TaskSys* ts, tav_sr2_MemPool* pool);
void tav_sr2_TaskSys_setDefaultConfig(tav_sr2_TaskSysConfig* config);
// Applies ts->config and starts the threads (stopping first when running). TAV_ERROR_MALLOC or
// TAV_ERROR_BUFFER when the locks or threads cannot be made; nothing is left running then.
uint32_t tav_sr2_TaskSys_start(tav_sr2_TaskSys* ts);
// Sends the workers home and joins them; queued tasks are dropped. The record can start again.
uint32_t tav_sr2_TaskSys_stop(tav_sr2_TaskSys* ts);
uint32_t tav_sr2_TaskSys_finish(tav_sr2_TaskSys* ts);
// The running configuration, or the defaults with thread_count 1 when not running (or null).
void tav_sr2_TaskSys_getConfig(const tav_sr2_TaskSys* ts, tav_sr2_TaskSysConfig* config);
// Workers of the running scheduler, the caller included; 1 when there is none.
int32_t tav_sr2_TaskSys_threadCount(const tav_sr2_TaskSys* ts);
// Pool bytes that start takes at most (threads and locks), block overhead included.
uint32_t tav_sr2_TaskSys_requiredSize(void);

// Adds a row task and waits for it. With a null scheduler runs `direct` on the caller and
// returns its result. Otherwise returns the scheduling status only (0, TAV_ERROR_TIMEOUT, ...);
// a count below 1 or a stopped scheduler runs nothing and returns 0.
uint32_t tav_sr2_TaskSys_run(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                             int32_t count);
// Adds a task of `count` rows (0: one-shot) that starts when all `deps` have finished. With
// `out_id` the caller holds the id and must release it. TAV_ERROR_PARAM for a negative count or
// dependency number, a missing entry or dependency list; TAV_ERROR_TIMEOUT when no slot became
// free within wait_ms. A stopped scheduler returns 0 and *out_id 0.
uint32_t tav_sr2_TaskSys_add(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                             int32_t count, int32_t dep_count, const uint32_t* deps,
                             uint32_t* out_id);
uint32_t tav_sr2_TaskSys_addOne(tav_sr2_TaskSys* ts, const tav_sr2_TaskType* type, void* arg,
                                int32_t dep_count, const uint32_t* deps, uint32_t* out_id);
// Blocks until every id is finished (a stale id counts as finished); a negative number waits
// for all tasks. A worker helps meanwhile. TAV_ERROR_TIMEOUT when a wait of wait_ms passed
// without the goal; the ids stay valid. TAV_ERROR_STATE when not running.
uint32_t tav_sr2_TaskSys_wait(tav_sr2_TaskSys* ts, int32_t id_count, const uint32_t* ids);
// *out = the task's result and 0 when finished; TAV_SR2_TASK_UNFINISHED (also in *out) when
// not yet; TAV_ERROR_STATE for a stale id; `reserved` must be 0.
uint32_t tav_sr2_TaskSys_result(tav_sr2_TaskSys* ts, uint32_t id, int32_t reserved, uint32_t* out);
uint32_t tav_sr2_TaskSys_retain(tav_sr2_TaskSys* ts, uint32_t id);
// Drops a hold; a finished task whose last hold goes frees its slot (the id becomes stale).
uint32_t tav_sr2_TaskSys_release(tav_sr2_TaskSys* ts, uint32_t id);
// A task without a function that finishes when tav_sr2_TaskSys_setEvent is called; the caller
// holds its id.
uint32_t tav_sr2_TaskSys_addEvent(tav_sr2_TaskSys* ts, uint32_t* out_id);
// Finishes an event with `status` (not TAV_SR2_TASK_UNFINISHED); its dependents then start,
// or are skipped when status is nonzero.
uint32_t tav_sr2_TaskSys_setEvent(tav_sr2_TaskSys* ts, uint32_t id, uint32_t status);
