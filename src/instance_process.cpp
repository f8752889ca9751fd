// The process driver: one call runs the collected burst through a core engine made for it.
//
// TavrinKELD_internal_process(handle, output, result):
//   - TAV_ERROR_PARAM without a handle, an output, an instance or a collected frame.
//   - bypass: the first frame is copied into the output and nothing else happens.
//   - Otherwise the engine is built in the work buffer and given the zoom centre, then each frame
//     group runs: tuning, cores and start (first group only), faces, condition, frames, base
//     frame, the run itself and the merge count. Every engine failure is logged and the run goes
//     on where it can; a failure while setting tuning, cores or start ends the group loop.
//   - The engine is torn down. Only a failed teardown is this call's result: the host sees TAV_OK
//     with whatever the output holds when the engine refused to init or to run, or timed out.
//     A teardown failure other than a time-out returns at once.
//   - Then the result record, the debug marks, and the clearing of faces and frames, so that
//     the instance takes a new burst; tuning, parser, look-up keys and base_iso stay.
// Engine failures with TAV_ERROR_TIMEOUT log a second line naming process_super_resolution.
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "engine/frame_intake.h"
#include "engine/process.h"
#include "foundation/status.h"
#include "src/com_format_names.h"
#include "src/keld_log.h"
#include "src/tavrin_internal_keld.h"

namespace {

constexpr char kProcessStep[] = "process_super_resolution";
constexpr char kParamsStep[] = "set_super_resolution_params";

#define TAVRIN_KELD_LOG_IF_TIMEOUT(level, status)                                        \
    do {                                                                                 \
        if ((status) == TAV_ERROR_TIMEOUT)                                               \
            TavrinKELD_logError(level, "%s TIMEOUT EROOR (%d)", kProcessStep, __LINE__); \
    } while (0)

// Milliseconds on the monotonic clock; the clock is read only when something will be logged.
int64_t nowMs(int32_t level) {
    if (level < 1) return 0;
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void logTimeSpent(int32_t level, const char* step, int64_t since_ms) {
    TavrinKELD_logDebug(level, "[%s] #Time Spending: %d ms", step,
                        static_cast<int32_t>(nowMs(level) - since_ms));
}

// Copies min(want, have) bytes: the output's plane may be larger than the frame's.
void copyPlane(void* dst, const void* src, int64_t want, int64_t have) {
    const int64_t bytes = want < have ? want : have;
    if (dst && src && bytes > 0) memcpy(dst, src, static_cast<size_t>(bytes));
}

void bypassCopy(const tavrin_KELD_Obj* obj, const tavrin_KELD_Image* output) {
    const tavrin_KELD_Image* frame = &obj->input_images[0][0];
    copyPlane(output->plane0, frame->plane0, int64_t{output->height} * output->pitch0,
              int64_t{frame->height} * frame->pitch0);
    const int64_t out_chroma = int64_t{output->height} * output->pitch1;
    const int64_t in_chroma = int64_t{frame->height} * frame->pitch1;
    switch (obj->format) {
        case 45:
        case 46:
            copyPlane(output->plane1, frame->plane1, out_chroma, in_chroma);
            break;
        case 48:
        case 49:
            copyPlane(output->plane1, frame->plane1, out_chroma / 2, in_chroma / 2);
            break;
        default:
            TavrinKELD_logError(obj->debug.log_level, "Unvalid image format #%d\n", obj->format);
            break;
    }
}

uint32_t initSuperResolution(tavrin_KELD_Obj* obj, const tavrin_KELD_Image* output) {
    const int32_t level = obj->debug.log_level;
    TavrinKELD_logDebug(level, "output_image: %d, %d, %d", output->width, output->height,
                        output->pitch0);
    TavrinKELD_logDebug(level, "output_w_h: %d, %d", obj->output_width, obj->output_height);
    uint32_t status =
        tav_sr2_init(&obj->sr_engine, obj->buffer, obj->buffer_size, obj->width, obj->height,
                     obj->output_width, obj->output_height, obj->num_max_ev, obj->merge_num,
                     obj->num_cores, tav_com_formatName(obj->format), obj->zoom_ratio);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to initialize SuperResolution2 engine, ret = %x",
                            status);
        return status;
    }
    // The mean of two ints fits an int; their sum need not.
    const int32_t* r = obj->zoom_rect;
    const int32_t center_x = static_cast<int32_t>((int64_t{r[0]} + r[2]) / 2);
    const int32_t center_y = static_cast<int32_t>((int64_t{r[1]} + r[3]) / 2);
    status = tav_sr2_setZoomCenter(&obj->sr_engine, center_x, center_y);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to set zoom center, ret = %x", status);
    }
    return status;
}

void printDeghostChoice(const tavrin_KELD_Obj* obj, const tav_sr2_SrParams* sr) {
    printf("\n#debug param(face_enable=%d, face_num=%d) : \n", obj->debug.face_enable,
           obj->face_num);
    printf("deghost_level       = %f\n", sr->deghost_level);
    printf("deghost_sigma       = %f\n", sr->deghost_sigma);
    printf("deghost_nr_level    = %f\n", sr->deghost_nr_level);
    printf("ghost_ratio_thres   = %f\n", sr->ghost_ratio_thres);
    printf("deghost_weight_face = %d\n", sr->deghost_weight_face);
}

// The engine's tuning for group g: its own record overwritten from the group's file row.
uint32_t setSuperResolutionParams(tavrin_KELD_Obj* obj, int32_t g) {
    const int32_t level = obj->debug.log_level;
    const int64_t start = nowMs(level);
    tav_sr2_SrParams sr;
    uint32_t status = tav_sr2_getParams(&obj->sr_engine, &sr);
    if (status == TAV_OK) {
        const int32_t deghost =
            TavrinKELD_internal_chooseDeghost(obj->face_num, obj->debug.face_enable, level);
        TavrinKELD_internal_toSrParams(&obj->ev_params.ev[g], deghost, &sr);
        if (obj->debug.enable) printDeghostChoice(obj, &sr);
        // Frames of one group may still differ in brightness: the equalisation stays on.
        sr.keld_mode = 0;
        sr.removebrightnessdiff_image_enable = 1;
        obj->brightness_diff = 1;
        TavrinKELD_logDebug(level, "open brightnessdiff : %d", obj->brightness_diff);
        status = tav_sr2_setParams(&obj->sr_engine, &sr);
    }
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to set tavrin super resolution params, errno = %x",
                            status);
    }
    logTimeSpent(level, kParamsStep, start);
    return status;
}

// Cores and start, for the first group. INTERIM: the GPU program cache (make_gpu_bin and
// tav_sr2_setGpuBinary) comes with the GPU path; until then the engine builds its programs from
// text and this goes from the tuning straight to the cores.
uint32_t startEngine(tavrin_KELD_Obj* obj) {
    const int32_t level = obj->debug.log_level;
    uint32_t status = tav_sr2_setCore(&obj->sr_engine, 0, obj->num_cores, obj->affinity_mask);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to set tavrin super resolution core, errno = %x",
                            status);
        return status;
    }
    status = tav_sr2_start(&obj->sr_engine);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to start tavrin super resolution engine, errno = %x",
                            status);
    }
    return status;
}

void passFaces(tavrin_KELD_Obj* obj) {
    const int32_t level = obj->debug.log_level;
    tav_sr2_Rect rects[TAVRIN_KELD_MAX_FACES];
    for (int32_t i = 0; i < obj->face_num; i++) {
        const tavrin_KELD_Rect* f = &obj->face_rects[i];
        TavrinKELD_logDebug(level, "face_info[%d] = {%d, %d, %d, %d}", i, f->left, f->top, f->right,
                            f->bottom);
        rects[i] = {f->left, f->top, f->right, f->bottom};
    }
    uint32_t status = tav_sr2_setFaceRects(&obj->sr_engine, rects, obj->face_num);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to add face info to super resolution engine, errno = %x",
                            status);
        TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
    }
}

void passCondition(tavrin_KELD_Obj* obj) {
    const int32_t level = obj->debug.log_level;
    tav_sr2_Condition condition = {};
    condition.iso = obj->base_iso >= 1 ? obj->base_iso : obj->cfg_meta.iso;
    condition.time_limit_us = TAVRIN_KELD_TIME_BUDGET_US;
    condition.total_gain = 1.0;
    condition.adrc_gain = 1.0;
    uint32_t status = tav_sr2_setCondition(&obj->sr_engine, &condition);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to set condition params to sr engine, errno = %x",
                            status);
        TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
    }
    TavrinKELD_logDebug(level, "Base image iso : %d", condition.iso);
}

void passFrames(tavrin_KELD_Obj* obj, int32_t g) {
    const int32_t level = obj->debug.log_level;
    for (int32_t i = 0; i < obj->ev_image_num[g]; i++) {
        const tavrin_KELD_Image* image = &obj->input_images[g][i];
        const tavrin_KELD_MetaData* meta = &obj->meta_data[g][i];
        uint32_t status = tav_sr2_addImage(&obj->sr_engine, image);
        if (status != TAV_OK) {
            TavrinKELD_logError(level, "Failed to add images to sr engine, errno = %x", status);
            TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
        }
        TavrinKELD_logDebug(level,
                            "input_image[%d][%d] = {buffer = %p, size = %d x %d, iso = %d, et = "
                            "%d}",
                            g, i, image->plane0, image->width, image->height, meta->iso,
                            meta->exposure_time);
    }
}

void findBaseFrame(tavrin_KELD_Obj* obj, int32_t g) {
    if (obj->ev_image_num[g] < 2) return;
    const int32_t level = obj->debug.log_level;
    uint32_t status = tav_sr2_getBaseImage(&obj->sr_engine, &obj->base_id);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to get base image index");
        TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
    }
    TavrinKELD_logDebug(level, "EV[%d]. base_id = %d", g, obj->base_id);
    // INTERIM: the base frame dump (dump_base) arrives with the dump writer.
}

void runEngine(tavrin_KELD_Obj* obj, int32_t g, const tavrin_KELD_Image* output) {
    const int32_t level = obj->debug.log_level;
    uint32_t status;
    if (obj->ev_num == 1) {
        TavrinKELD_logDebug(level, "%s SR Process ....", kProcessStep);
        status = tav_sr2_process(&obj->sr_engine, output);
    } else {
        // Without multi-group fusion a group's result replaces its first frame.
        status = tav_sr2_process(&obj->sr_engine, &obj->input_images[g][0]);
        // INTERIM: the group output dump (mask 3) arrives with the dump writer.
    }
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to get sr output image, errno = %x", status);
        TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
    }
    if (obj->ev_num == 1) {
        TavrinKELD_logDebug(level, "%s SR Process Finish", kProcessStep);
        TavrinKELD_logDebug(level, "output_image: %d, %d", output->width, output->height);
    }
}

void readMergeNum(tavrin_KELD_Obj* obj) {
    const int32_t level = obj->debug.log_level;
    if (level <= 0) return;
    uint32_t status = tav_sr2_getMergeNum(&obj->sr_engine, &obj->merge_num);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to get sr output image, errno = %x", status);
        TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
        return;
    }
    TavrinKELD_logDebug(level, "SR MergeNum %d", obj->merge_num);
}

// One engine run per frame group. Failures of tuning, cores or start end the loop.
void processSuperResolution(tavrin_KELD_Obj* obj, const tavrin_KELD_Image* output) {
    const int32_t level = obj->debug.log_level;
    for (int32_t g = 0; g < obj->ev_num; g++) {
        uint32_t status = setSuperResolutionParams(obj, g);
        if (status != TAV_OK) {
            TavrinKELD_logError(level, "Failed to set params to sr engine, errno = %x", status);
            TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
            return;
        }
        if (g == 0) {
            status = startEngine(obj);
            if (status != TAV_OK) {
                TAVRIN_KELD_LOG_IF_TIMEOUT(level, status);
                return;
            }
        }
        passFaces(obj);
        passCondition(obj);
        passFrames(obj, g);
        findBaseFrame(obj, g);
        runEngine(obj, g, output);
        readMergeNum(obj);
    }
}

// Tears the engine down; its failure is the only failure the process call reports.
uint32_t finishSuperResolution(tavrin_KELD_Obj* obj) {
    if (!obj->sr_engine) return TAV_OK;
    const int32_t level = obj->debug.log_level;
    uint32_t status = tav_sr2_finish(&obj->sr_engine);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to uninit tavrin super resolution engine, errno = %x",
                            status);
        TavrinKELD_logError(level, "Failed to uninit sr, errno = %x", status);
    }
    return status;
}

void clearBurst(tavrin_KELD_Obj* obj) {
    obj->face_num = 0;
    memset(obj->input_images, 0, sizeof obj->input_images);
    memset(obj->meta_data, 0, sizeof obj->meta_data);
    obj->ev_num = 0;
    memset(obj->ev_image_num, 0, sizeof obj->ev_image_num);
    obj->input_num = 0;
}

}  // namespace

uint32_t TavrinKELD_internal_process(tavrin_KELD_Obj** handle, const tavrin_KELD_Image* output,
                                     tavrin_KELD_ProcessResult* result) {
    if (!handle || !output || !*handle || (*handle)->input_num < 1 || (*handle)->ev_num < 1) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    tavrin_KELD_Obj* obj = *handle;
    const int32_t level = obj->debug.log_level;
    const int64_t start = nowMs(level);
    TavrinKELD_logDebug(level, "%s E", __func__);

    if (obj->debug.bypass && obj->ev_image_num[0] >= 1) {
        bypassCopy(obj, output);
        return TAV_OK;
    }
    // INTERIM: the parameter dump (dump bit 1) arrives with the dump writer.

    uint32_t status = initSuperResolution(obj, output);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Faild to init tavrin super resolution engine, errno = %x",
                            status);
    } else {
        const int64_t run_start = nowMs(level);
        processSuperResolution(obj, output);
        logTimeSpent(level, kProcessStep, run_start);
    }

    const uint32_t finished = finishSuperResolution(obj);
    if (finished != TAV_OK) {
        TavrinKELD_logError(level, "Failed to process tavrin super resolution, error code = %x",
                            finished);
        if (finished != TAV_ERROR_TIMEOUT) return finished;
    }
    if (result) {
        result->base_id = obj->base_id;
        result->merge_num = obj->merge_num;
    }
    if (obj->debug.draw_logo) {
        TavrinKELD_internal_drawLogo(output);
        TavrinKELD_logDebug(level, "Draw Logo To Output Image");
    }
    if (obj->debug.draw_face) {
        TavrinKELD_internal_drawFace(output, obj->face_rects, obj->face_num);
        TavrinKELD_logDebug(level, "Draw Face Rect To Output Image");
    }
    // INTERIM: the output dump (dump bit 2) arrives with the dump writer.
    clearBurst(obj);
    logTimeSpent(level, __func__, start);
    TavrinKELD_logDebug(level, "%s X", __func__);
    return finished;
}
