// The run limit: a run that has taken longer than this skips its remaining improvement stages
// and only writes its output.
#pragma once

#include <stdint.h>

#include "foundation/stopwatch.h"

// 10 s, the built-in limit of a run, in microseconds.
static const uint32_t TAV_SR2_RUN_LIMIT_US = 10000000;

// The limit every run is held to. Tests shorten it to reach the time-out path in milliseconds;
// nothing else writes it. The library hides it (no export).
extern uint32_t tav_sr2_run_limit_us;

// Whether the run timed by `timer` has passed the limit. When it has, logs
// "TIMEOUT!!(%d) %lf > %lf\n" with `stage`, the elapsed and the limit in milliseconds.
bool tav_sr2_RunLimit_passed(const tav_sr2_Stopwatch* timer, int32_t stage);
