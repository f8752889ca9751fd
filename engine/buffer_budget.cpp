// The buffer budget.
//
// tav_sr2_isSuperZoom(...): output wider and higher than the frame.
// tav_sr2_setRunTuning(...): the defaults with the run's geometry, as tav_sr2_init sets them.
// tav_sr2_BufferBudget_compute(...): the terms, from the crop, the area of interest around the
//   middle of the crop and the internal size trunc(internal_zoom_ratio * aligned size).
// tav_sr2_Pipeline_bufferSize(...): logs the terms and returns trunc(tot * 1.1).
// tav_sr2_getBufferSize(...): crop around the middle of the frame, then the engine record at the
//   head of the buffer, the pipeline's share, and what the task system and the thread pool take
//   from the pool when they start. Frames of format 62 are converted at intake into pool images
//   of format 48, one a slot, and held to the end of the run, so for that format the budget adds
//   max_image_num such frames (block tags and alignment included) after the margin; the logged
//   pipeline terms keep their form. A format or an image count that tav_sr2_init refuses still
//   gets a size here, so that the instance fails at the run and not at its own init.
#include "engine/buffer_budget.h"

#include "engine/engine.h"
#include "engine/work_crop.h"
#include "enhance/resize_size.h"
#include "foundation/image_format.h"
#include "foundation/log.h"
#include "gpu/render_context_size.h"
#include "nr/guided_filter.h"

namespace {

int64_t sizeOf(int64_t w, int64_t h, int32_t format) {
    if (w < 0 || h < 0 || w > INT32_MAX || h > INT32_MAX) return 0;
    return tav_sr2_ImageFormat_query(static_cast<int32_t>(w), static_cast<int32_t>(h), format, 0);
}

int64_t max64(int64_t a, int64_t b) {
    return a > b ? a : b;
}

int32_t shiftOf(int32_t s) {
    return s < 0 ? 0 : s > 30 ? 30 : s;
}

// The area of interest and the sizes derived from it.
struct WorkSizes {
    int64_t cw, ch;  // crop
    int64_t qw, qh;  // quarter of the area of interest
    int64_t iw, ih;  // internal size
    int64_t ow, oh;  // output
};

WorkSizes workSizes(int32_t clip_width, int32_t clip_height, const sr_tunning_param* t) {
    tav_sr2_Rect aoi;
    tav_sr2_WorkCrop_areaOfInterest(clip_width, clip_height, clip_width / 2, clip_height / 2,
                                    t->output_width, t->output_height, t->zoom_ratio, &aoi);
    const int64_t aw = aoi.right - aoi.left;
    const int64_t ah = aoi.bottom - aoi.top;
    WorkSizes s;
    s.cw = clip_width;
    s.ch = clip_height;
    s.qw = aw / 4;
    s.qh = ah / 4;
    s.iw = static_cast<int64_t>(t->internal_zoom_ratio * static_cast<double>(aw));
    s.ih = static_cast<int64_t>(t->internal_zoom_ratio * static_cast<double>(ah));
    s.ow = t->output_width;
    s.oh = t->output_height;
    return s;
}

// Lives through the run: GPU context, quarter-size maps, the merge target.
int64_t initSize(const WorkSizes& s, const sr_tunning_param* t) {
    const int64_t textures = tav_sr2_SR2GLRender_textureCount(TAV_SR2_RENDER_SLOT_COUNT);
    const int64_t target = t->use_16bit != 0 ? 3 * s.iw * s.ih : 3 * s.iw * s.ih / 2;
    return int64_t{tav_sr2_SR2GLRender_fixedNeed(TAV_SR2_RENDER_SLOT_COUNT)} +
           TAV_SR2_BUDGET_BYTES_PER_TEXTURE * textures + sizeOf(s.qw, s.qh, TAV_SR2_FMT_UINT8) +
           sizeOf(s.qw, s.qh, TAV_SR2_FMT_UINT16) + target + TAV_SR2_BUDGET_FIXED_BYTES;
}

int64_t alignSize(const WorkSizes& s, const sr_tunning_param* t) {
    const int32_t m = shiftOf(t->detectmotion_shrink_ratio);
    const int32_t e = shiftOf(t->eval_blur_shrink_ratio);
    const int64_t sharpness = t->select_frame != 0 ? (s.cw >> e) * (s.ch >> e) : 0;
    return 3 * (s.cw >> m) * (s.ch >> m) + sharpness;
}

int64_t mergeSize(const WorkSizes& s, int32_t merge_num) {
    const int64_t a = s.iw / 2, b = s.ih / 2, c = s.iw / 4;
    const int64_t p = a * b;
    const int64_t r = (s.iw / 8) * b;
    const int64_t u = r / 4, v = 3 * r / 4;
    const int64_t t = a * (merge_num > 1 ? merge_num - 1 : 0);
    const int64_t held =
        3 * s.qw * s.qh + p + 3 * u + t * b + 4 * v + ((((t >> 2) * b) >> 1) & int64_t{0x7ffffffe});
    const int64_t passing = max64(2 * p, max64(2 * p, 18452 * c) + 3 * ((c * b) / 2));
    return held + max64(passing, 12 * v);
}

int64_t nrSize(const WorkSizes& s, const sr_tunning_param* t) {
    const int64_t a = s.iw >> 1, b = s.ih >> 1, c = s.iw >> 2, d = s.ih >> 2;
    const int64_t full = sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT1616) +
                         sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT8) +
                         8 * sizeOf(s.iw, 256, TAV_SR2_FMT_INT32);
    const int64_t chroma = sizeOf(a, b, TAV_SR2_FMT_UINT16) + sizeOf(c, d, TAV_SR2_FMT_UINT8) +
                           sizeOf(9 * c, d, TAV_SR2_FMT_FLOAT) +
                           sizeOf(8 * c, d, TAV_SR2_FMT_FLOAT);
    int64_t need = max64(full, chroma + sizeOf(a, b, TAV_SR2_FMT_UINT1616));
    if (t->high_freq_uvnr_enable != 0) need = max64(need, s.qw * s.qh + chroma);
    return need;
}

int64_t unsharpSize(const WorkSizes& s, const sr_tunning_param* t) {
    const int64_t plane = s.iw * s.ih;
    switch (t->unsharp_method) {
        case 3:
            return sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT1616) + 2 * plane +
                   sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT8) + 7 * sizeOf(s.iw, 256, TAV_SR2_FMT_INT32);
        case 2:
            return 5 * sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT88) / 2 + 4 * plane +
                   18 * sizeOf(s.iw, 1024, TAV_SR2_FMT_UINT8);
        case 1:
            return 4 * plane;
        default:
            return 2 * plane;
    }
}

int64_t clipSize(const WorkSizes& s) {
    const int64_t resize = s.ow / 2 > INT32_MAX
                               ? 0
                               : tav_sr2_Image_resizeRequiredSize(
                                     static_cast<int32_t>(s.ow / 2), static_cast<int32_t>(s.oh / 2),
                                     TAV_SR2_FMT_UINT1616, TAV_SR2_RESIZE_MAX_WORKERS);
    return 3 * sizeOf(s.ow, s.oh, TAV_SR2_FMT_UINT16) / 2 + resize;
}

// Pool bytes of the frames that intake converts from format 62; nothing for other formats,
// whose frames stay in the host's memory.
int64_t convertedFramesSize(int32_t width, int32_t height, int32_t max_image_num, int32_t format) {
    if (format != TAV_SR2_FMT_YUV10B_PACKED_LE_420S || max_image_num < 1) return 0;
    const int64_t frame = sizeOf(width, height, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    return int64_t{max_image_num} * (frame + TAV_SR2_BUDGET_BLOCK_SLACK);
}

int32_t toLogInt(int64_t v) {
    return v > INT32_MAX ? INT32_MAX : static_cast<int32_t>(v);
}

}  // namespace

int tav_sr2_isSuperZoom(int32_t width, int32_t height, int32_t output_width,
                        int32_t output_height) {
    return width < output_width && height < output_height ? 1 : 0;
}

void tav_sr2_setRunTuning(sr_tunning_param* tuning, int32_t width, int32_t height,
                          int32_t output_width, int32_t output_height, float zoom_ratio) {
    tav_sr2_SrParams_setDefault(tuning);
    tuning->output_width = output_width;
    tuning->output_height = output_height;
    tuning->zoom_ratio = zoom_ratio;
    tuning->internal_zoom_ratio = 1.0;
    if (!tav_sr2_isSuperZoom(width, height, output_width, output_height)) {
        const double half = tuning->zoom_ratio / 2.0;
        tuning->internal_zoom_ratio = half < 1.0 ? 1.0 : half > 1.5 ? 1.5 : half;
    }
}

void tav_sr2_BufferBudget_compute(int32_t clip_width, int32_t clip_height, int32_t merge_num,
                                  int32_t format, int super_zoom, const sr_tunning_param* tuning,
                                  tav_sr2_BufferBudget* budget) {
    (void)format;  // every term is sized in the working formats, whatever the frames are
    const WorkSizes s = workSizes(clip_width, clip_height, tuning);
    tav_sr2_BufferBudget* b = budget;
    b->init_size = initSize(s, tuning);
    b->align_size = alignSize(s, tuning);
    b->merge_size = mergeSize(s, merge_num);
    b->nr_size = nrSize(s, tuning);
    b->gf_size =
        tav_sr2_GuidedFilter_requiredSize(toLogInt(s.iw), toLogInt(s.ih), TAV_SR2_FMT_UINT16);
    b->unsharp_size = unsharpSize(s, tuning);
    b->enhance_size = 4 * s.iw * s.ih;
    b->lc_size = b->gf_size;
    b->clip_size = clipSize(s);

    int64_t local = max64(max64(b->align_size, b->merge_size), max64(b->nr_size, b->gf_size));
    local = max64(local, max64(max64(b->unsharp_size, b->enhance_size), b->lc_size));
    local = max64(local, b->clip_size);
    if (super_zoom)
        local = max64(local, 3 * sizeOf(s.iw, s.ih, TAV_SR2_FMT_UINT16));
    else
        local = max64(local, 3 * sizeOf(s.ow, s.oh, TAV_SR2_FMT_UINT16) + b->clip_size);
    b->local_size = local;
    b->tot_size = b->init_size + local + sizeOf(s.iw >> 1, s.ih >> 1, TAV_SR2_FMT_UINT16);
    b->pipeline_size =
        static_cast<int64_t>(static_cast<double>(b->tot_size) * TAV_SR2_BUDGET_MARGIN);
}

int32_t tav_sr2_Pipeline_bufferSize(int32_t clip_width, int32_t clip_height, int32_t merge_num,
                                    int32_t format, int super_zoom,
                                    const sr_tunning_param* tuning) {
    tav_sr2_BufferBudget b;
    tav_sr2_BufferBudget_compute(clip_width, clip_height, merge_num, format, super_zoom, tuning,
                                 &b);
    tav_sr2_log_i("init size = %d\n", toLogInt(b.init_size));
    tav_sr2_log_i("align_size = %d\n", toLogInt(b.align_size));
    tav_sr2_log_i("merge_size = %d\n", toLogInt(b.merge_size));
    tav_sr2_log_i("nr_size = %d\n", toLogInt(b.nr_size));
    tav_sr2_log_i("gf_size = %d\n", toLogInt(b.gf_size));
    tav_sr2_log_i("unsharp_size = %d\n", toLogInt(b.unsharp_size));
    tav_sr2_log_i("enhance_size = %d\n", toLogInt(b.enhance_size));
    tav_sr2_log_i("lc_size = %d\n", toLogInt(b.lc_size));
    tav_sr2_log_i("clip_size = %d\n", toLogInt(b.clip_size));
    tav_sr2_log_i("local_size = %d\n", toLogInt(b.local_size));
    tav_sr2_log_i("tot size = %d\n", toLogInt(b.tot_size));
    return b.pipeline_size > INT32_MAX ? 0 : static_cast<int32_t>(b.pipeline_size);
}

int32_t tav_sr2_getBufferSize(int32_t width, int32_t height, int32_t output_width,
                              int32_t output_height, int32_t max_image_num, int32_t merge_num,
                              const char* format_name, float zoom_ratio) {
    const int32_t sizes[4] = {width, height, output_width, output_height};
    for (int32_t v : sizes)
        if (v < 1 || (v & 1) != 0) return 0;
    // Also refuses NaN and infinity: both fail one of the two comparisons.
    if (!(zoom_ratio >= 1.0f && zoom_ratio <= 3.0e38f)) return 0;

    sr_tunning_param tuning = {};
    tav_sr2_setRunTuning(&tuning, width, height, output_width, output_height, zoom_ratio);
    tav_sr2_Rect crop;
    tav_sr2_WorkCrop_compute(width, height, output_width, output_height, zoom_ratio, width / 2,
                             height / 2, &crop);
    const int32_t format = tav_sr2_ImageFormat_byName(format_name);
    const int32_t pipeline = tav_sr2_Pipeline_bufferSize(
        crop.right - crop.left, crop.bottom - crop.top, merge_num, format,
        tav_sr2_isSuperZoom(width, height, output_width, output_height), &tuning);
    if (pipeline == 0) return 0;

    const int64_t total = static_cast<int64_t>(sizeof(tav_sr2_Engine)) + int64_t{pipeline} +
                          int64_t{tav_sr2_TaskSys_requiredSize()} +
                          int64_t{tav_sr2_ThreadPool_requiredSize(
                              TAV_SR2_ENGINE_POOL_THREADS, TAV_SR2_ENGINE_POOL_QUEUE,
                              TAV_SR2_ENGINE_POOL_ARG_BYTES, TAV_SR2_ENGINE_POOL_JOBS)} +
                          convertedFramesSize(width, height, max_image_num, format);
    return total > INT32_MAX ? 0 : static_cast<int32_t>(total);
}
