// Tracking the templates of a level into the current image: each template's reference position
// is projected through the level's transform and refined by the matcher of its kind.
#pragma once

#include <stdint.h>

#include "alignment/templates.h"
#include "alignment/tracking_rows.h"
#include "foundation/image.h"
#include "foundation/thread_pool.h"
#include "foundation/trans2d.h"

// Lucas-Kanade with the template's gradients in 1/32 pixel steps from the Q15 start (px, py).
// Writes the Q15 result, or TAV_TRACK_LOST in both coordinates. Returns the rounds it ran.
int32_t tav_sr2_GradientTemplate_match(const tav_sr2_GradientTemplate* t,
                                       const tav_sr2_Image* image, int32_t px, int32_t py,
                                       int32_t radius, const tav_sr2_TrackRows* rows, int32_t* x,
                                       int32_t* y);
// Spiral search of whole pixel positions around the start under zero-mean absolute difference.
// Writes the best position (Q15) and the uniqueness score; returns false, writing nothing, when
// the search square does not fit inside the image.
bool tav_sr2_PixelTemplate_match(const tav_sr2_PixelTemplate* t, const tav_sr2_Image* image,
                                 int32_t px, int32_t py, int32_t radius, int32_t* x, int32_t* y,
                                 int32_t* score);
// Zero-mean absolute difference of the template and the 7 x 7 window centred on (cx, cy).
int64_t tav_sr2_PixelTemplate_cost(const tav_sr2_PixelTemplate* t, const tav_sr2_Image* image,
                                   int32_t cx, int32_t cy);

// Fills match_x, match_y and score of every template and clears inlier. With a thread pool and
// more than 64 templates the set is cut in 16 jobs. TAV_ERROR_PARAM for a null argument.
uint32_t tav_sr2_TemplateSet_track(tav_sr2_TemplateSet* set, const tav_sr2_Image* image,
                                   const tav_sr2_Trans2D* transform,
                                   const tav_sr2_TrackRadii* radii,
                                   tav_sr2_ThreadPool* thread_pool);
// The same with a chosen correlation kernel.
uint32_t tav_sr2_TemplateSet_trackWithRows(tav_sr2_TemplateSet* set, const tav_sr2_Image* image,
                                           const tav_sr2_Trans2D* transform,
                                           const tav_sr2_TrackRadii* radii,
                                           tav_sr2_ThreadPool* thread_pool,
                                           const tav_sr2_TrackRows* rows);
