// Shared between the files of tav_sr2_TaskSys: the worker loop (task_sys_worker.cpp), the task
// table and its operations (task_sys_tasks.cpp) and the life cycle (task_sys.cpp).
#pragma once

#include "foundation/task_sys.h"

namespace tav_sr2_task {

struct WorkerMasks {
    uint32_t row_mask;  // given to ranged tasks
    uint32_t one_mask;  // given to one-shot tasks
};

inline tav_sr2_TaskDep* doneDeps() {
    return (tav_sr2_TaskDep*)TAV_SR2_TASK_DONE_LINK;
}
inline tav_sr2_TaskSlot* doneLink() {
    return (tav_sr2_TaskSlot*)TAV_SR2_TASK_DONE_LINK;
}

// The slot of `id` while that id is in use, else null (a stale or never issued id).
inline tav_sr2_TaskSlot* liveSlot(tav_sr2_TaskSys* ts, uint32_t id) {
    if (id == 0) return nullptr;
    tav_sr2_TaskSlot* s = &ts->slots[id & TAV_SR2_TASK_ID_MASK];
    return tav_sr2_atomicLoad(&s->id) == id ? s : nullptr;
}
inline bool isFinished(const tav_sr2_TaskSlot* s) {
    return tav_sr2_atomicLoad(&s->dependents) == doneDeps();
}
// True when none of the ids is live and unfinished.
bool idsDone(tav_sr2_TaskSys* ts, int32_t count, const uint32_t* ids);

WorkerMasks workerMasks(const tav_sr2_TaskSys* ts, int32_t worker_index);
// The calling thread's worker index: a spawned worker's own, 0 for any other thread when the
// caller is a worker, else -1.
int32_t workerIndexOf(const tav_sr2_TaskSys* ts);
// Claims worker index `wi` for this thread, or nests in it; false when another thread is inside
// under that index.
bool enterIndex(tav_sr2_TaskSys* ts, int32_t wi);
// Leaves `wi`. True when the index is now free and a thread was turned away from it meanwhile:
// the caller must then broadcast task_done (under slot_lock) so that thread can take it.
bool leaveIndex(tav_sr2_TaskSys* ts, int32_t wi);

// The worker loop. mode 0: a spawned worker, until the end marker. mode > 0: a waiter for the
// `mode` ids. mode < 0: a waiter until every submitted task has started.
void workerLoop(tav_sr2_TaskSys* ts, int32_t wi, int32_t mode, const uint32_t* ids);
// One step of the loop if a task is ready; false when there was nothing to do.
bool workerStep(tav_sr2_TaskSys* ts, int32_t wi);

// Appends a task to the ready queue (takes queue_lock).
void enqueue(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t);
// Finishes a task: dependents, counters, wake-ups, slot release. slot_lock held by the caller.
void completeLocked(tav_sr2_TaskSys* ts, tav_sr2_TaskSlot* t);

// Fills the W pairs of a range block for `count` rows. Fixed split: q = count / W rows each, and
// one more whenever the accumulated remainder reaches W, so the extra rows are interleaved
// evenly rather than bunched. Dynamic split: everything in pair 0.
void spreadRows(tav_sr2_TaskRange* pairs, int32_t w, int32_t count, bool dynamic_split);

// Puts the slot, dependency and range tables into their starting state.
void resetTables(tav_sr2_TaskSys* ts);

}  // namespace tav_sr2_task
