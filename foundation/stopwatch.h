// tav_sr2_Stopwatch: times a run on CLOCK_MONOTONIC_RAW, with pauses left out.
//
// The two clock readings live in a 32-byte block from the engine's pool. `accumulated` holds the
// start time moved forward over every pause, so the elapsed time is simply now - accumulated
// while running, and started - accumulated while paused.
#pragma once

#include <stdint.h>
#include <time.h>

#include "foundation/mem_pool.h"
#include "foundation/status.h"

struct tav_sr2_StopwatchTimes {
    struct timespec accumulated;  // start time, moved forward by every pause
    struct timespec started;      // time of the last pause
};
static_assert(sizeof(tav_sr2_StopwatchTimes) == 32, "the stopwatch block is 32 bytes");

// States of a stopwatch.
static const uint32_t TAV_SR2_STOPWATCH_IDLE = 0;
static const uint32_t TAV_SR2_STOPWATCH_RUNNING = 1;
static const uint32_t TAV_SR2_STOPWATCH_PAUSED = 2;

struct tav_sr2_Stopwatch {
    uint32_t state;
    tav_sr2_StopwatchTimes* times;
    tav_sr2_MemPool* pool;
};

uint32_t tav_sr2_Stopwatch_init(tav_sr2_Stopwatch* sw, tav_sr2_MemPool* pool);
uint32_t tav_sr2_Stopwatch_finish(tav_sr2_Stopwatch* sw);
uint32_t tav_sr2_Stopwatch_reset(tav_sr2_Stopwatch* sw);
uint32_t tav_sr2_Stopwatch_start(tav_sr2_Stopwatch* sw);
uint32_t tav_sr2_Stopwatch_pause(tav_sr2_Stopwatch* sw);
uint32_t tav_sr2_Stopwatch_clear(tav_sr2_Stopwatch* sw);
// Elapsed whole microseconds, wrapping after about 71 minutes; 0 unless running or paused.
uint32_t tav_sr2_Stopwatch_elapsedUs(const tav_sr2_Stopwatch* sw);

// to - from in microseconds, the nanosecond part rounded to nearest, wrapped to 32 bits.
uint32_t tav_sr2_Stopwatch_diffUs(const struct timespec* from, const struct timespec* to);

// CLOCK_MONOTONIC_RAW in nanoseconds; 0 when the clock cannot be read.
uint64_t tav_sr2_getTimeNs(void);
