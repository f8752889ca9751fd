// The two luma stages after sharpening: contrast enhancement and structure enhancement.
//
// tav_sr2_Contrast_run(ctx, frame, gain, sigma): in place on the luma of a frame (48, 49, 52, 53),
//   q = the luma blurred at sigma, d = y - q, three quarters of d where it brightens,
//   out = max(y + ((512 + d gain) >> 10), 0) limited to 255 (8-bit) or 32767 (10-bit: later
//   stages limit). gain is Q10. A gain of 0 leaves the frame alone. TAV_ERROR_UNSUPPORTED for
//   another format; the blur's status (TAV_SR2_ROWS_MISSING without its rows), nothing written.
//
// tav_sr2_ImageEffect: a dispatcher over five effect modes, of which this system builds mode 4,
//   the structure enhancement: low = the guided filter of the luma (window 21, eps_low), and
//   when eps_high > 0 high = the same at eps_high;
//     with high: out = (32 y + 16 + (((low - high) s) >> 5)) >> 5,
//     without:   out = y + ((s 32 (y - low) + 16384) >> 15),
//   limited to 0..255 or 0..1023, s = strength (Q10, at most 1024; 0 copies the source). An
//   8-bit frame may carry a mask (UINT8 or UINT16, any size), resized to the frame, whose value
//   >> 5 (at most 1024) replaces s per pixel; the 10-bit form refuses one.
//   run(effect, dst, src, mode, params): equal sizes and formats; when they differ the chroma is
//   copied. TAV_ERROR_PARAM for a mode above 4, another size, a null argument or a strength above
//   1024; TAV_ERROR_UNSUPPORTED for another format, a mask on 10 bits, or modes 0 to 3 (not built
//   here: nothing in the pipeline runs them).
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"

struct tav_sr2_StructureParams {
    double eps_low;
    double eps_high;
    int32_t strength;  // Q10
    const tav_sr2_Image* mask;
};

struct tav_sr2_ImageEffect {
    tav_sr2_MemPool* pool;
    tav_sr2_TaskSys* tasks;
    tav_sr2_ThreadPool* threads;
};

uint32_t tav_sr2_Contrast_run(const tav_sr2_ImageCtx* ctx, tav_sr2_Image* frame, int32_t gain,
                              double sigma);

// Fills the parameter record of a mode; for mode 4 eps_low 500, eps_high 0, strength 0, no mask.
// The records of modes 0 to 3 are not built: TAV_ERROR_UNSUPPORTED.
uint32_t tav_sr2_ImageEffect_defaults(int32_t mode, tav_sr2_StructureParams* params);
uint32_t tav_sr2_ImageEffect_init(tav_sr2_ImageEffect* effect, tav_sr2_MemPool* pool);
uint32_t tav_sr2_ImageEffect_setThreads(tav_sr2_ImageEffect* effect, tav_sr2_TaskSys* tasks,
                                        tav_sr2_ThreadPool* threads);
uint32_t tav_sr2_ImageEffect_run(tav_sr2_ImageEffect* effect, tav_sr2_Image* dst,
                                 const tav_sr2_Image* src, int32_t mode,
                                 const tav_sr2_StructureParams* params);
uint32_t tav_sr2_ImageEffect_finish(tav_sr2_ImageEffect* effect);
