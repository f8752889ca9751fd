// tav_sr2_MemPool: a boundary-tag heap on one caller region.
//
// tav_sr2_MemPool_init(pool, region, size): clears the record and makes the whole region one free
//   block; a null region with size 0 gives an empty pool where every allocation fails. A nonzero
//   size with a null region, or a region too small for one block, stops the process. Returns 0.
// tav_sr2_MemPool_alloc(pool, n): 0 bytes gets tav_sr2_MemPool_emptyBlock; otherwise the first
//   block on the free list that fits, split when the rest can stand as a block of its own. Null
//   when nothing fits; the heap is untouched then.
// tav_sr2_MemPool_free(pool, p): null and the empty block are ignored; anything else must be a live
//   block of this pool or the process stops. Neighbours merge at once. Returns 0.
// tav_sr2_MemPool_finish(pool): walks and checks the whole heap, then clears the pool. Returns
//   TAV_ERROR_STATE when a block was still allocated (a leak), else 0.
// tav_sr2_MemPool_largestFree / _inUse: the largest payload one allocation could get; the bytes in
//   allocated blocks, headers included.
// tav_sr2_MemPool_swap(a, b): exchanges two pools.
//
// Heap corruption is never reported as a status: tav_sr2_MemPool_crash stops the process on the
// spot, before the damage can spread. Every operation runs under the record's spin lock.
#include "foundation/mem_pool.h"

#include <stddef.h>
#include <string.h>

#include <atomic>

alignas(16) unsigned char tav_sr2_MemPool_emptyBlock[16];

namespace {

// A block header is two u32 tags: prev_tag (the left neighbour's size, i.e. its footer) and
// size_tag. The payload follows at a 16-byte aligned address; a free block keeps its list links
// `next` and `prev` in the first 16 bytes of it. The list head is the pair free_next/free_prev of
// the record, laid out like those links so that one set of link routines serves both.
constexpr uintptr_t kHeaderBytes = 8;
constexpr uint32_t kAlign = 16;
constexpr uint32_t kMinBlock = 32;
constexpr uint32_t kSplitSlack = 24;
constexpr uint32_t kAllocatedBit = 1;
constexpr uintptr_t kLargestSpan = 0xFFFFFFF0u;  // a block size must fit a u32 tag
constexpr uintptr_t kNextLink = 0;
constexpr uintptr_t kPrevLink = 8;

static_assert(offsetof(tav_sr2_MemPool, free_prev) == offsetof(tav_sr2_MemPool, free_next) + 8,
              "the list head must look like the links of a free block");
static_assert(sizeof(void*) == 8, "block links take 8 bytes each");
static_assert(offsetof(tav_sr2_MemPool, first) == 8 && offsetof(tav_sr2_MemPool, free_next) == 24 &&
                  offsetof(tav_sr2_MemPool, in_use) == 40 && sizeof(tav_sr2_MemPool) == 48,
              "the record keeps its field order and size");

// Tags and links live in raw region memory that the user also writes with other types, so they go
// through memcpy, which compiles to plain loads and stores.
uint32_t loadU32(uintptr_t at) {
    uint32_t v;
    memcpy(&v, reinterpret_cast<const void*>(at), sizeof v);
    return v;
}
void storeU32(uintptr_t at, uint32_t v) {
    memcpy(reinterpret_cast<void*>(at), &v, sizeof v);
}
uintptr_t loadLink(uintptr_t at) {
    void* v;
    memcpy(&v, reinterpret_cast<const void*>(at), sizeof v);
    return reinterpret_cast<uintptr_t>(v);
}
void storeLink(uintptr_t at, uintptr_t v) {
    void* p = reinterpret_cast<void*>(v);
    memcpy(reinterpret_cast<void*>(at), &p, sizeof p);
}

uint32_t prevTag(uintptr_t header) {
    return loadU32(header);
}
uint32_t sizeTag(uintptr_t header) {
    return loadU32(header + 4);
}
void setPrevTag(uintptr_t header, uint32_t v) {
    storeU32(header, v);
}
void setSizeTag(uintptr_t header, uint32_t v) {
    storeU32(header + 4, v);
}

uintptr_t listHead(const tav_sr2_MemPool* pool) {
    return reinterpret_cast<uintptr_t>(&pool->free_next);
}
uintptr_t firstOf(const tav_sr2_MemPool* pool) {
    return reinterpret_cast<uintptr_t>(pool->first);
}
uintptr_t lastOf(const tav_sr2_MemPool* pool) {
    return reinterpret_cast<uintptr_t>(pool->last);
}

// The spin lock: no backoff and no yield, since the lock is only held for one list walk.
void lockPool(tav_sr2_MemPool* pool) {
    std::atomic_ref<uint32_t> word(pool->lock);
    for (;;) {
        if (word.load(std::memory_order_acquire) != 0) continue;
        uint32_t expected = 0;
        if (word.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
            return;
        }
    }
}
void unlockPool(tav_sr2_MemPool* pool) {
    std::atomic_ref<uint32_t>(pool->lock).store(0, std::memory_order_seq_cst);
}

void check(bool ok) {
    if (!ok) tav_sr2_MemPool_crash();
}

bool headerInHeap(const tav_sr2_MemPool* pool, uintptr_t header) {
    return header >= firstOf(pool) && header < lastOf(pool);
}

// A payload address of this heap: 16-byte aligned with its header in first..last.
bool payloadInHeap(const tav_sr2_MemPool* pool, uintptr_t payload) {
    return payload % kAlign == 0 && payload >= kHeaderBytes &&
           headerInHeap(pool, payload - kHeaderBytes);
}

// The block at `header` (already known to lie in the heap) must lead by its size to a tag 8 bytes
// ahead of a 16-byte aligned address, no further than the end tag, holding the same size_tag.
// Returns the block size.
uint32_t checkTags(const tav_sr2_MemPool* pool, uintptr_t header) {
    const uint32_t tag = sizeTag(header);
    const uint32_t size = tag & ~kAllocatedBit;
    check(size >= kMinBlock && size % kAlign == 0);
    check(size <= lastOf(pool) - header);
    const uintptr_t next = header + size;
    check((next + kHeaderBytes) % kAlign == 0);
    check(prevTag(next) == tag);
    return size;
}

// A link target: the payload of a block in the heap or the list head itself, pointing back at
// `node` through the opposite link.
void checkLink(const tav_sr2_MemPool* pool, uintptr_t node, uintptr_t target, uintptr_t backLink) {
    check(target == listHead(pool) || payloadInHeap(pool, target));
    check(loadLink(target + backLink) == node);
}

// A block met on the free list or as a free neighbour: sound tags, marked free, sound links.
uint32_t checkFreeBlock(const tav_sr2_MemPool* pool, uintptr_t payload) {
    check(payloadInHeap(pool, payload));
    const uintptr_t header = payload - kHeaderBytes;
    const uint32_t size = checkTags(pool, header);
    check((sizeTag(header) & kAllocatedBit) == 0);
    checkLink(pool, payload, loadLink(payload + kNextLink), kPrevLink);
    checkLink(pool, payload, loadLink(payload + kPrevLink), kNextLink);
    return size;
}

void unlink(uintptr_t payload) {
    const uintptr_t next = loadLink(payload + kNextLink);
    const uintptr_t prev = loadLink(payload + kPrevLink);
    storeLink(prev + kNextLink, next);
    storeLink(next + kPrevLink, prev);
}

// Most recently freed first: the next search looks at it before anything else.
void pushFront(tav_sr2_MemPool* pool, uintptr_t payload) {
    const uintptr_t head = listHead(pool);
    const uintptr_t oldFirst = loadLink(head + kNextLink);
    storeLink(payload + kNextLink, oldFirst);
    storeLink(payload + kPrevLink, head);
    storeLink(oldFirst + kPrevLink, payload);
    storeLink(head + kNextLink, payload);
}

// Writes a block's size to its header and to its footer, the next block's prev_tag.
void setBlock(uintptr_t header, uint32_t tag) {
    setSizeTag(header, tag);
    setPrevTag(header + (tag & ~kAllocatedBit), tag);
}

// An empty, unusable pool: nothing to allocate from, nothing to release.
void clearState(tav_sr2_MemPool* pool, void* bounds) {
    pool->first = bounds;
    pool->last = bounds;
    pool->free_next = &pool->free_next;
    pool->free_prev = &pool->free_next;
    pool->in_use = 0;
    pool->peak = 0;
}

uint32_t blockNeed(uint32_t n) {
    uint64_t need = uint64_t{n} + kHeaderBytes;
    if (need < kSplitSlack) need = kSplitSlack;
    need = (need + kAlign - 1) & ~uint64_t{kAlign - 1};
    return need > kLargestSpan ? 0 : static_cast<uint32_t>(need);
}

// First fit in list order. Returns the payload, or 0 when no block is big enough.
uintptr_t takeFirstFit(tav_sr2_MemPool* pool, uint32_t need) {
    const uintptr_t head = listHead(pool);
    for (uintptr_t node = loadLink(head + kNextLink); node != head;
         node = loadLink(node + kNextLink)) {
        const uint32_t size = checkFreeBlock(pool, node);
        if (size < need) continue;
        unlink(node);
        const uintptr_t header = node - kHeaderBytes;
        uint32_t taken = size;
        // size - need, not need + slack: the sum wraps for a block near 4 GiB.
        if (size - need >= kSplitSlack) {
            const uintptr_t rest = header + need;
            setBlock(rest, size - need);
            pushFront(pool, rest + kHeaderBytes);
            taken = need;
        }
        setBlock(header, taken | kAllocatedBit);
        pool->in_use += taken;
        if (pool->in_use > pool->peak) pool->peak = pool->in_use;
        return node;
    }
    return 0;
}

// Walks the whole free list, validating every block on it. Returns its length and tells whether
// `payload` is on it.
uint32_t walkFreeList(const tav_sr2_MemPool* pool, uintptr_t payload, bool* found) {
    const uintptr_t head = listHead(pool);
    uint32_t length = 0;
    *found = false;
    for (uintptr_t node = loadLink(head + kNextLink); node != head;
         node = loadLink(node + kNextLink)) {
        checkFreeBlock(pool, node);
        *found = *found || node == payload;
        ++length;
    }
    return length;
}

#ifdef TAVRIN_FAULT_INJECTION
std::atomic<uint32_t> g_allocCount{0};
std::atomic<uint32_t> g_failNth{0};
std::atomic<bool> g_failPersist{false};

// Decided before the heap is touched, so an injected failure leaves it exactly as it was.
bool injectedFailure() {
    const uint32_t count = g_allocCount.fetch_add(1, std::memory_order_relaxed) + 1;
    const uint32_t nth = g_failNth.load(std::memory_order_relaxed);
    if (nth == 0) return false;
    return count == nth || (count > nth && g_failPersist.load(std::memory_order_relaxed));
}
#endif

}  // namespace

[[noreturn]] void tav_sr2_MemPool_crash(void) {
    // Two stores to addresses nothing can map, then a trap in case both were somehow survived.
    // Volatile keeps the compiler from proving anything about them.
    volatile uintptr_t lowPage = 0x10;
    volatile uintptr_t highPage = ~uintptr_t{0xFFF};
    *reinterpret_cast<volatile uint32_t*>(lowPage) = 0xDEADu;
    *reinterpret_cast<volatile uint32_t*>(highPage) = 0xDEADu;
    __builtin_trap();
}

uint32_t tav_sr2_MemPool_init(tav_sr2_MemPool* pool, void* region, size_t size) {
    memset(pool, 0, sizeof *pool);
    clearState(pool, nullptr);
    if (region == nullptr) {
        check(size == 0);
        return TAV_OK;
    }
    const uintptr_t begin = reinterpret_cast<uintptr_t>(region);
    // Too small for the smallest block, or running off the address space: nothing fits.
    check(size >= kMinBlock && size <= UINTPTR_MAX - begin);
    const uintptr_t first = ((begin + 23) & ~uintptr_t{kAlign - 1}) - kHeaderBytes;
    uintptr_t last = ((begin + size - kHeaderBytes) & ~uintptr_t{kAlign - 1}) - kHeaderBytes;
    check(first < last && last - first >= kMinBlock);
    if (last - first > kLargestSpan) last = first + kLargestSpan;

    pool->first = reinterpret_cast<void*>(first);
    pool->last = reinterpret_cast<void*>(last);
    setPrevTag(first, kAllocatedBit);  // no left neighbour to merge with
    setBlock(first, static_cast<uint32_t>(last - first));
    setSizeTag(last, kAllocatedBit);  // the walk stops here and nothing merges past it
    pushFront(pool, first + kHeaderBytes);
    return TAV_OK;
}

void* tav_sr2_MemPool_alloc(tav_sr2_MemPool* pool, uint32_t n) {
    if (n == 0) return tav_sr2_MemPool_emptyBlock;
#ifdef TAVRIN_FAULT_INJECTION
    if (injectedFailure()) return nullptr;
#endif
    const uint32_t need = blockNeed(n);
    if (need == 0) return nullptr;
    lockPool(pool);
    const uintptr_t payload = takeFirstFit(pool, need);
    unlockPool(pool);
    return reinterpret_cast<void*>(payload);
}

uint32_t tav_sr2_MemPool_free(tav_sr2_MemPool* pool, void* p) {
    if (p == nullptr || p == tav_sr2_MemPool_emptyBlock) return TAV_OK;
    lockPool(pool);
    const uintptr_t payload = reinterpret_cast<uintptr_t>(p);
    check(payloadInHeap(pool, payload));
    uintptr_t header = payload - kHeaderBytes;
    uint32_t size = checkTags(pool, header);
    // A second release finds the bit already clear.
    check((sizeTag(header) & kAllocatedBit) != 0);
    setSizeTag(header, size);
    pool->in_use -= size;

    const uint32_t leftTag = prevTag(header);
    if ((leftTag & kAllocatedBit) == 0) {
        check(leftTag <= header);
        const uintptr_t left = header - leftTag;
        check(checkFreeBlock(pool, left + kHeaderBytes) == leftTag);
        unlink(left + kHeaderBytes);
        header = left;
        size += leftTag;
    }
    const uintptr_t right = header + size;
    if ((sizeTag(right) & kAllocatedBit) == 0) {
        const uint32_t rightSize = checkFreeBlock(pool, right + kHeaderBytes);
        unlink(right + kHeaderBytes);
        size += rightSize;
    }
    setBlock(header, size);
    pushFront(pool, header + kHeaderBytes);
    unlockPool(pool);
    return TAV_OK;
}

uint32_t tav_sr2_MemPool_finish(tav_sr2_MemPool* pool) {
    lockPool(pool);
    const uintptr_t first = firstOf(pool);
    const uintptr_t last = lastOf(pool);
    bool leaked = false;
    if (first < last) {
        check(prevTag(first) == kAllocatedBit && sizeTag(last) == kAllocatedBit);
        uint32_t allocatedBytes = 0;
        uint32_t freeBlocks = 0;
        bool leftFree = false;
        for (uintptr_t header = first; header != last;) {
            const uint32_t size = checkTags(pool, header);
            const bool isFree = (sizeTag(header) & kAllocatedBit) == 0;
            if (isFree) {
                bool listed;
                walkFreeList(pool, header + kHeaderBytes, &listed);
                // Two free neighbours would mean a missed merge.
                check(listed && !leftFree);
                ++freeBlocks;
            } else {
                allocatedBytes += size;
                leaked = true;
            }
            leftFree = isFree;
            header += size;
        }
        check(allocatedBytes == pool->in_use);
        // Nothing on the list but the free blocks just walked.
        bool unused;
        check(walkFreeList(pool, 0, &unused) == freeBlocks);
    }
    clearState(pool, tav_sr2_MemPool_emptyBlock);
    unlockPool(pool);
    return leaked ? TAV_ERROR_STATE : TAV_OK;
}

uint32_t tav_sr2_MemPool_inUse(const tav_sr2_MemPool* pool) {
    // The record is only read; the lock word is the one field written, and only for the duration.
    tav_sr2_MemPool* locked = const_cast<tav_sr2_MemPool*>(pool);
    lockPool(locked);
    const uint32_t inUse = pool->in_use;
    unlockPool(locked);
    return inUse;
}

uint32_t tav_sr2_MemPool_largestFree(tav_sr2_MemPool* pool) {
    lockPool(pool);
    uint32_t largest = 0;
    const uintptr_t head = listHead(pool);
    for (uintptr_t node = loadLink(head + kNextLink); node != head;
         node = loadLink(node + kNextLink)) {
        const uint32_t size = checkFreeBlock(pool, node);
        if (size > largest) largest = size;
    }
    unlockPool(pool);
    return largest == 0 ? 0 : largest - static_cast<uint32_t>(kHeaderBytes);
}

namespace {

// After a byte exchange the ends of a list still point at the list head inside the other record;
// this turns them to the record's own head. A record that was never set up has null links.
void adoptList(tav_sr2_MemPool* pool, uintptr_t oldHead) {
    const uintptr_t head = listHead(pool);
    const uintptr_t next = reinterpret_cast<uintptr_t>(pool->free_next);
    const uintptr_t prev = reinterpret_cast<uintptr_t>(pool->free_prev);
    if (next == oldHead) {
        pool->free_next = &pool->free_next;
    } else if (next != 0) {
        storeLink(next + kPrevLink, head);
    }
    if (prev == oldHead) {
        pool->free_prev = &pool->free_next;
    } else if (prev != 0) {
        storeLink(prev + kNextLink, head);
    }
}

}  // namespace

void tav_sr2_MemPool_swap(tav_sr2_MemPool* a, tav_sr2_MemPool* b) {
    if (a == b) return;
    // Lock in address order so that two swaps of the same pair cannot deadlock.
    tav_sr2_MemPool* low = a < b ? a : b;
    tav_sr2_MemPool* high = a < b ? b : a;
    lockPool(low);
    lockPool(high);
    // Both lock words hold 1 now; they stay out of the exchange, as other threads may be spinning
    // on them.
    unsigned char* x = reinterpret_cast<unsigned char*>(a);
    unsigned char* y = reinterpret_cast<unsigned char*>(b);
    for (size_t i = sizeof a->lock; i < sizeof(tav_sr2_MemPool); ++i) {
        const unsigned char t = x[i];
        x[i] = y[i];
        y[i] = t;
    }
    adoptList(a, listHead(b));
    adoptList(b, listHead(a));
    unlockPool(high);
    unlockPool(low);
}

#ifdef TAVRIN_FAULT_INJECTION
void tav_sr2_MemPool_injectFailure(uint32_t nth, bool persist) {
    g_failNth.store(0, std::memory_order_relaxed);
    g_allocCount.store(0, std::memory_order_relaxed);
    g_failPersist.store(persist, std::memory_order_relaxed);
    g_failNth.store(nth, std::memory_order_relaxed);
}

uint32_t tav_sr2_MemPool_allocCount(void) {
    return g_allocCount.load(std::memory_order_relaxed);
}
#endif
