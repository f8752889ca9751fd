// tav_sr2_Queue: a bounded queue of pointers with one lock for producers and one for consumers.
//
// The items live in a ring of capacity + 2 nodes linked as a list that always starts with a
// dummy node; producers link at the tail under the put mutex, consumers unlink after the dummy
// under the get mutex, and the atomic `count` is the only state the two sides share. A null item
// cannot be told apart from a failed pop, so producers push non-null pointers.
#pragma once

#include <stdint.h>

#include "foundation/mem_pool.h"
#include "foundation/sync.h"

struct tav_sr2_QueueNode {
    void* item;
    tav_sr2_QueueNode* next;
};

struct tav_sr2_Queue {
    tav_sr2_MemPool* pool;
    int32_t capacity;
    tav_sr2_QueueNode* ring;  // capacity + 2 nodes from the pool
    tav_sr2_QueueNode* head;  // the dummy; guarded by get_lock
    tav_sr2_QueueNode* tail;  // guarded by put_lock
    int32_t count;            // atomic
    int32_t write_index;      // atomic; next ring node to fill
    tav_sr2_Mutex put_lock;
    tav_sr2_Mutex get_lock;
    tav_sr2_Cond not_full;   // on put_lock
    tav_sr2_Cond not_empty;  // on get_lock
};

// Timeouts of push and pop: TAV_SR2_WAIT_FOREVER, 0 (never wait) or milliseconds.
static const int32_t TAV_SR2_WAIT_FOREVER = -1;

// Capacity at least 1 (TAV_ERROR_PARAM). TAV_ERROR_MALLOC or TAV_ERROR_BUFFER on failure, with
// everything taken so far given back.
uint32_t tav_sr2_Queue_init(tav_sr2_Queue* q, tav_sr2_MemPool* pool, int32_t capacity);
// Frees the ring and the locks; items still queued are forgotten. Clears the record.
uint32_t tav_sr2_Queue_finish(tav_sr2_Queue* q);
// 0; TAV_ERROR_STATE when full and not waiting, or the wait's status (TAV_ERROR_TIMEOUT).
uint32_t tav_sr2_Queue_push(tav_sr2_Queue* q, void* item, int32_t timeout_ms);
// The oldest item, or null when empty and the wait failed or was not allowed.
void* tav_sr2_Queue_pop(tav_sr2_Queue* q, int32_t timeout_ms);
int32_t tav_sr2_Queue_count(const tav_sr2_Queue* q);
