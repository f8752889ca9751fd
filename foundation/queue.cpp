// tav_sr2_Queue: bounded two-lock queue of pointers over a ring of capacity + 2 nodes.
// init/finish take and give back the ring, two kind-0 mutexes and two conditions from the pool.
// push waits (timeout -1 forever, 0 never, else milliseconds) while the queue is full; pop waits
// while it is empty and gives null on failure. Each side wakes the next waiter of its own side
// while room or items remain, and wakes the other side only on the empty/full edge.
#include "foundation/queue.h"

#include <string.h>

namespace {

// Waits on `cond` while `blocked()` holds; the caller holds the cond's mutex.
template <typename Blocked>
uint32_t waitWhile(tav_sr2_Cond* cond, int32_t timeout_ms, Blocked blocked) {
    while (blocked()) {
        if (timeout_ms == 0) return TAV_ERROR_STATE;
        uint32_t status =
            timeout_ms < 0 ? tav_sr2_Cond_wait(cond) : tav_sr2_Cond_timedWait(cond, timeout_ms);
        // A waiter whose time runs out as it is signalled must still take its turn, or the
        // wake-up chain of its side stops with it.
        if (status == TAV_ERROR_TIMEOUT && !blocked()) return TAV_OK;
        if (status != TAV_OK) return status;
    }
    return TAV_OK;
}

// Wakes one waiter of the other side; its mutex closes the gap between its test and its wait.
void wakeOtherSide(tav_sr2_Mutex* lock, tav_sr2_Cond* cond) {
    tav_sr2_Mutex_lock(lock);
    tav_sr2_Cond_signal(cond);
    tav_sr2_Mutex_unlock(lock);
}

void destroyLocks(tav_sr2_Queue* q) {
    tav_sr2_Cond_destroy(&q->not_full);
    tav_sr2_Cond_destroy(&q->not_empty);
    tav_sr2_Mutex_destroy(&q->put_lock);
    tav_sr2_Mutex_destroy(&q->get_lock);
}

uint32_t createLocks(tav_sr2_Queue* q) {
    uint32_t status = tav_sr2_Mutex_create(&q->put_lock, q->pool, TAV_SR2_MUTEX_RECURSIVE);
    if (status == TAV_OK) {
        status = tav_sr2_Mutex_create(&q->get_lock, q->pool, TAV_SR2_MUTEX_RECURSIVE);
    }
    if (status == TAV_OK) status = tav_sr2_Cond_create(&q->not_full, q->pool, &q->put_lock);
    if (status == TAV_OK) status = tav_sr2_Cond_create(&q->not_empty, q->pool, &q->get_lock);
    if (status != TAV_OK) destroyLocks(q);
    return status;
}

}  // namespace

uint32_t tav_sr2_Queue_init(tav_sr2_Queue* q, tav_sr2_MemPool* pool, int32_t capacity) {
    memset((void*)q, 0, sizeof(*q));
    q->pool = pool;
    tav_sr2_Mutex_setEmpty(&q->put_lock, pool);
    tav_sr2_Mutex_setEmpty(&q->get_lock, pool);
    tav_sr2_Cond_setEmpty(&q->not_full, pool);
    tav_sr2_Cond_setEmpty(&q->not_empty, pool);
    if (capacity < 1 || capacity > 0x3FFFFFF) return TAV_ERROR_PARAM;
    uint32_t bytes = (uint32_t)(capacity + 2) * (uint32_t)sizeof(tav_sr2_QueueNode);
    q->ring = (tav_sr2_QueueNode*)tav_sr2_MemPool_alloc(pool, bytes);
    if (q->ring == nullptr) return TAV_ERROR_MALLOC;
    memset((void*)q->ring, 0, bytes);
    uint32_t status = createLocks(q);
    if (status != TAV_OK) {
        tav_sr2_MemPool_free(pool, q->ring);
        q->ring = nullptr;
        return status;
    }
    q->capacity = capacity;
    q->head = &q->ring[0];
    q->tail = &q->ring[0];
    q->write_index = 1;
    return TAV_OK;
}

uint32_t tav_sr2_Queue_finish(tav_sr2_Queue* q) {
    if (q->ring != nullptr) {
        destroyLocks(q);
        tav_sr2_MemPool_free(q->pool, q->ring);
    }
    memset((void*)q, 0, sizeof(*q));
    return TAV_OK;
}

uint32_t tav_sr2_Queue_push(tav_sr2_Queue* q, void* item, int32_t timeout_ms) {
    if (q->ring == nullptr) return TAV_ERROR_STATE;
    tav_sr2_Mutex_lock(&q->put_lock);
    uint32_t status = waitWhile(&q->not_full, timeout_ms,
                                [q] { return tav_sr2_atomicLoad(&q->count) >= q->capacity; });
    if (status != TAV_OK) {
        tav_sr2_Mutex_unlock(&q->put_lock);
        return status;
    }
    int32_t index = tav_sr2_atomicLoad(&q->write_index);
    tav_sr2_atomicStore(&q->write_index, index == q->capacity + 1 ? 0 : index + 1);
    tav_sr2_QueueNode* node = &q->ring[index];
    node->item = item;
    node->next = nullptr;
    q->tail->next = node;
    q->tail = node;
    int32_t before = tav_sr2_atomicAdd(&q->count, 1);
    if (before + 1 < q->capacity) tav_sr2_Cond_signal(&q->not_full);
    tav_sr2_Mutex_unlock(&q->put_lock);
    if (before == 0) wakeOtherSide(&q->get_lock, &q->not_empty);
    return TAV_OK;
}

void* tav_sr2_Queue_pop(tav_sr2_Queue* q, int32_t timeout_ms) {
    if (q->ring == nullptr) return nullptr;
    tav_sr2_Mutex_lock(&q->get_lock);
    uint32_t status =
        waitWhile(&q->not_empty, timeout_ms, [q] { return tav_sr2_atomicLoad(&q->count) == 0; });
    if (status != TAV_OK) {
        tav_sr2_Mutex_unlock(&q->get_lock);
        return nullptr;
    }
    tav_sr2_QueueNode* node = q->head->next;
    void* item = node->item;
    node->item = nullptr;
    q->head = node;
    int32_t before = tav_sr2_atomicAdd(&q->count, -1);
    if (before > 1) tav_sr2_Cond_signal(&q->not_empty);
    tav_sr2_Mutex_unlock(&q->get_lock);
    if (before == q->capacity) wakeOtherSide(&q->put_lock, &q->not_full);
    return item;
}

int32_t tav_sr2_Queue_count(const tav_sr2_Queue* q) {
    return tav_sr2_atomicLoad(&q->count);
}
