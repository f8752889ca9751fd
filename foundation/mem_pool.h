// tav_sr2_MemPool: the allocator over the engine's work buffer.
//
// Boundary-tag heap on one caller region: 16-byte aligned payloads, 8 bytes of tags per block,
// first fit over a LIFO free list, immediate coalescing of neighbours. Every header the pool
// touches is validated; corruption, a double release, a foreign or misaligned pointer stop the
// process through tav_sr2_MemPool_crash. Out of space is not an error here: alloc returns null
// and the caller turns that into TAV_ERROR_MALLOC.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "foundation/status.h"

struct tav_sr2_MemPool {
    uint32_t lock;     // spin lock: 0 free, 1 held
    void* first;       // header of the first block
    void* last;        // the end tag: a header with no payload
    void* free_next;   // list head; an empty list points back at &free_next
    void* free_prev;
    uint32_t in_use;   // bytes in allocated blocks, headers included
    uint32_t peak;     // largest in_use reached
};

// A request of 0 bytes gets this address; releasing it does nothing.
extern unsigned char tav_sr2_MemPool_emptyBlock[16];

uint32_t tav_sr2_MemPool_init(tav_sr2_MemPool* pool, void* region, size_t size);
uint32_t tav_sr2_MemPool_finish(tav_sr2_MemPool* pool);
void* tav_sr2_MemPool_alloc(tav_sr2_MemPool* pool, uint32_t size);
uint32_t tav_sr2_MemPool_free(tav_sr2_MemPool* pool, void* p);
uint32_t tav_sr2_MemPool_inUse(const tav_sr2_MemPool* pool);
uint32_t tav_sr2_MemPool_largestFree(tav_sr2_MemPool* pool);
void tav_sr2_MemPool_swap(tav_sr2_MemPool* a, tav_sr2_MemPool* b);
[[noreturn]] void tav_sr2_MemPool_crash(void);

// Callers that compute a size as a signed number pass it through this, so that a negative size
// gets the empty block and not a huge request.
static inline uint32_t tav_sr2_MemPool_sizeOf(int64_t n) {
    return n <= 0 ? 0u : n > 0xFFFFFFFFll ? 0xFFFFFFFFu : (uint32_t)n;
}

#ifdef TAVRIN_FAULT_INJECTION
// Test builds only. Counting from this call, the nth non-empty allocation of any pool returns
// null (1 = the next one); with persist, every allocation after it fails too. nth 0 disarms.
void tav_sr2_MemPool_injectFailure(uint32_t nth, bool persist);
// Non-empty allocations attempted since the last injectFailure call, so that a test can first
// count the allocations of a call and then walk nth over all of them.
uint32_t tav_sr2_MemPool_allocCount(void);
#endif
