// tav_sr2_process: one run of the engine over the frames taken in.
#pragma once

#include <stdint.h>

#include "engine/engine.h"
#include "src/tavrin_keld.h"

// Writes the run's result into the host's output record, which must hold frames of the engine's
// format (YUV420_SEMIPLANAR for the packed 10-bit input). TAV_ERROR_PARAM for a null handle,
// engine, output or output plane 0; TAV_ERROR_UNSUPPORTED for an engine format other than 48,
// 49 or 62; TAV_ERROR_GENERIC when the record does not fit that format. Otherwise the OR of the
// alignment's and the main loop's results (TAV_ERROR_TIMEOUT among them, with the output
// written). Afterwards the frame cursor is 0 and the engine counts as processed.
uint32_t tav_sr2_process(tav_sr2_Engine** handle, const tavrin_KELD_Image* output);
