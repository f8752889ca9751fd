// The work crop and the windows inside it.
//
// tav_sr2_WorkCrop_extent(d): 128 below 1280, 512 from 5140 on, else d/10 with bit 0 cleared.
// tav_sr2_WorkCrop_compute(...): the crop rectangle in frame coordinates. The zoom window is
//   trunc(output / zoom) in float, as the engine holds its zoom in float.
// tav_sr2_WorkCrop_zoomRect(...): the exact zoom window in crop coordinates, limited to the crop.
// tav_sr2_WorkCrop_areaOfInterest(...): the zoom window at a zoom of at most 10, grown by 16 on
//   each side, its left and top rounded up and its right and bottom down to multiples of 8.
#include "engine/work_crop.h"

namespace {

int32_t cropLength(int32_t frame, int32_t output, float zoom, int32_t floor) {
    const int32_t window = static_cast<int32_t>(static_cast<float>(output) / zoom);
    const int32_t length = (tav_sr2_WorkCrop_extent(frame) + window) & ~7;
    return length > floor ? length : floor;
}

// Start of the crop along one dimension: even, and never before the frame.
int32_t cropStart(int32_t center, int32_t length) {
    const int32_t start = (center - length / 2) & ~1;
    return start > 0 ? start : 0;
}

int32_t min32(int32_t a, int32_t b) {
    return a < b ? a : b;
}
int32_t max32(int32_t a, int32_t b) {
    return a > b ? a : b;
}

}  // namespace

int32_t tav_sr2_WorkCrop_extent(int32_t d) {
    if (d < TAV_SR2_CROP_SMALL_FRAME) return 128;
    if (d >= TAV_SR2_CROP_LARGE_FRAME) return 512;
    return (d / 10) & ~1;
}

void tav_sr2_WorkCrop_compute(int32_t input_width, int32_t input_height, int32_t output_width,
                              int32_t output_height, float zoom, int32_t center_x, int32_t center_y,
                              tav_sr2_Rect* crop) {
    const int32_t width = cropLength(input_width, output_width, zoom, TAV_SR2_CROP_MIN_WIDTH);
    const int32_t height = cropLength(input_height, output_height, zoom, TAV_SR2_CROP_MIN_HEIGHT);
    crop->left = cropStart(center_x, width);
    crop->top = cropStart(center_y, height);
    crop->right = min32(crop->left + width, input_width);
    crop->bottom = min32(crop->top + height, input_height);
}

void tav_sr2_WorkCrop_zoomRect(int32_t clip_width, int32_t clip_height, int32_t cx, int32_t cy,
                               int32_t output_width, int32_t output_height, double zoom,
                               tav_sr2_Rect* rect) {
    const int32_t w = static_cast<int32_t>(output_width / zoom);
    const int32_t h = static_cast<int32_t>(output_height / zoom);
    rect->left = max32(0, cx - w / 2);
    rect->right = min32(cx - w / 2 + w, clip_width);
    rect->top = max32(0, cy - h / 2);
    rect->bottom = min32(cy - h / 2 + h, clip_height);
}

void tav_sr2_WorkCrop_areaOfInterest(int32_t clip_width, int32_t clip_height, int32_t cx,
                                     int32_t cy, int32_t output_width, int32_t output_height,
                                     double zoom, tav_sr2_Rect* rect) {
    const double z = zoom < TAV_SR2_AOI_MAX_ZOOM ? zoom : TAV_SR2_AOI_MAX_ZOOM;
    const int32_t w = static_cast<int32_t>(output_width / z);
    const int32_t h = static_cast<int32_t>(output_height / z);
    const int32_t m = TAV_SR2_AOI_MARGIN;
    const int32_t down = ~(TAV_SR2_AOI_GRID - 1);
    rect->left = (max32(0, cx - w / 2 - m) + TAV_SR2_AOI_GRID - 1) & down;
    rect->right = min32(cx - w / 2 + w + m, clip_width) & down;
    rect->top = (max32(0, cy - h / 2 - m) + TAV_SR2_AOI_GRID - 1) & down;
    rect->bottom = min32(cy - h / 2 + h + m, clip_height) & down;
}
