// The noise map of a run: how much stronger noise reduction must be where fewer frames merged.
//
// tav_sr2_Pipeline_makeNrMap(self): nr_map (UINT8, the size of weight_sum) in Q4, 16 meaning
//   the strength of a fully merged place. weight_sum >> s, with s the least shift of at least 2
//   that brings accum_num * 128 within a byte, goes through the table
//   t[i] = trunc(clamp(16 (ghost_nr_level (sqrt(n 128 / (i << s)) - 1) + 1), 16, 255)), t[0] = 255.
//   When the burst came down to the base frame alone (accum_num below 2 of at least two slots),
//   the global noise settings rise first by the ISO class, scaled by
//   noise_level_4ghost_ratio_scale (limited to 0..8); the pipeline's iso is 0, which counts as the
//   highest class. TAV_ERROR_MALLOC without the map.
// tav_sr2_Pipeline_boostDarkArea(self, picture): raises nr_map where the picture's luma (brought
//   to the map's size) is dark: below 129 (8-bit) or 513 (10-bit), the factor
//   f = (1 - r) L / 128 + r (/ 512 for 10 bits), r = dark_area_nr_level, limited to 1..r for
//   r >= 1 and simply r below 1; nr_map = clamp(trunc(f nr_map), 0, 255). Frames 48, 49, 52, 53;
//   others are left alone with 0. TAV_ERROR_MALLOC without the resized luma.
#include "engine/nr_map.h"

#include "engine/pipeline_steps.h"

#include "enhance/image_ops.h"
#include "enhance/image_rows.h"
#include "enhance/resize.h"
#include "foundation/log.h"
#include "foundation/maths.h"
#include "foundation/row_band.h"

namespace {

int32_t mapShift(int32_t n) {
    int32_t s = 2;
    while (((int64_t)n * 128 >> s) > 255)
        ++s;
    return s;
}

// The settings of a run that kept only the base frame, by ISO class.
void raiseForLoneBase(sr_tunning_param* t, double k) {
    tav_sr2_log_i("self->params->iso = %d \n", t->iso);
    const int32_t iso = t->iso;
    int32_t* range = &t->nr_y_range[0];
    if (iso >= 1 && iso <= 1000) {
        t->noise_level = k * (t->noise_level > 0.0 ? t->noise_level : 3.0);
    } else if (iso >= 1001 && iso <= 6000) {
        t->noise_level = t->noise_level > 0.0 ? k * t->noise_level : k * 8.0;
        *range = *range > 1 ? 2 * *range : 5;
    } else {
        t->noise_level = t->noise_level > 0.0 ? k * t->noise_level : k * 13.0;
        *range = *range > 4 ? 3 * *range : 15;
    }
    t->dirnr *= k;
    t->noise_level_uv *= k;
}

struct ShiftJob {
    const tav_sr2_Image* weights;
    tav_sr2_Image* map;
    int32_t shift;
};

uint32_t shiftBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const ShiftJob* job = static_cast<const ShiftJob*>(arg);
    for (int32_t y = y0; y < y1; ++y) {
        const uint16_t* in = tav_sr2_rowOf<const uint16_t>(job->weights, 0, y);
        uint8_t* out = tav_sr2_rowOf<uint8_t>(job->map, 0, y);
        for (int32_t x = 0; x < job->map->width; ++x) {
            const int32_t v = in[x] >> job->shift;
            out[x] = (uint8_t)(v > 255 ? 255 : v);
        }
    }
    return TAV_OK;
}

struct DarkJob {
    const tav_sr2_Image* luma;
    tav_sr2_Image* map;
    double r;
    int32_t deep;
    int32_t bands;
};

uint32_t darkBand(void* arg, int32_t band, int32_t, int32_t) {
    const DarkJob* job = static_cast<const DarkJob*>(arg);
    int32_t y0, y1;
    tav_sr2_rowBand(job->map->height, band, job->bands, &y0, &y1);
    const int32_t limit = job->deep ? 513 : 129;
    const double unit = job->deep ? 512.0 : 128.0;
    for (int32_t y = y0; y < y1; ++y) {
        uint8_t* map = tav_sr2_rowOf<uint8_t>(job->map, 0, y);
        const uint8_t* bytes = tav_sr2_rowOf<const uint8_t>(job->luma, 0, y);
        const uint16_t* words = tav_sr2_rowOf<const uint16_t>(job->luma, 0, y);
        for (int32_t x = 0; x < job->map->width; ++x) {
            const int32_t l = job->deep ? words[x] : bytes[x];
            if (l >= limit) continue;
            double f = job->r;
            if (job->r >= 1.0) {
                f = (1.0 - job->r) * l / unit + job->r;
                f = f < 1.0 ? 1.0 : (f > job->r ? job->r : f);
            }
            const double v = f * map[x];
            map[x] = (uint8_t)(v > 255.0 ? 255 : (int32_t)v);
        }
    }
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_Pipeline_makeNrMap(tav_sr2_Pipeline* self) {
    sr_tunning_param* t = &self->tuning;
    const int32_t n = self->accum_num;
    const int32_t s = mapShift(n);
    double k = t->noise_level_4ghost_ratio_scale;
    k = k < 0.0 ? 0.0 : (k > 8.0 ? 8.0 : k);
    if (n < 2 && self->max_image_num >= 2) {
        raiseForLoneBase(t, k);
        tav_sr2_log_i(
            "self->accum_num = %d, noise_level_4ghost_ratio = %f,  noise_level = %f,  dirnr=  %f, "
            "noise_level_uv = %f  nr_y_range[0] = %d\n",
            n, k * t->noise_level_4ghost_ratio, t->noise_level, t->dirnr, t->noise_level_uv,
            t->nr_y_range[0]);
    }
    const tav_sr2_Image* weights = &self->weight_sum;
    uint32_t status = tav_sr2_Image_alloc(&self->nr_map, weights->width, weights->height, nullptr,
                                          TAV_SR2_FMT_UINT8);
    if (status != TAV_OK) return status;
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    ShiftJob job = {weights, &self->nr_map, s};
    status = tav_sr2_ImageCtx_runBands(&ctx, tav_sr2_ImageCtx_workers(&ctx), weights->height,
                                       &shiftBand, &job);
    if (status != TAV_OK) return status;
    uint8_t table[256];
    table[0] = 255;
    for (int32_t i = 1; i < 256; ++i) {
        const double ratio = (double)n * 128.0 / (double)(i << s);
        double v = 16.0 * (t->ghost_nr_level * (tav_sr2_sqrt(ratio) - 1.0) + 1.0);
        v = v < 16.0 ? 16.0 : (v > 255.0 ? 255.0 : v);
        table[i] = (uint8_t)(int32_t)v;
    }
    return tav_sr2_Image_lookup(self->task_sys, &self->nr_map, &self->nr_map, table);
}

uint32_t tav_sr2_Pipeline_boostDarkArea(tav_sr2_Pipeline* self, const tav_sr2_Image* picture) {
    const int32_t format = picture->format;
    const int32_t deep = tav_sr2_isSemiPlanar10(format) ? 1 : 0;
    if (!deep && !tav_sr2_isSemiPlanar8(format)) return TAV_OK;
    tav_sr2_Image* map = &self->nr_map;
    if (map->plane[0] == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_Image luma;
    tav_sr2_Image_init(&luma, self->pool);
    uint32_t status = tav_sr2_Image_alloc(&luma, map->width, map->height, nullptr,
                                          deep ? TAV_SR2_FMT_UINT16 : TAV_SR2_FMT_UINT8);
    tav_sr2_Image view;
    if (status == TAV_OK)
        status = tav_sr2_Image_viewPlane0(&view, picture, 0, 0, picture->width, picture->height);
    const tav_sr2_ImageCtx ctx = tav_sr2_Pipeline_imageCtx(self);
    if (status == TAV_OK) status = tav_sr2_Image_resize(&ctx, &luma, &view);
    if (status == TAV_OK) {
        const int32_t bands = tav_sr2_ImageCtx_workers(&ctx);
        DarkJob job = {&luma, map, self->tuning.dark_area_nr_level, deep, bands};
        status = tav_sr2_ImageCtx_runBands(&ctx, bands, bands, &darkBand, &job);
    }
    const uint32_t released = tav_sr2_Image_finish(&luma);
    return status != TAV_OK ? status : released;
}
