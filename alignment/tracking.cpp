// Tracking of templates.
//
// tav_sr2_TemplateSet_track: each template's reference position goes through the transform in
//   Q15; a start at least 3 pixels inside the image on the left and top and more than 3 pixels
//   inside on the right and bottom is written as the match and refined by the template's
//   matcher, any other start is marked TAV_TRACK_OUTSIDE. With a thread pool and more than 64
//   templates the set is cut in 16 jobs, each writing only its own slots.
// tav_sr2_GradientTemplate_match: the window origin is the start's pixel less 3 and the
//   fraction its top five fraction bits. Four offsets' correlation sums are interpolated in
//   1/32 pixel, the step is (U - sum) / half, clamped to a pixel, for at most 20 rounds. The same
//   position twice in a row converges; the position of two rounds ago is an oscillation and is
//   lost, as is a window that moves more than `radius` from its start, leaves 0 .. size - 8, or
//   20 rounds without convergence. A window move recomputes only the sums it invalidates.
// tav_sr2_PixelTemplate_match: the spiral of radius `radius` around the start's pixel; a
//   candidate strictly below the best pushes the best to second; the score is
//   (second - best + 65535) >> 16 clamped to 0..255. A square that does not fit leaves the
//   outputs as they are.
#include "alignment/tracking.h"

#include <string.h>

#include "alignment/spiral.h"
#include "enhance/image_ctx.h"

namespace {

constexpr int32_t kHalf = TAV_SR2_TEMPLATE_SIDE / 2;
constexpr int32_t kWindowSide = TAV_SR2_TEMPLATE_SIDE + 1;  // the window and its +1 offsets
constexpr int32_t kRounds = 20;
constexpr int32_t kSteps = 32;  // fraction steps per pixel
constexpr int32_t kJobs = 16;
constexpr int32_t kJobTemplates = 64;  // up to this many templates the caller tracks them all
constexpr int32_t kBestStart = 0x31000000;

inline int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

struct Window {
    int32_t bx0, by0;  // where the window started
    int32_t bx, by;
    int32_t radius;
    int32_t max_x, max_y;  // the largest origin whose 8 x 8 pixels lie inside the image
};

bool windowInside(const Window& w) {
    const int32_t dx = w.bx - w.bx0, dy = w.by - w.by0;
    return w.bx >= 0 && w.by >= 0 && w.bx <= w.max_x && w.by <= w.max_y && dx <= w.radius &&
           -dx <= w.radius && dy <= w.radius && -dy <= w.radius;
}

const uint8_t* windowPixels(const tav_sr2_Image* image, const Window& w) {
    return image->plane[0] + (int64_t)w.by * image->pitch[0] + w.bx;
}

// After the window moved by (mx, my), offset o keeps the sum of old offset o + (mx, my) when
// that is one of the four; returns the offsets still to compute.
uint32_t shiftSums(int32_t mx, int32_t my, int32_t* sx, int32_t* sy) {
    int32_t old_x[4], old_y[4];
    memcpy(old_x, sx, sizeof old_x);
    memcpy(old_y, sy, sizeof old_y);
    uint32_t missing = 0;
    for (int32_t o = 0; o < 4; ++o) {
        const int32_t ox = (o & 1) + mx, oy = (o >> 1) + my;
        if (ox < 0 || ox > 1 || oy < 0 || oy > 1) {
            missing |= 1u << o;
        } else {
            sx[o] = old_x[ox + 2 * oy];
            sy[o] = old_y[ox + 2 * oy];
        }
    }
    return missing;
}

// Bilinear mix of the four sums in 1/32 pixel: columns with >> 5, rows without.
int32_t interpolate(const int32_t* s, int32_t fx, int32_t fy) {
    const int32_t top = (s[1] * fx + s[0] * (kSteps - fx)) >> 5;
    const int32_t bottom = (s[3] * fx + s[2] * (kSteps - fx)) >> 5;
    return bottom * fy + top * (kSteps - fy);
}

struct TrackJob {
    tav_sr2_TemplateSet* set;
    const tav_sr2_Image* image;
    const tav_sr2_Trans2D* transform;
    const tav_sr2_TrackRadii* radii;
    const tav_sr2_TrackRows* rows;
};

void trackOne(const TrackJob* job, int32_t k) {
    tav_sr2_TemplateSet* set = job->set;
    const tav_sr2_Image* image = job->image;
    int32_t px, py;
    tav_sr2_Trans2D_applyQ15(job->transform, &px, &py, set->ref_x[k] << 15, set->ref_y[k] << 15);
    set->inlier[k] = 0;
    const int64_t lo = 3 << 15;
    if (px < lo || py < lo || px >= ((int64_t)image->width - 3) << 15 ||
        py >= ((int64_t)image->height - 3) << 15) {
        set->match_x[k] = TAV_TRACK_OUTSIDE;
        set->match_y[k] = TAV_TRACK_OUTSIDE;
        return;
    }
    set->match_x[k] = px;
    set->match_y[k] = py;
    set->ops->match(&set->cells[k], image, px, py, job->radii, job->rows, &set->match_x[k],
                    &set->match_y[k], &set->score[k]);
}

uint32_t trackBand(void* arg, int32_t, int32_t k0, int32_t k1) {
    const TrackJob* job = static_cast<const TrackJob*>(arg);
    for (int32_t k = k0; k < k1; ++k)
        trackOne(job, k);
    return TAV_OK;
}

}  // namespace

int32_t tav_sr2_GradientTemplate_match(const tav_sr2_GradientTemplate* t,
                                       const tav_sr2_Image* image, int32_t px, int32_t py,
                                       int32_t radius, const tav_sr2_TrackRows* rows, int32_t* x,
                                       int32_t* y) {
    *x = TAV_TRACK_LOST;
    *y = TAV_TRACK_LOST;
    Window w;
    w.bx0 = w.bx = (px >> 15) - kHalf;
    w.by0 = w.by = (py >> 15) - kHalf;
    w.radius = radius;
    w.max_x = image->width - kWindowSide;
    w.max_y = image->height - kWindowSide;
    if (!windowInside(w)) return 0;
    int32_t fx = (px >> 10) & (kSteps - 1);
    int32_t fy = (py >> 10) & (kSteps - 1);

    tav_sr2_CorrWeights weights;
    tav_sr2_CorrWeights_prepare(t, &weights);
    int32_t sx[4], sy[4];
    rows->corr_sums(&weights, windowPixels(image, w), image->pitch[0], 0xF, sx, sy);

    bool have1 = false, have2 = false;  // positions of the last two rounds
    int32_t last_x = 0, last_y = 0, before_x = 0, before_y = 0;
    for (int32_t round = 1; round <= kRounds; ++round) {
        const int32_t wx = clampTo(fx, 0, kSteps - 1), wy = clampTo(fy, 0, kSteps - 1);
        const int32_t ux = interpolate(sx, wx, wy);
        const int32_t uy = interpolate(sy, wx, wy);
        fx += clampTo((ux - t->sum_gx_i) / t->half_gxx, -kSteps, kSteps);
        fy += clampTo((uy - t->sum_gy_i) / t->half_gyy, -kSteps, kSteps);
        const int32_t pos_x = w.bx * kSteps + fx, pos_y = w.by * kSteps + fy;
        if (have1 && pos_x == last_x && pos_y == last_y) {
            *x = w.bx * 32768 + fx * 1024 + (kHalf << 15);
            *y = w.by * 32768 + fy * 1024 + (kHalf << 15);
            return round;
        }
        if (have2 && pos_x == before_x && pos_y == before_y) return round;  // oscillates
        before_x = last_x;
        before_y = last_y;
        have2 = have1;
        last_x = pos_x;
        last_y = pos_y;
        have1 = true;

        const int32_t mx = fx < 0 ? -1 : fx >= kSteps ? 1 : 0;
        const int32_t my = fy < 0 ? -1 : fy >= kSteps ? 1 : 0;
        if (mx == 0 && my == 0) continue;
        fx -= mx * kSteps;
        fy -= my * kSteps;
        w.bx += mx;
        w.by += my;
        if (!windowInside(w)) return round;
        const uint32_t missing = shiftSums(mx, my, sx, sy);
        rows->corr_sums(&weights, windowPixels(image, w), image->pitch[0], missing, sx, sy);
    }
    return kRounds;
}

int64_t tav_sr2_PixelTemplate_cost(const tav_sr2_PixelTemplate* t, const tav_sr2_Image* image,
                                   int32_t cx, int32_t cy) {
    const uint8_t* q0 = image->plane[0] + (int64_t)(cy - kHalf) * image->pitch[0] + (cx - kHalf);
    int32_t sum = 0;
    for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
        const uint8_t* q = q0 + (int64_t)i * image->pitch[0];
        for (int32_t j = 0; j < TAV_SR2_TEMPLATE_SIDE; ++j)
            sum += q[j];
    }
    const int64_t mean_diff = (int64_t)tav_sr2_PixelTemplate_meanOf(sum) - t->mean;
    int64_t cost = 0;
    for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
        const uint8_t* q = q0 + (int64_t)i * image->pitch[0];
        for (int32_t j = 0; j < TAV_SR2_TEMPLATE_SIDE; ++j) {
            const int64_t d =
                ((int64_t)t->p[TAV_SR2_TEMPLATE_SIDE * i + j] - q[j]) * 65536 + mean_diff;
            cost += d < 0 ? -d : d;
        }
    }
    return cost;
}

bool tav_sr2_PixelTemplate_match(const tav_sr2_PixelTemplate* t, const tav_sr2_Image* image,
                                 int32_t px, int32_t py, int32_t radius, int32_t* x, int32_t* y,
                                 int32_t* score) {
    const int32_t sx = px >> 15, sy = py >> 15;
    const int32_t w = image->width, h = image->height;
    if (sx - kHalf < radius || sy - kHalf < radius || sx + radius + kHalf >= w ||
        sy + radius + kHalf >= h) {
        return false;
    }
    int64_t best = kBestStart, second = kBestStart;
    int32_t best_x = sx, best_y = sy;
    tav_sr2_spiralWalk(radius, [&](int32_t dx, int32_t dy) {
        const int32_t cx = sx + dx, cy = sy + dy;
        if (cx < kHalf || cx >= w - kHalf || cy < kHalf || cy >= h - kHalf) return;
        const int64_t cost = tav_sr2_PixelTemplate_cost(t, image, cx, cy);
        if (cost < best) {
            second = best;
            best = cost;
            best_x = cx;
            best_y = cy;
        }
    });
    *x = best_x << 15;
    *y = best_y << 15;
    const int64_t margin = (second - best + 65535) >> 16;
    *score = (int32_t)(margin < 0 ? 0 : margin > 255 ? 255 : margin);
    return true;
}

uint32_t tav_sr2_TemplateSet_trackWithRows(tav_sr2_TemplateSet* set, const tav_sr2_Image* image,
                                           const tav_sr2_Trans2D* transform,
                                           const tav_sr2_TrackRadii* radii,
                                           tav_sr2_ThreadPool* thread_pool,
                                           const tav_sr2_TrackRows* rows) {
    if (set == nullptr || image == nullptr || transform == nullptr || radii == nullptr ||
        rows == nullptr) {
        return TAV_ERROR_PARAM;
    }
    if (set->count == 0) return TAV_OK;
    if (image->plane[0] == nullptr) return TAV_ERROR_PARAM;
    TrackJob job = {set, image, transform, radii, rows};
    const tav_sr2_ImageCtx ctx = {set->pool, thread_pool, nullptr};
    const int32_t jobs = thread_pool != nullptr && set->count > kJobTemplates ? kJobs : 1;
    return tav_sr2_ImageCtx_runBands(&ctx, jobs, set->count, &trackBand, &job);
}

uint32_t tav_sr2_TemplateSet_track(tav_sr2_TemplateSet* set, const tav_sr2_Image* image,
                                   const tav_sr2_Trans2D* transform,
                                   const tav_sr2_TrackRadii* radii,
                                   tav_sr2_ThreadPool* thread_pool) {
    return tav_sr2_TemplateSet_trackWithRows(set, image, transform, radii, thread_pool,
                                             tav_sr2_trackRowsVector());
}
