// tav_sr2_Upscaler: the 2x enlargement that keeps edges, and the polyphase resampler for any other
// ratio.
//
// Pattern upscaler. Each source pixel's 3 x 3 neighbourhood is classified into one of 3^8 = 6561
// patterns: every neighbour, in reading order, gives a digit, 2 when the centre is brighter by
// more than pattern_threshold, 1 when the neighbour is, else 0, and the first neighbour is the
// most significant. The pattern's filter (100 i16 in Q12: 5 rows of 5 taps, each tap with one
// value per output pixel (2x, 2y), (2x + 1, 2y), (2x, 2y + 1), (2x + 1, 2y + 1)) turns the 5 x 5
// window around the pixel into its 2 x 2 outputs. Rows and columns beyond the image repeat the
// edge. The filters come from two trained banks (merge/pattern_banks.h), blended once per set-up.
//
// Resampler. An 8-tap filter on the source offsets -3 .. +4 from a 256-phase table: destination
// coordinate i reads the source at P = ((src - dst + 2 src i) << 15) / (2 dst) in Q15, which
// aligns pixel centres. Rows first into a 16-bit row buffer, then columns, rounded and clamped.
//
// tav_sr2_Upscaler_init(u, pool): clears the record, binds the pool; no workers (set
//   `resize.threads` and `resize.tasks` to spread the rows). Never fails but for a null record.
// tav_sr2_Upscaler_finish(u): releases the phase table and the blended filters.
// tav_sr2_Upscaler_reset(u): releases what exists, threshold 0, a phase table of mode 0 with
//   B = 0 and C = 1, the filters of bank 0 used in place. TAV_ERROR_MALLOC without the table.
// tav_sr2_Upscaler_setKernel(u, kernel): refills the phase table: mode 0 Mitchell-Netravali
//   cubic (B, C), 2 Lanczos 2, 3 Lanczos 3. TAV_ERROR_PARAM for another mode or before reset.
// tav_sr2_Upscaler_blendBanks(u, t): t in 0 .. 0.5; each pattern gets its own pool copy
//   ((256 - n) bank0 + n bank1) >> 8 with n = trunc(512 t). TAV_ERROR_PARAM for t outside the
//   range; TAV_ERROR_MALLOC when the pool runs short, with the filters of bank 0 in place.
// tav_sr2_Upscaler_setThreshold(u, v): TAV_ERROR_PARAM for a negative v.
// tav_sr2_Upscaler_upscale2x(u, dst, src): dst exactly twice src; 8-bit luma (UINT8 or the luma
//   of formats 48, 49).
// tav_sr2_Upscaler_resample(u, dst, src): luma of any sizes; 8-bit (UINT8, 48, 49) or 10 bits in
//   16-bit words (UINT16, 52, 53), the deep form clamped to 0 .. 1023.
// tav_sr2_Upscaler_resampleChroma(u, dst, src): the same on the interleaved chroma pairs of
//   formats 48, 49, 52, 53 (or UINT88 / UINT1616 planes), each channel on its own.
// tav_sr2_Upscaler_scaleLuma(u, dst, src): equal sizes copy the luma; exactly twice upscales;
//   at least 1.6 times both ways upscales into a pool temporary of twice the source and
//   resamples that; otherwise resamples.
// The operations on images answer TAV_ERROR_PARAM for null or empty images, sizes that do not
// fit (Q15 positions need sides below 32768) or a missing phase table; TAV_ERROR_UNSUPPORTED for
// formats they do not take or a source and destination of different depths; TAV_ERROR_MALLOC
// when the pool cannot give their row buffers, with dst unwritten.
#pragma once

#include <stdint.h>

#include "enhance/image_ctx.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "merge/upscaler_rows.h"

static const int32_t TAV_SR2_PATTERN_COUNT = 6561;  // 3^8
static const int32_t TAV_SR2_PATTERN_TAPS = 100;    // 5 x 5 taps x 4 outputs, Q12
static const int32_t TAV_SR2_PHASES = 256;
static const int32_t TAV_SR2_PHASE_TAPS = 8;

struct tav_sr2_UpscaleKernel {
    int32_t mode;  // 0 cubic, 2 Lanczos 2, 3 Lanczos 3
    double b;      // cubic parameters; unused by the Lanczos modes
    double c;
};

struct tav_sr2_Upscaler {
    const int16_t* patterns[TAV_SR2_PATTERN_COUNT];  // the filter of each pattern
    int16_t* kernel_table;                           // 256 phases x 8 taps, Q14, from the pool
    tav_sr2_ImageCtx resize;                         // pool and workers of the image operations
    int32_t owned;                                   // nonzero: `patterns` point to pool copies
    int32_t presmooth;  // 0 in the engine: classify on the picture itself
    int32_t pattern_threshold;
    tav_sr2_MemPool* pool;
    const tav_sr2_UpscaleRowOps* rows;  // row kernels; the vector table by default
};

uint32_t tav_sr2_Upscaler_init(tav_sr2_Upscaler* u, tav_sr2_MemPool* pool);
uint32_t tav_sr2_Upscaler_finish(tav_sr2_Upscaler* u);
uint32_t tav_sr2_Upscaler_reset(tav_sr2_Upscaler* u);
uint32_t tav_sr2_Upscaler_setKernel(tav_sr2_Upscaler* u, const tav_sr2_UpscaleKernel* kernel);
uint32_t tav_sr2_Upscaler_blendBanks(tav_sr2_Upscaler* u, double t);
uint32_t tav_sr2_Upscaler_setThreshold(tav_sr2_Upscaler* u, int32_t v);
uint32_t tav_sr2_Upscaler_upscale2x(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src);
uint32_t tav_sr2_Upscaler_resample(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                   const tav_sr2_Image* src);
uint32_t tav_sr2_Upscaler_resampleChroma(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                         const tav_sr2_Image* src);
uint32_t tav_sr2_Upscaler_scaleLuma(tav_sr2_Upscaler* u, tav_sr2_Image* dst,
                                    const tav_sr2_Image* src);

// The phase table of a kernel, 256 x 8 Q14 taps, into `table`. false for an unknown mode.
bool tav_sr2_Upscaler_fillPhases(const tav_sr2_UpscaleKernel* kernel, int16_t* table);
