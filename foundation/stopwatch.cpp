// tav_sr2_Stopwatch: a stopwatch on CLOCK_MONOTONIC_RAW whose time block comes from the pool.
//
// init(sw, pool) clears the record and stores the pool. reset frees any block, takes a new
// 32-byte block (TAV_ERROR_MALLOC when the pool has none, TAV_ERROR_PARAM without a pool) and
// leaves the state 0 either way. start from state 0 records the start; from state 2 it moves the
// start forward by the length of the pause; it then runs (state 1). pause while running records
// the time and pauses (state 2). clear goes back to state 0. finish frees the block and clears
// the record. start and pause on a stopwatch without a block give TAV_ERROR_STATE.
// elapsedUs is (paused ? pause time : now) - start in whole microseconds, the nanosecond part
// rounded to nearest; 0 in state 0. Every operation gives TAV_ERROR_PARAM for a null record
// (elapsedUs too, as its u32 result). Clock failures are ignored except by tav_sr2_getTimeNs,
// which gives 0.
#include "foundation/stopwatch.h"

#include <string.h>

namespace {

constexpr long kNsPerSecond = 1000000000L;

// A failed read leaves the zero time: callers ignore clock failures.
struct timespec now() {
    struct timespec t = {};
    clock_gettime(CLOCK_MONOTONIC_RAW, &t);
    return t;
}

// Brings the nanoseconds back into [0, 1e9) by carrying into the seconds.
void carry(struct timespec* t) {
    while (t->tv_nsec >= kNsPerSecond) {
        t->tv_nsec -= kNsPerSecond;
        t->tv_sec += 1;
    }
    while (t->tv_nsec < 0) {
        t->tv_nsec += kNsPerSecond;
        t->tv_sec -= 1;
    }
}

void releaseBlock(tav_sr2_Stopwatch* sw) {
    if (sw->times && sw->pool) tav_sr2_MemPool_free(sw->pool, sw->times);
    sw->times = nullptr;
}

}  // namespace

uint32_t tav_sr2_Stopwatch_init(tav_sr2_Stopwatch* sw, tav_sr2_MemPool* pool) {
    if (!sw) return TAV_ERROR_PARAM;
    memset(sw, 0, sizeof *sw);
    sw->pool = pool;
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_finish(tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    releaseBlock(sw);
    memset(sw, 0, sizeof *sw);
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_reset(tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    releaseBlock(sw);
    sw->state = TAV_SR2_STOPWATCH_IDLE;
    if (!sw->pool) return TAV_ERROR_PARAM;
    void* block = tav_sr2_MemPool_alloc(sw->pool, sizeof(tav_sr2_StopwatchTimes));
    if (!block) return TAV_ERROR_MALLOC;
    sw->times = static_cast<tav_sr2_StopwatchTimes*>(block);
    memset(sw->times, 0, sizeof *sw->times);
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_start(tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    if (!sw->times) return TAV_ERROR_STATE;
    tav_sr2_StopwatchTimes* t = sw->times;
    if (sw->state == TAV_SR2_STOPWATCH_IDLE) {
        t->accumulated = now();
    } else if (sw->state == TAV_SR2_STOPWATCH_PAUSED) {
        struct timespec resumed = now();
        t->accumulated.tv_sec += resumed.tv_sec - t->started.tv_sec;
        t->accumulated.tv_nsec += resumed.tv_nsec - t->started.tv_nsec;
        carry(&t->accumulated);
    }
    sw->state = TAV_SR2_STOPWATCH_RUNNING;
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_pause(tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    if (!sw->times) return TAV_ERROR_STATE;
    if (sw->state == TAV_SR2_STOPWATCH_RUNNING) {
        sw->times->started = now();
        sw->state = TAV_SR2_STOPWATCH_PAUSED;
    }
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_clear(tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    sw->state = TAV_SR2_STOPWATCH_IDLE;
    return TAV_OK;
}

uint32_t tav_sr2_Stopwatch_diffUs(const struct timespec* from, const struct timespec* to) {
    struct timespec d = {to->tv_sec - from->tv_sec, to->tv_nsec - from->tv_nsec};
    carry(&d);
    int64_t us = (int64_t)d.tv_sec * 1000000 + (d.tv_nsec + 500) / 1000;
    return (uint32_t)us;
}

uint32_t tav_sr2_Stopwatch_elapsedUs(const tav_sr2_Stopwatch* sw) {
    if (!sw) return TAV_ERROR_PARAM;
    if (!sw->times) return 0;
    if (sw->state == TAV_SR2_STOPWATCH_RUNNING) {
        struct timespec t = now();
        return tav_sr2_Stopwatch_diffUs(&sw->times->accumulated, &t);
    }
    if (sw->state == TAV_SR2_STOPWATCH_PAUSED) {
        return tav_sr2_Stopwatch_diffUs(&sw->times->accumulated, &sw->times->started);
    }
    return 0;
}

uint64_t tav_sr2_getTimeNs(void) {
    struct timespec t;
    if (clock_gettime(CLOCK_MONOTONIC_RAW, &t) != 0) return 0;
    return (uint64_t)t.tv_sec * 1000000000u + (uint64_t)t.tv_nsec;
}
