// Frame intake: a frame of the burst into the engine, wrapped (or, for the packed 10-bit input,
// converted), cut to the work crop and scored for the choice of frames.
#pragma once

#include <stdint.h>

#include "engine/engine.h"
#include "engine/pipeline.h"
#include "foundation/image.h"
#include "src/tavrin_keld.h"

// sqrt(2), the ratio of the two blurs of the sharpness measure.
static const double TAV_SR2_SQRT2 = 1.4142135623730951;

// Takes one host frame. TAV_ERROR_PARAM for a null handle, engine or image, a size below 1 or a
// null plane 0; TAV_ERROR_STATE before start. Any later failure, a frame beyond the engine's
// slots among them, gives TAV_ERROR_GENERIC and leaves the count of frames as it was. The frame's
// pixels stay the host's unless its format is YUV10B_PACKED_LE_420S: that one is converted into
// a pool image of YUV420_SEMIPLANAR.
uint32_t tav_sr2_addImage(tav_sr2_Engine** handle, const tavrin_KELD_Image* image);

// Records a crop view of a frame in the pipeline and measures it: the sharpness of the centre
// half of its (shrunk) luma when select_frame is set, the mean of its luma when
// removebrightnessdiff_image_enable is set; a score not measured is 0. The first frame after a
// run resets the run. TAV_ERROR_PARAM for null arguments, TAV_ERROR_STATE when all slots are
// taken, else the failure of a measure (the frame is then not counted).
uint32_t tav_sr2_Pipeline_addImage(tav_sr2_Pipeline* self, const tav_sr2_Image* clip_view);

// Runs the choice of frames (once per run) and gives the base frame, frame_order[0].
// TAV_ERROR_PARAM for a null handle, engine or base; TAV_ERROR_STATE before the first frame.
uint32_t tav_sr2_getBaseImage(tav_sr2_Engine** handle, int32_t* base);
