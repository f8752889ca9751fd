// tav_sr2_Pipeline_align: the alignment of a burst, one homography per frame. The engine
// declares the same function in engine/pipeline_align.h, its view of this stage.
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"
#include "engine/pipeline_align.h"

// Estimates, for every frame in frame_order after the base, the transform from base to frame
// coordinates (clip pixels) into align_transforms, and the estimator's verdict into align_status.
// A frame with a nonzero verdict keeps the identity and counts in align_fail_count; when every
// frame but the base has failed, frame_count drops to 1. Runs tav_sr2_Pipeline_selectFrames
// first. Returns 0, or the first failing status of the estimator, a view or the work image (the
// burst is then abandoned by the caller).
uint32_t tav_sr2_Pipeline_align(tav_sr2_Pipeline* self);
