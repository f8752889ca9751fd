// The rectangle that the well-aligned frames of a burst all cover, and the window of the merged
// picture that the final scaling enlarges so that the uncovered border falls outside the output.
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"
#include "foundation/image.h"
#include "foundation/trans2d.h"

struct tav_sr2_ValidRectInput {
    const tav_sr2_Trans2D* transforms;  // per frame slot: base to frame, crop coordinates
    const uint32_t* align_status;       // per frame slot: 0 for a good alignment
    int32_t frame_count;
    int32_t large_move_ratio_thres;  // percent of the frame a counted frame must cover
    tav_sr2_Rect clip_rect;          // the area of interest; the start value
    int32_t frame_width;             // W, H: the frames as alignment saw them
    int32_t frame_height;
};

// The valid rectangle, as left, top, right, bottom. With fewer than 2 frames it is clip_rect as
// it stands. Otherwise each frame slot below frame_count with a zero status projects the frame's
// corners back into the base (through the inverse transform), one pixel inside, truncating each
// coordinate; a frame whose rectangle is not empty and covers at least
// (W * H * large_move_ratio_thres) / 100 pixels (32-bit product, truncating division) narrows the
// result. The result is then made symmetric in clip_rect (the wider margin on both sides), with
// left and top rounded up and right and bottom rounded down to even.
void tav_sr2_validRect(const tav_sr2_ValidRectInput* in, tav_sr2_Rect* rect);

struct tav_sr2_ScaleWindowInput {
    tav_sr2_Rect zoom_rect;  // zoom_rect_in_clip
    tav_sr2_Rect valid;      // from tav_sr2_validRect
    double zoom_ratio;       // the zoom the host asked for
    double internal_zoom;    // z: the zoom the picture was merged at
    int32_t output_width;
    int32_t output_height;
    int32_t picture_width;  // the merged picture the window is cut from
    int32_t picture_height;
};

// The final scale: r = max(zoom width / valid width, zoom height / valid height, 1.0), ratio =
// zoom_ratio * r / internal_zoom. The window is (output / ratio + 0.5) truncated, rounded down to
// even and limited to 0..picture size, centred with an even offset
// ((picture - size) >> 1) & ~1. Returns the ratio; the window as left, top, right, bottom. An
// empty valid rectangle counts as an endless shrink factor: the window comes out empty.
double tav_sr2_scaleWindow(const tav_sr2_ScaleWindowInput* in, tav_sr2_Rect* window);

// calc_auto_scale_ratio: the valid rectangle over the pipeline's transforms and statuses, with
// the crop as the frame size, then the window of a picture_width x picture_height merged picture
// at the pipeline's zoom and internal zoom. valid (may be null) receives the rectangle, window
// the window. TAV_ERROR_PARAM for a null pipeline or window.
uint32_t tav_sr2_Pipeline_calcAutoScale(const tav_sr2_Pipeline* self, int32_t picture_width,
                                        int32_t picture_height, tav_sr2_Rect* valid,
                                        tav_sr2_Rect* window);
