// tav_sr2_MotionEstimator.
//
// tav_sr2_MotionEstimator_init: clears the record to its defaults. TAV_ERROR_PARAM for null.
// tav_sr2_MotionEstimator_configure: releases an earlier configuration and sizes the object for
//   width x height. An empty region becomes the whole image; a region outside it is
//   TAV_ERROR_PARAM. scale_step < 1 is computed as the largest s - 1 with (h / s) (w / s) still
//   >= max_pixels (a max_pixels below 1 gives 1 and TAV_ERROR_PARAM); level_count < 1 as the
//   smallest k with (w0 >> k) (h0 >> k) < min_top_pixels, at least 1 (past 99:
//   TAV_ERROR_PARAM). Level k + 1 is ((w - 2) >> 1) x ((h - 2) >> 1) of level k, which shrinks
//   faster than the count assumed: the count stays. Each level gets its two images, a template
//   set and a motion model of `motion_model` for two images. Any failure to allocate releases
//   everything and adds TAV_ERROR_MALLOC.
// tav_sr2_MotionEstimator_setReference: builds the reference pyramid, detects corners on every
//   level (49 or fewer below the top level set bit 1 of `status`) and builds the templates;
//   `current` becomes the identity, `prev_top` a copy of the top level, and the random state is
//   seeded from four pixels of level 0. TAV_ERROR_STATE before configure.
// tav_sr2_MotionEstimator_estimate: block search on the top level, then for each tracked level
//   from the coarsest down: track, fit and judge (tav_sr2_MotionModel_fitLevel), hand the
//   transform one level down. Quality flags go to `status`; the result is an error only when a
//   call inside fails.
// tav_sr2_MotionEstimator_getResult: `current` taken from level 0 to input coordinates.
// tav_sr2_MotionEstimator_finish: releases everything and clears the record but for its pool.
#include "alignment/motion_estimator.h"

#include <string.h>

#include "alignment/block_search.h"
#include "alignment/motion_model.h"
#include "alignment/pyramid.h"
#include "alignment/tracking.h"

namespace {

constexpr int32_t kMaxLevels = 99;
constexpr int32_t kFewCorners = 49;
constexpr uint32_t kSeed = 12345678u;
constexpr int32_t kImagesPerModel = 2;

int64_t alignUp(int64_t n) {
    return (n + 15) & ~(int64_t)15;
}

// One pool block holds every per-level record; this is its layout for n levels. The block
// starts with the level count it was made for, so that a release never trusts a level_count the
// caller may have changed since.
struct LevelBlock {
    int64_t ref, cur, models, templates, start, result, stats, total;
};
constexpr int64_t kBlockHeader = 16;

LevelBlock levelBlock(int64_t n) {
    LevelBlock b;
    b.ref = kBlockHeader;
    b.cur = b.ref + alignUp(n * (int64_t)sizeof(tav_sr2_Image));
    b.models = b.cur + alignUp(n * (int64_t)sizeof(tav_sr2_Image));
    b.templates = b.models + alignUp(n * (int64_t)sizeof(tav_sr2_MotionModel));
    b.start = b.templates + alignUp(n * (int64_t)sizeof(tav_sr2_TemplateSet));
    b.result = b.start + alignUp(n * (int64_t)sizeof(tav_sr2_Trans2D));
    b.stats = b.result + alignUp(n * (int64_t)sizeof(tav_sr2_Trans2D));
    b.total = b.stats + alignUp(n * TAV_SR2_LEVEL_STATS * (int64_t)sizeof(int32_t));
    return b;
}

void releaseLevels(tav_sr2_MotionEstimator* est) {
    if (est->ref_pyramid != nullptr) {
        uint8_t* block = reinterpret_cast<uint8_t*>(est->ref_pyramid) - kBlockHeader;
        int32_t n;
        memcpy(&n, block, sizeof n);
        for (int32_t k = 0; k < n; ++k) {
            tav_sr2_Image_finish(&est->ref_pyramid[k]);
            tav_sr2_Image_finish(&est->cur_pyramid[k]);
            tav_sr2_TemplateSet_finish(&est->templates[k]);
            tav_sr2_MotionModel_finish(&est->models[k]);
        }
        tav_sr2_MemPool_free(est->pool, block);
    }
    tav_sr2_Image_finish(&est->prev_top);
    tav_sr2_Image_init(&est->prev_top, est->pool);
    est->ref_pyramid = est->cur_pyramid = nullptr;
    est->models = nullptr;
    est->templates = nullptr;
    est->level_start = est->level_result = nullptr;
    est->level_stats = nullptr;
    est->state = TAV_SR2_ESTIMATOR_UNCONFIGURED;
}

uint32_t computeScaleStep(tav_sr2_MotionEstimator* est, int32_t uw, int32_t uh) {
    if (est->max_pixels < 1) {
        est->scale_step = 1;
        return TAV_ERROR_PARAM;
    }
    int32_t s = 2;
    while ((int64_t)(uh / s) * (uw / s) >= est->max_pixels)
        ++s;
    est->scale_step = s - 1;
    return TAV_OK;
}

uint32_t computeLevelCount(tav_sr2_MotionEstimator* est, int32_t w0, int32_t h0) {
    for (int32_t k = 0; k <= kMaxLevels; ++k) {
        const int32_t shift = k < 31 ? k : 31;
        if ((int64_t)(w0 >> shift) * (h0 >> shift) < est->min_top_pixels) {
            est->level_count = k > 1 ? k : 1;
            return TAV_OK;
        }
    }
    return TAV_ERROR_PARAM;
}

// Lays out the per-level records in one block and clears them, so that a release at any later
// point finds only valid records.
uint32_t allocateRecords(tav_sr2_MotionEstimator* est) {
    const int32_t n = est->level_count;
    const LevelBlock b = levelBlock(n);
    uint8_t* block =
        static_cast<uint8_t*>(tav_sr2_MemPool_alloc(est->pool, tav_sr2_MemPool_sizeOf(b.total)));
    if (block == nullptr) return TAV_ERROR_MALLOC;
    memset(block, 0, (size_t)b.total);
    memcpy(block, &n, sizeof n);
    est->ref_pyramid = reinterpret_cast<tav_sr2_Image*>(block + b.ref);
    est->cur_pyramid = reinterpret_cast<tav_sr2_Image*>(block + b.cur);
    est->models = reinterpret_cast<tav_sr2_MotionModel*>(block + b.models);
    est->templates = reinterpret_cast<tav_sr2_TemplateSet*>(block + b.templates);
    est->level_start = reinterpret_cast<tav_sr2_Trans2D*>(block + b.start);
    est->level_result = reinterpret_cast<tav_sr2_Trans2D*>(block + b.result);
    est->level_stats = reinterpret_cast<int32_t*>(block + b.stats);
    for (int32_t k = 0; k < n; ++k) {
        tav_sr2_Image_init(&est->ref_pyramid[k], est->pool);
        tav_sr2_Image_init(&est->cur_pyramid[k], est->pool);
        tav_sr2_TemplateSet_init(&est->templates[k], est->pool);
        tav_sr2_MotionModel_init(&est->models[k], est->pool);
        tav_sr2_Trans2D_identity(&est->level_start[k]);
        tav_sr2_Trans2D_identity(&est->level_result[k]);
    }
    return TAV_OK;
}

uint32_t allocateLevels(tav_sr2_MotionEstimator* est, int32_t w0, int32_t h0) {
    uint32_t status = allocateRecords(est);
    int32_t w = w0, h = h0;
    for (int32_t k = 0; k < est->level_count && status == TAV_OK; ++k) {
        status |= tav_sr2_Image_alloc(&est->ref_pyramid[k], w, h, nullptr, TAV_SR2_FMT_UINT8);
        status |= tav_sr2_Image_alloc(&est->cur_pyramid[k], w, h, nullptr, TAV_SR2_FMT_UINT8);
        if (status == TAV_OK) {
            status |=
                tav_sr2_MotionModel_setKind(&est->models[k], est->motion_model, kImagesPerModel);
        }
        w = tav_sr2_Pyramid_nextSide(w);
        h = tav_sr2_Pyramid_nextSide(h);
    }
    if (status == TAV_OK) {
        const tav_sr2_Image* top = &est->ref_pyramid[est->level_count - 1];
        status = tav_sr2_Image_alloc(&est->prev_top, top->width, top->height, nullptr,
                                     TAV_SR2_FMT_UINT8);
    }
    return status;
}

void copyPixels(tav_sr2_Image* dst, const tav_sr2_Image* src) {
    for (int32_t y = 0; y < src->height && src->width > 0; ++y) {
        memcpy(dst->plane[0] + (int64_t)y * dst->pitch[0],
               src->plane[0] + (int64_t)y * src->pitch[0], (size_t)src->width);
    }
}

uint32_t seedOf(const tav_sr2_Image* level0) {
    const uint8_t* p = level0->plane[0];
    const int64_t pitch = level0->pitch[0];
    const int32_t half_w = level0->width / 2, half_h = level0->height / 2;
    return (uint32_t)p[0] << 24 | (uint32_t)p[half_w] << 16 | (uint32_t)p[half_h * pitch] << 8 |
           (uint32_t)p[half_h * pitch + half_w];
}

uint32_t detectAndBuild(tav_sr2_MotionEstimator* est) {
    tav_sr2_CornerList list;
    uint32_t status = tav_sr2_CornerList_init(&list, est->pool, est->feature_count);
    const int32_t top = est->level_count - 1;
    for (int32_t k = 0; k <= top && status == TAV_OK; ++k) {
        tav_sr2_CornerList_clear(&list);
        status = tav_sr2_CornerList_detect(&list, &est->ref_pyramid[k], est->feature_count,
                                           est->thread_pool);
        if (status != TAV_OK) break;
        if (list.count <= kFewCorners && k != top) est->status |= TAV_ALIGN_WEAK_MATCHES;
        status = tav_sr2_TemplateSet_build(&est->templates[k], &list, &est->ref_pyramid[k],
                                           est->template_mode);
    }
    tav_sr2_CornerList_finish(&list);
    return status;
}

// The first translation: the block search on the top level, against the previous image's top
// level when chained (the step from the previous frame to this one) or else the reference's.
uint32_t searchTopLevel(tav_sr2_MotionEstimator* est, tav_sr2_Trans2D* t) {
    const int32_t top = est->level_count - 1;
    tav_sr2_Image* current_top = &est->cur_pyramid[top];
    if (!est->block_search_chain) {
        return tav_sr2_Align_blockSearch(est, t, &est->ref_pyramid[top], current_top);
    }
    tav_sr2_Trans2D step;
    tav_sr2_Trans2D_identity(&step);
    const uint32_t status = tav_sr2_Align_blockSearch(est, &step, &est->prev_top, current_top);
    if (status != TAV_OK) return status;
    copyPixels(&est->prev_top, current_top);
    return tav_sr2_Trans2D_multiply(t, t, &step);
}

uint32_t trackLevel(tav_sr2_MotionEstimator* est, int32_t k, tav_sr2_Trans2D* t) {
    tav_sr2_TemplateSet* set = &est->templates[k];
    const tav_sr2_TrackRadii radii = {est->track_radius, est->track_radius_pixel};
    uint32_t status =
        tav_sr2_TemplateSet_track(set, &est->cur_pyramid[k], t, &radii, est->thread_pool);
    if (status != TAV_OK) return status;
    const tav_sr2_FitConfig config = {est->fit_method, est->inlier_threshold, est->inlier_ratio,
                                      est->min_mean_score};
    const tav_sr2_MatchView view = {set->count,   set->ref_x, set->ref_y, set->match_x,
                                    set->match_y, set->score, set->inlier};
    const uint32_t bits = tav_sr2_MotionModel_fitLevel(&est->models[k], &config, &view, t,
                                                       &est->level_stats[TAV_SR2_LEVEL_STATS * k]);
    if (tav_sr2_failed(bits)) return bits;
    est->status |= bits;
    return TAV_OK;
}

}  // namespace

void tav_sr2_MotionEstimator_changeLevel(tav_sr2_Trans2D* t, int32_t levels) {
    for (; levels > 0; --levels) {
        t->m[2] *= 0.5;
        t->m[5] *= 0.5;
        t->m[6] *= 2.0;
        t->m[7] *= 2.0;
    }
    for (; levels < 0; ++levels) {
        t->m[2] *= 2.0;
        t->m[5] *= 2.0;
        t->m[6] *= 0.5;
        t->m[7] *= 0.5;
    }
}

uint32_t tav_sr2_MotionEstimator_init(tav_sr2_MotionEstimator* est, tav_sr2_MemPool* pool) {
    if (est == nullptr) return TAV_ERROR_PARAM;
    memset(est, 0, sizeof *est);
    est->max_pixels = 76800;
    est->min_top_pixels = 600;
    est->feature_count = 256;
    est->block_search = 1;
    est->template_mode = TAV_SR2_TEMPLATE_MODE_MIXED;
    est->block_search_chain = 1;
    est->block_search_range = 8192;
    est->track_radius = 3;
    est->track_radius_pixel = 3;
    tav_sr2_Image_init(&est->prev_top, pool);
    est->field_of_view = 61.0;
    est->block_fail_level = 0x40000000;
    est->rng_state = kSeed;
    tav_sr2_Trans2D_identity(&est->current);
    est->refine_template_mode = TAV_SR2_TEMPLATE_MODE_MIXED;
    est->normalize_level0 = 1;
    est->inlier_ratio = 1.0;
    est->inlier_threshold = 3;
    est->pool = pool;
    return TAV_OK;
}

uint32_t tav_sr2_MotionEstimator_configure(tav_sr2_MotionEstimator* est, int32_t width,
                                           int32_t height) {
    if (est == nullptr) return TAV_ERROR_PARAM;
    releaseLevels(est);
    est->width = width;
    est->height = height;
    if (width < 1 || height < 1) return TAV_ERROR_PARAM;
    if (est->roi_x0 >= est->roi_x1 || est->roi_y0 >= est->roi_y1) {
        est->roi_x0 = est->roi_y0 = 0;
        est->roi_x1 = width;
        est->roi_y1 = height;
    }
    if (est->roi_x0 < 0 || est->roi_y0 < 0 || est->roi_x1 > width || est->roi_y1 > height) {
        return TAV_ERROR_PARAM;
    }
    const int32_t uw = est->roi_x1 - est->roi_x0, uh = est->roi_y1 - est->roi_y0;
    uint32_t status = TAV_OK;
    if (est->scale_step < 1) status |= computeScaleStep(est, uw, uh);
    const int32_t w0 = uw / est->scale_step, h0 = uh / est->scale_step;
    if (w0 < 1 || h0 < 1) return status | TAV_ERROR_PARAM;
    if (est->level_count < 1) {
        const uint32_t count_status = computeLevelCount(est, w0, h0);
        if (count_status != TAV_OK) return status | count_status;
    }
    const uint32_t alloc_status = allocateLevels(est, w0, h0);
    if (alloc_status != TAV_OK) {
        releaseLevels(est);
        return status | alloc_status;
    }
    memset(est->level_stats, 0, (size_t)est->level_count * TAV_SR2_LEVEL_STATS * sizeof(int32_t));
    est->rng_state = kSeed;
    est->state = TAV_SR2_ESTIMATOR_CONFIGURED;
    est->status = 0;
    return status;
}

uint32_t tav_sr2_MotionEstimator_setReference(tav_sr2_MotionEstimator* est,
                                              const tav_sr2_Image* image) {
    if (est == nullptr) return TAV_ERROR_PARAM;
    if (est->state == TAV_SR2_ESTIMATOR_UNCONFIGURED) return TAV_ERROR_STATE;
    if (image == nullptr) return TAV_ERROR_PARAM;
    est->status = 0;
    uint32_t status =
        tav_sr2_Pyramid_build(est, image, est->ref_pyramid, tav_sr2_pyramidRowsVector());
    if (status == TAV_OK) status = detectAndBuild(est);
    if (status != TAV_OK) return status;
    tav_sr2_Trans2D_identity(&est->current);
    copyPixels(&est->prev_top, &est->ref_pyramid[est->level_count - 1]);
    est->rng_state = seedOf(&est->ref_pyramid[0]);
    est->state = TAV_SR2_ESTIMATOR_READY;
    return TAV_OK;
}

uint32_t tav_sr2_MotionEstimator_estimate(tav_sr2_MotionEstimator* est,
                                          const tav_sr2_Image* image) {
    if (est == nullptr) return TAV_ERROR_PARAM;
    if (est->state != TAV_SR2_ESTIMATOR_READY) return TAV_ERROR_STATE;
    est->status = 0;
    tav_sr2_Trans2D t = est->current;
    if (est->reset_each_frame) tav_sr2_Trans2D_identity(&t);
    if (image != nullptr) {
        const uint32_t status =
            tav_sr2_Pyramid_build(est, image, est->cur_pyramid, tav_sr2_pyramidRowsVector());
        if (status != TAV_OK) return status;
    }
    const int32_t top = est->level_count - 1;
    tav_sr2_MotionEstimator_changeLevel(&t, top);
    est->level_start[top] = t;
    if (est->block_search > 0) {
        const uint32_t status = searchTopLevel(est, &t);
        if (status != TAV_OK) return status;
    }
    est->level_result[top] = t;
    const int32_t first = est->block_search >= 0 ? top - 1 : top;
    for (int32_t k = first; k >= 0; --k) {
        if (k != top) tav_sr2_MotionEstimator_changeLevel(&t, -1);
        est->level_start[k] = t;
        const uint32_t status = trackLevel(est, k, &t);
        if (status != TAV_OK) return status;
        est->level_result[k] = t;
    }
    est->current = t;
    return TAV_OK;
}

uint32_t tav_sr2_MotionEstimator_getResult(const tav_sr2_MotionEstimator* est,
                                           tav_sr2_Trans2D* out) {
    if (est == nullptr || out == nullptr) return TAV_ERROR_PARAM;
    if (est->state == TAV_SR2_ESTIMATOR_UNCONFIGURED) return TAV_ERROR_STATE;
    const double origin[2] = {(double)est->roi_x0, (double)est->roi_y0};
    return tav_sr2_Trans2D_rescale(out, &est->current, origin, 0, (double)est->scale_step);
}

uint32_t tav_sr2_MotionEstimator_finish(tav_sr2_MotionEstimator* est) {
    if (est == nullptr) return TAV_ERROR_PARAM;
    releaseLevels(est);
    tav_sr2_MemPool* pool = est->pool;
    memset(est, 0, sizeof *est);
    est->pool = pool;
    tav_sr2_Image_init(&est->prev_top, pool);
    return TAV_OK;
}
