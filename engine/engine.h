// tav_sr2_Engine: the core engine, a plain record at the first byte of the caller's work buffer.
//
// Everything a run needs comes from the pool over the rest of that buffer; the engine itself
// never calls the general allocator. The caller sizes the buffer with tav_sr2_getBufferSize
// (engine/buffer_budget.h). Every operation takes a pointer to the caller's handle variable and
// refuses a null handle or a null *handle with TAV_ERROR_PARAM.
//
// Order of calls: init; get and set params; zoom centre, program cache and cores at any time
// before start; start; faces; frames; process; finish. Each operation checks the state bits it
// needs (tav_sr2_engine_state_rules) and answers TAV_ERROR_STATE on a mismatch.
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"
#include "engine/sr_params.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

static const int32_t TAV_SR2_ENGINE_SLOTS = 10;  // frames an engine can hold
static const int32_t TAV_SR2_ENGINE_MAX_MERGE = 10;
static const float TAV_SR2_ENGINE_MIN_ZOOM = 1.0f;
static const float TAV_SR2_ENGINE_MAX_ZOOM = 60.0f;
static const int32_t TAV_SR2_ENGINE_DEFAULT_AFFINITY = 240;  // cores 4 to 7

// The frame formats an engine runs on: YUV420_SEMIPLANAR, YVU420_SEMIPLANAR and
// YUV10B_PACKED_LE_420S, which intake converts to the first.
inline bool tav_sr2_isRunFormat(int32_t format) {
    return format == TAV_SR2_FMT_YUV420_SEMIPLANAR || format == TAV_SR2_FMT_YVU420_SEMIPLANAR ||
           format == TAV_SR2_FMT_YUV10B_PACKED_LE_420S;
}

// State bits; they are only ever added.
static const int32_t TAV_SR2_STATE_INITIALISED = 1;
static const int32_t TAV_SR2_STATE_STARTED = 4;
static const int32_t TAV_SR2_STATE_FRAME_TAKEN = 16;
static const int32_t TAV_SR2_STATE_PROCESSED = 64;

// The operations that test the state, as indices of tav_sr2_engine_state_rules.
enum tav_sr2_EngineOp : int32_t {
    TAV_SR2_OP_FINISH,
    TAV_SR2_OP_GET_PARAMS,
    TAV_SR2_OP_SET_PARAMS,
    TAV_SR2_OP_SET_CONDITION,
    TAV_SR2_OP_START,
    TAV_SR2_OP_SET_ZOOM_CENTER,
    TAV_SR2_OP_SET_CORE,
    TAV_SR2_OP_SET_GPU_BINARY,
    TAV_SR2_OP_ADD_IMAGE,
    TAV_SR2_OP_SET_FACE_RECTS,
    TAV_SR2_OP_GET_BASE_IMAGE,
    TAV_SR2_OP_GET_MERGE_NUM,
    TAV_SR2_OP_COUNT,
};

// Bits an operation needs set, and bits it needs clear.
struct tav_sr2_StateRule {
    int32_t needs_set;
    int32_t needs_clear;
};

inline constexpr tav_sr2_StateRule tav_sr2_engine_state_rules[TAV_SR2_OP_COUNT] = {
    {TAV_SR2_STATE_INITIALISED, 0},                      // finish
    {TAV_SR2_STATE_INITIALISED, 0},                      // getParams
    {TAV_SR2_STATE_INITIALISED, 0},                      // setParams
    {TAV_SR2_STATE_INITIALISED, 0},                      // setCondition
    {TAV_SR2_STATE_INITIALISED, 0},                      // start
    {TAV_SR2_STATE_INITIALISED, TAV_SR2_STATE_STARTED},  // setZoomCenter
    {TAV_SR2_STATE_INITIALISED, TAV_SR2_STATE_STARTED},  // setCore
    {TAV_SR2_STATE_INITIALISED, TAV_SR2_STATE_STARTED},  // setGpuBinary
    {TAV_SR2_STATE_STARTED, 0},                          // addImage
    {TAV_SR2_STATE_STARTED, 0},                          // setFaceRects
    {TAV_SR2_STATE_FRAME_TAKEN, 0},                      // getBaseImage
    {TAV_SR2_STATE_PROCESSED, 0},                        // getMergeNum
};

// What the host knows of the scene at capture. Only iso and adrc_gain reach the tuning; the
// time limit and the first gain travel along unread.
struct tav_sr2_Condition {
    int32_t iso;
    int32_t time_limit_us;
    double total_gain;
    double adrc_gain;
};

struct tav_sr2_Engine {
    tav_sr2_MemPool pool;  // over the rest of the buffer
    tav_sr2_ThreadPool thread_pool;
    tav_sr2_TaskSys task_sys;
    tav_sr2_Image full_images[TAV_SR2_ENGINE_SLOTS];  // the frames as given
    tav_sr2_Image clip_images[TAV_SR2_ENGINE_SLOTS];  // their work-crop views
    tav_sr2_Image output_image;
    sr_tunning_param tuning;  // the engine's copy; start hands the pipeline its own
    // The pipeline ends with the face list after filtering (internal_face_rects and
    // internal_face_num), which the engine fills.
    tav_sr2_Pipeline pipeline;
    int32_t max_image_num;
    int32_t cursor;  // frames taken
    int32_t merge_num;
    int32_t format;
    float zoom_ratio;
    int32_t input_width;
    int32_t input_height;
    int32_t output_width;
    int32_t output_height;
    int32_t center_x;
    int32_t center_y;
    int32_t num_cores;
    int32_t affinity_mask;
    double y_input_nr_level;
    int32_t state;  // TAV_SR2_STATE_* bits
};

// "Tavrin Super-Resolution Ver.2.0.1 MC2.5.44_odm_p17 2025/08/11".
const char* tav_sr2_getVersion(void);

// Builds an engine at the head of buffer, its pool over the rest. TAV_ERROR_UNSUPPORTED for a
// format other than YUV420_SEMIPLANAR, YVU420_SEMIPLANAR or YUV10B_PACKED_LE_420S;
// TAV_ERROR_PARAM for a bad argument; TAV_ERROR_BUFFER for a buffer smaller than the engine or
// not aligned for it, or a rest the pool cannot use. On failure the engine's bytes are zero and
// *handle is null.
uint32_t tav_sr2_init(tav_sr2_Engine** handle, void* buffer, int32_t buffer_size, int32_t width,
                      int32_t height, int32_t output_width, int32_t output_height,
                      int32_t max_image_num, int32_t merge_num, int32_t num_cores,
                      const char* format_name, float zoom_ratio);
// Finishes everything the engine made, the pool last. TAV_ERROR_BUFFER when the pool still holds
// a block: the engine is then left as it was. Otherwise the engine is zeroed and *handle cleared.
uint32_t tav_sr2_finish(tav_sr2_Engine** handle);

// The zoom centre in frame coordinates. The zoom window trunc(output / zoom), taken in float and
// centred there, must lie inside the frame; else TAV_ERROR_PARAM and nothing changes.
uint32_t tav_sr2_setZoomCenter(tav_sr2_Engine** handle, int32_t center_x, int32_t center_y);
// Workers (the calling thread included), their core mask, and whether each worker is pinned to
// one core (thread_setting, 0 from the instance layer).
uint32_t tav_sr2_setCore(tav_sr2_Engine** handle, int32_t thread_setting, int32_t num_cores,
                         int32_t affinity_mask);
// Writes iso and adrc_gain into the engine's tuning; counts for a run only before start.
uint32_t tav_sr2_setCondition(tav_sr2_Engine** handle, const tav_sr2_Condition* condition);
// Starts the workers and prepares the pipeline on the work crop. TAV_ERROR_GENERIC when either
// fails.
uint32_t tav_sr2_start(tav_sr2_Engine** handle);
// Keeps the faces (at most 5) that lie wholly inside the work crop and cover at least a
// ten-thousandth of it, in crop coordinates.
uint32_t tav_sr2_setFaceRects(tav_sr2_Engine** handle, const tav_sr2_Rect* rects, int32_t count);
// Frames merged by the last run.
uint32_t tav_sr2_getMergeNum(tav_sr2_Engine** handle, int32_t* count);
uint32_t tav_sr2_getParams(tav_sr2_Engine** handle, tav_sr2_SrParams* params);
uint32_t tav_sr2_setParams(tav_sr2_Engine** handle, const tav_sr2_SrParams* params);

// The engine behind a handle: TAV_ERROR_PARAM for a null handle or a null *handle, then
// TAV_ERROR_STATE when the state bits do not suit op.
uint32_t tav_sr2_Engine_get(tav_sr2_Engine** handle, tav_sr2_EngineOp op, tav_sr2_Engine** engine);
// The work crop around the current zoom centre, in frame coordinates.
void tav_sr2_Engine_workCrop(const tav_sr2_Engine* engine, tav_sr2_Rect* crop);
