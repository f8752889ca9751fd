// The work crop: the part of each frame that every stage after intake sees, and the two windows
// inside it, the exact zoom window and the area of interest around it.
//
// One set of rules, computed anew wherever it is needed (buffer sizing, start, frame intake, face
// filtering), so that all of them agree on the same rectangle.
#pragma once

#include <stdint.h>

#include "foundation/image.h"

// The smallest crop, and the frame sizes where the margin ext(d) changes rule.
static const int32_t TAV_SR2_CROP_MIN_WIDTH = 1280;
static const int32_t TAV_SR2_CROP_MIN_HEIGHT = 960;
static const int32_t TAV_SR2_CROP_SMALL_FRAME = 1280;
static const int32_t TAV_SR2_CROP_LARGE_FRAME = 5140;
// The area of interest: a margin around the zoom window, on a grid, sized as for this zoom at most.
static const int32_t TAV_SR2_AOI_MARGIN = 16;
static const int32_t TAV_SR2_AOI_GRID = 8;
static const double TAV_SR2_AOI_MAX_ZOOM = 10.0;

// ext(d): the margin the crop keeps beyond the zoom window along a frame dimension d.
int32_t tav_sr2_WorkCrop_extent(int32_t d);

// The crop of a frame of input_width x input_height around (center_x, center_y) for an output of
// output_width x output_height at zoom. The unclipped crop size is a multiple of 8 and at least
// 1280 x 960; the left and top edges are even and not negative; right and bottom are limited by
// the frame.
void tav_sr2_WorkCrop_compute(int32_t input_width, int32_t input_height, int32_t output_width,
                              int32_t output_height, float zoom, int32_t center_x, int32_t center_y,
                              tav_sr2_Rect* crop);

// The window the zoom asks for, inside a crop of clip_width x clip_height, centred on (cx, cy) in
// crop coordinates.
void tav_sr2_WorkCrop_zoomRect(int32_t clip_width, int32_t clip_height, int32_t cx, int32_t cy,
                               int32_t output_width, int32_t output_height, double zoom,
                               tav_sr2_Rect* rect);

// The area of interest: the zoom window (at a zoom of at most 10) with a margin of 16 pixels,
// its edges moved inwards onto the grid of 8.
void tav_sr2_WorkCrop_areaOfInterest(int32_t clip_width, int32_t clip_height, int32_t cx,
                                     int32_t cy, int32_t output_width, int32_t output_height,
                                     double zoom, tav_sr2_Rect* rect);
