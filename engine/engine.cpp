// The engine record's life and its setters.
//
// tav_sr2_getVersion(): the engine's version text.
// tav_sr2_init(handle, buffer, size, w, h, ow, oh, slots, merge, cores, format, zoom): checks in
//   this order: format by name (TAV_ERROR_UNSUPPORTED unless 48, 49 or 62), slot and merge counts
//   in 1..10, pointers, sizes at least 1 and even, zoom in 1..60, trunc(float(w) * zoom) reaching
//   ow and the same for the height (TAV_ERROR_PARAM); then the buffer (TAV_ERROR_BUFFER). The
//   engine is zeroed, its pool started over the rest of the buffer, its parts initialised, the
//   arguments stored with the centre in the middle of the frame and the core mask 240, and the
//   tuning set to the defaults of the run's geometry. State 1.
// tav_sr2_finish(handle): finishes the images, the thread pool, the task system, the pipeline
//   and the pool; a block left in the pool gives TAV_ERROR_BUFFER and leaves the engine as it is.
// tav_sr2_setZoomCenter, tav_sr2_setCore, tav_sr2_setCondition: before start (the first two
//   refuse an engine already started).
// tav_sr2_start(handle): task system with num_cores and the core mask, thread pool bound to it
//   with 64 threads and a queue of 64, then tav_sr2_Pipeline_start on the work crop with the
//   centre in crop coordinates. TAV_ERROR_GENERIC for any failure. cursor 0, state 4 added.
// tav_sr2_getMergeNum(handle, count): the frames merged by the run; needs state 64.
// tav_sr2_getParams / tav_sr2_setParams: the state checks around the tuning record's mapping.
#include "engine/engine.h"

#include <string.h>

#include "engine/buffer_budget.h"
#include "engine/work_crop.h"
#include "foundation/image_format.h"
#include "src/version.h"

namespace {

// The pool needs room for its first block and its end tag beyond any alignment slack.
constexpr int64_t kMinPoolBytes = 64;

bool isEvenPositive(int32_t v) {
    return v >= 1 && (v & 1) == 0;
}

// trunc() for the engine's float geometry without libm: the values are sizes times a zoom of at
// most 60, far inside the 64-bit range.
float truncTowardZero(float v) {
    return static_cast<float>(static_cast<int64_t>(v));
}

// The zoom window must cover the output once enlarged: trunc(float(d) * zoom) >= output.
bool zoomReaches(int32_t d, int32_t output, float zoom) {
    return truncTowardZero(static_cast<float>(d) * zoom) >= static_cast<float>(output);
}

uint32_t checkInitArgs(tav_sr2_Engine** handle, const void* buffer, int32_t buffer_size,
                       int32_t width, int32_t height, int32_t output_width, int32_t output_height,
                       int32_t max_image_num, int32_t merge_num, float zoom_ratio) {
    if (merge_num < 1 || merge_num > TAV_SR2_ENGINE_MAX_MERGE) return TAV_ERROR_PARAM;
    if (max_image_num < 1 || max_image_num > TAV_SR2_ENGINE_SLOTS) return TAV_ERROR_PARAM;
    if (handle == nullptr || buffer == nullptr || buffer_size < 1) return TAV_ERROR_PARAM;
    if (!isEvenPositive(width) || !isEvenPositive(height) || !isEvenPositive(output_width) ||
        !isEvenPositive(output_height))
        return TAV_ERROR_PARAM;
    if (!(zoom_ratio >= TAV_SR2_ENGINE_MIN_ZOOM && zoom_ratio <= TAV_SR2_ENGINE_MAX_ZOOM))
        return TAV_ERROR_PARAM;
    if (!zoomReaches(width, output_width, zoom_ratio) ||
        !zoomReaches(height, output_height, zoom_ratio))
        return TAV_ERROR_PARAM;
    return TAV_OK;
}

// Images, pipeline, thread pool and task system, all bound to the engine's pool. None of them
// takes memory yet; a failure here is a programming fault reported as TAV_ERROR_GENERIC.
uint32_t initParts(tav_sr2_Engine* e, int32_t slots) {
    uint32_t status = tav_sr2_Pipeline_init(&e->pipeline, &e->pool, &e->task_sys, &e->thread_pool);
    tav_sr2_TaskSys_init(&e->task_sys, &e->pool);
    tav_sr2_ThreadPool_init(&e->thread_pool, &e->pool);
    for (int32_t i = 0; i < slots; ++i) {
        status |= tav_sr2_Image_init(&e->full_images[i], &e->pool);
        status |= tav_sr2_Image_init(&e->clip_images[i], &e->pool);
    }
    status |= tav_sr2_Image_init(&e->output_image, &e->pool);
    return status;
}

// Everything but the pool; the first failure is returned, and all parts are still finished.
uint32_t finishParts(tav_sr2_Engine* e) {
    uint32_t status = TAV_OK;
    auto keep = [&status](uint32_t s) {
        if (status == TAV_OK) status = s;
    };
    for (int32_t i = 0; i < TAV_SR2_ENGINE_SLOTS; ++i) {
        keep(tav_sr2_Image_finish(&e->clip_images[i]));
        keep(tav_sr2_Image_finish(&e->full_images[i]));
    }
    keep(tav_sr2_Image_finish(&e->output_image));
    keep(tav_sr2_ThreadPool_finish(&e->thread_pool));
    keep(tav_sr2_TaskSys_finish(&e->task_sys));
    keep(tav_sr2_Pipeline_finish(&e->pipeline));
    return status;
}

// Zeroes the engine's bytes after a failed init; a pool that failed to end gives BUFFER.
uint32_t abandonInit(tav_sr2_Engine* e) {
    finishParts(e);
    const uint32_t pool_status = tav_sr2_MemPool_finish(&e->pool);
    memset(static_cast<void*>(e), 0, sizeof *e);
    return pool_status == TAV_OK ? TAV_ERROR_GENERIC : TAV_ERROR_BUFFER;
}

uint32_t startWorkers(tav_sr2_Engine* e) {
    tav_sr2_TaskSysConfig* config = &e->task_sys.config;
    config->thread_count = e->num_cores;
    config->core_mask = static_cast<uint32_t>(e->affinity_mask);
    config->caller_is_worker = 1;
    if (tav_sr2_TaskSys_start(&e->task_sys) != TAV_OK) return TAV_ERROR_GENERIC;

    tav_sr2_ThreadPool* tp = &e->thread_pool;
    tav_sr2_ThreadPool_finish(tp);  // a second start begins afresh
    tp->thread_limit = e->num_cores;
    tp->caller_is_worker = 1;
    tp->core_mask = static_cast<uint32_t>(e->affinity_mask);
    tp->pin_workers = config->pin_workers;
    tp->task_sys = &e->task_sys;
    // The sizes the buffer budget counts the thread pool at.
    if (tav_sr2_ThreadPool_start(tp, TAV_SR2_ENGINE_POOL_THREADS, TAV_SR2_ENGINE_POOL_QUEUE) !=
        TAV_OK)
        return TAV_ERROR_GENERIC;
    return TAV_OK;
}

}  // namespace

const char* tav_sr2_getVersion(void) {
    return TAV_SR2_ENGINE_VERSION;
}

uint32_t tav_sr2_Engine_get(tav_sr2_Engine** handle, tav_sr2_EngineOp op, tav_sr2_Engine** engine) {
    if (handle == nullptr || *handle == nullptr) return TAV_ERROR_PARAM;
    const tav_sr2_StateRule rule = tav_sr2_engine_state_rules[op];
    const int32_t state = (*handle)->state;
    if ((state & rule.needs_set) != rule.needs_set || (state & rule.needs_clear) != 0)
        return TAV_ERROR_STATE;
    *engine = *handle;
    return TAV_OK;
}

void tav_sr2_Engine_workCrop(const tav_sr2_Engine* engine, tav_sr2_Rect* crop) {
    tav_sr2_WorkCrop_compute(engine->input_width, engine->input_height, engine->output_width,
                             engine->output_height, engine->zoom_ratio, engine->center_x,
                             engine->center_y, crop);
}

uint32_t tav_sr2_init(tav_sr2_Engine** handle, void* buffer, int32_t buffer_size, int32_t width,
                      int32_t height, int32_t output_width, int32_t output_height,
                      int32_t max_image_num, int32_t merge_num, int32_t num_cores,
                      const char* format_name, float zoom_ratio) {
    const int32_t format = tav_sr2_ImageFormat_byName(format_name);
    if (!tav_sr2_isRunFormat(format)) return TAV_ERROR_UNSUPPORTED;
    uint32_t status = checkInitArgs(handle, buffer, buffer_size, width, height, output_width,
                                    output_height, max_image_num, merge_num, zoom_ratio);
    if (status != TAV_OK) return status;

    *handle = nullptr;
    if (static_cast<size_t>(buffer_size) < sizeof(tav_sr2_Engine)) return TAV_ERROR_BUFFER;
    if (reinterpret_cast<uintptr_t>(buffer) % alignof(tav_sr2_Engine) != 0) return TAV_ERROR_BUFFER;
    tav_sr2_Engine* e = static_cast<tav_sr2_Engine*>(buffer);
    memset(static_cast<void*>(e), 0, sizeof *e);
    const int64_t rest = int64_t{buffer_size} - static_cast<int64_t>(sizeof *e);
    if (rest < kMinPoolBytes) return TAV_ERROR_BUFFER;
    if (tav_sr2_MemPool_init(&e->pool, e + 1, static_cast<size_t>(rest)) != TAV_OK) {
        memset(static_cast<void*>(e), 0, sizeof *e);
        return TAV_ERROR_BUFFER;
    }
    if (initParts(e, max_image_num) != TAV_OK) return abandonInit(e);

    e->max_image_num = max_image_num;
    e->merge_num = merge_num;
    e->format = format;
    e->zoom_ratio = zoom_ratio;
    e->input_width = width;
    e->input_height = height;
    e->output_width = output_width;
    e->output_height = output_height;
    e->center_x = width / 2;
    e->center_y = height / 2;
    e->num_cores = num_cores;
    e->affinity_mask = TAV_SR2_ENGINE_DEFAULT_AFFINITY;
    tav_sr2_setRunTuning(&e->tuning, width, height, output_width, output_height, zoom_ratio);
    tav_sr2_Pipeline_setInputSize(&e->pipeline, width, height);
    e->cursor = 0;
    e->y_input_nr_level = 0.0;
    e->state = TAV_SR2_STATE_INITIALISED;
    *handle = e;
    return TAV_OK;
}

uint32_t tav_sr2_finish(tav_sr2_Engine** handle) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_FINISH, &e);
    if (status != TAV_OK) return status;
    finishParts(e);
    if (tav_sr2_MemPool_finish(&e->pool) != TAV_OK) return TAV_ERROR_BUFFER;
    memset(static_cast<void*>(e), 0, sizeof *e);
    *handle = nullptr;
    return TAV_OK;
}

uint32_t tav_sr2_setZoomCenter(tav_sr2_Engine** handle, int32_t center_x, int32_t center_y) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_SET_ZOOM_CENTER, &e);
    if (status != TAV_OK) return status;
    // The window, in float as the zoom is: [centre - w / 2, centre + w / 2] inside the frame.
    auto fits = [e](int32_t center, int32_t output, int32_t frame) {
        const float w = truncTowardZero(static_cast<float>(output) / e->zoom_ratio);
        const float start = static_cast<float>(center) - w / 2.0f;
        return start >= 0.0f && start + w <= static_cast<float>(frame);
    };
    if (!fits(center_x, e->output_width, e->input_width) ||
        !fits(center_y, e->output_height, e->input_height))
        return TAV_ERROR_PARAM;
    e->center_x = center_x;
    e->center_y = center_y;
    return TAV_OK;
}

uint32_t tav_sr2_setCore(tav_sr2_Engine** handle, int32_t thread_setting, int32_t num_cores,
                         int32_t affinity_mask) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_SET_CORE, &e);
    if (status != TAV_OK) return status;
    e->num_cores = num_cores;
    e->affinity_mask = affinity_mask;
    e->task_sys.config.pin_workers = thread_setting;
    return TAV_OK;
}

uint32_t tav_sr2_setCondition(tav_sr2_Engine** handle, const tav_sr2_Condition* condition) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_SET_CONDITION, &e);
    if (status != TAV_OK) return status;
    if (condition == nullptr) return TAV_ERROR_PARAM;
    e->tuning.iso = condition->iso;
    e->tuning.adrc_gain = condition->adrc_gain;
    return TAV_OK;
}

uint32_t tav_sr2_start(tav_sr2_Engine** handle) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_START, &e);
    if (status != TAV_OK) return status;
    if (startWorkers(e) != TAV_OK) return TAV_ERROR_GENERIC;

    tav_sr2_Rect crop;
    tav_sr2_Engine_workCrop(e, &crop);
    if (tav_sr2_Pipeline_start(&e->pipeline, crop.right - crop.left, crop.bottom - crop.top,
                               e->max_image_num, e->merge_num, e->center_x - crop.left,
                               e->center_y - crop.top, &e->tuning) != TAV_OK)
        return TAV_ERROR_GENERIC;
    e->cursor = 0;
    e->state |= TAV_SR2_STATE_STARTED;
    return TAV_OK;
}

uint32_t tav_sr2_getMergeNum(tav_sr2_Engine** handle, int32_t* count) {
    tav_sr2_Engine* e = nullptr;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_GET_MERGE_NUM, &e);
    if (status != TAV_OK) return status;
    if (count == nullptr) return TAV_ERROR_PARAM;
    *count = e->pipeline.accum_num;
    return TAV_OK;
}

uint32_t tav_sr2_getParams(tav_sr2_Engine** handle, tav_sr2_SrParams* params) {
    tav_sr2_Engine* e = nullptr;
    if (params == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_GET_PARAMS, &e);
    if (status != TAV_OK) return status;
    tav_sr2_SrParams_fromTuning(&e->tuning, e->y_input_nr_level, params);
    return TAV_OK;
}

uint32_t tav_sr2_setParams(tav_sr2_Engine** handle, const tav_sr2_SrParams* params) {
    tav_sr2_Engine* e = nullptr;
    if (params == nullptr) return TAV_ERROR_PARAM;
    const uint32_t status = tav_sr2_Engine_get(handle, TAV_SR2_OP_SET_PARAMS, &e);
    if (status != TAV_OK) return status;
    const int super_zoom =
        tav_sr2_isSuperZoom(e->input_width, e->input_height, e->output_width, e->output_height);
    tav_sr2_SrParams_apply(params, super_zoom, &e->tuning, &e->y_input_nr_level);
    return TAV_OK;
}
