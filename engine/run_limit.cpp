// The run limit.
//
// tav_sr2_RunLimit_passed(timer, stage): elapsed microseconds of the timer above
//   tav_sr2_run_limit_us. A timer that never started reads 0 and never passes. The check is a
//   comparison between stages; nothing interrupts a stage that is running.
#include "engine/run_limit.h"

#include "foundation/log.h"

uint32_t tav_sr2_run_limit_us = TAV_SR2_RUN_LIMIT_US;

bool tav_sr2_RunLimit_passed(const tav_sr2_Stopwatch* timer, int32_t stage) {
    const uint32_t elapsed = tav_sr2_Stopwatch_elapsedUs(timer);
    if (elapsed <= tav_sr2_run_limit_us) return false;
    tav_sr2_log_w("TIMEOUT!!(%d) %lf > %lf\n", stage, elapsed / 1000.0,
                  tav_sr2_run_limit_us / 1000.0);
    return true;
}
