// Base frame choice: which frame is the reference, which frames are merged and in which order.
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"

// Brightness, in luma levels, beyond which a frame does not fit the reference.
static const float TAV_SR2_BRIGHTNESS_LIMIT = 3.0f;

// The inputs of the choice, as plain arrays indexed by frame slot.
struct tav_sr2_FrameChoice {
    const int32_t* sharpness;  // frame_count entries
    const float* brightness;   // frame_count entries
    int32_t frame_count;       // n, limited to 0..TAV_SR2_PIPELINE_FRAMES
    int32_t merge_cap;         // most frames that may be merged
    int32_t base_id;           // forced base frame when in 0..n-1
    int32_t select_frame;      // not 0: sort by sharpness and drop blurred frames
    double sharpness_skip_ratio;
    int32_t removebrightnessdiff_image_enable;
};

// Fills order (TAV_SR2_PIPELINE_FRAMES entries: positions 0..n-1 hold the frames, base first,
// the later ones their own index) and returns the number of frames to merge:
//  1. the frames in slot order; a forced base moves to the front and is locked there;
//  2. with the brightness check, the reference R is the median brightness when no base is
//     forced, else the base's; a forced base that differs by more than 3.0 from at least n - 3
//     of the others is itself out of step: R becomes the median and the base is unlocked (so a
//     burst of up to three frames never keeps its forced base locked);
//  3. frames that differ from R by more than 3.0 move to the end, out of the count;
//  4. with select_frame the unlocked frames are sorted by sharpness, highest first and stable,
//     and from the end the frames at or below trunc(ratio * sharpness of the first unlocked
//     frame) are dropped; position 0 never is;
//  5. the count is limited to merge_cap.
int32_t tav_sr2_chooseFrames(const tav_sr2_FrameChoice* choice, int32_t* order);

// Median of n brightness values: sorted from the largest, the element at n / 2 for odd n, the
// mean of the elements n / 2 and n / 2 - 1 for even n; 0 for no value.
float tav_sr2_medianBrightness(const float* brightness, int32_t n);

// The first call of a run chooses over the pipeline's scores and tuning, stores frame_order and
// the new frame_count and sets order_ready; later calls keep the stored result. order (null, or
// TAV_SR2_PIPELINE_FRAMES entries) receives a copy of frame_order unless it is that array.
// TAV_ERROR_PARAM for a null pipeline; otherwise TAV_OK.
uint32_t tav_sr2_Pipeline_selectFrames(tav_sr2_Pipeline* self, int32_t* order);
