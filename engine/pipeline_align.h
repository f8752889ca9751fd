// Alignment of a burst: the engine's view of it. The definition lives in the alignment subsystem
// (alignment/align_driver.cpp).
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"

// Chooses and orders the frames (tav_sr2_Pipeline_selectFrames), then fills align_transforms
// and align_status for the frames of positions 0 .. frame_count - 1 of frame_order: a transform
// from base to frame in crop coordinates, the identity with a nonzero status for a frame that
// failed. When all frames but the base failed, frame_count becomes 1. Returns 0 or the first
// failing status of the estimator.
uint32_t tav_sr2_Pipeline_align(tav_sr2_Pipeline* self);
