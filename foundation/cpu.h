// Processor count and thread placement.
//
// Masks name cores by bit (bit n = core n), as on the phone (240 = cores 4 to 7). On a host the
// mask is first intersected with the CPUs the process may use; when nothing is left, the thread
// runs unrestricted on all of them. A failed placement is reported but is never fatal: callers
// go on where the thread happens to be.
#pragma once

#include <stdint.h>

#include "foundation/status.h"

// Configured processors (sysconf); 1 when the system says less than 2.
int32_t tav_sr2_getProcessorCount(void);

// Moves the calling thread onto the cores of `mask`. 0, or TAV_ERROR_BUFFER (0xC0000000) when
// the system refuses.
uint32_t tav_sr2_setAffinity(uint32_t mask);

#ifdef TAVRIN_FAULT_INJECTION
// Test builds only: the next `count` calls of tav_sr2_setAffinity fail without touching the
// thread. tav_sr2_setAffinity_callCount counts calls since the last inject call.
void tav_sr2_setAffinity_injectFailure(uint32_t count);
uint32_t tav_sr2_setAffinity_callCount(void);
#endif
