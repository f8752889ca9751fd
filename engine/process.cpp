// tav_sr2_process(handle, output): wraps the host's output as the engine's output image (format
// 48 for the packed 10-bit input, else the engine's format), then aligns the burst, hands the
// pipeline its output and runs the main loop. All three are called, and their results combine
// by OR. cursor 0 and state 64 on every path past the wrapping.
#include "engine/process.h"

#include "engine/pipeline_align.h"
#include "engine/wrap_planes.h"

uint32_t tav_sr2_process(tav_sr2_Engine** handle, const tavrin_KELD_Image* output) {
    if (handle == nullptr || *handle == nullptr || output == nullptr || output->plane0 == nullptr)
        return TAV_ERROR_PARAM;
    tav_sr2_Engine* e = *handle;
    if (!tav_sr2_isRunFormat(e->format)) return TAV_ERROR_UNSUPPORTED;
    const int32_t format =
        e->format == TAV_SR2_FMT_YUV10B_PACKED_LE_420S ? TAV_SR2_FMT_YUV420_SEMIPLANAR : e->format;
    if (tav_sr2_Image_wrapPlanes(&e->output_image, output, format) != TAV_OK)
        return TAV_ERROR_GENERIC;
    tav_sr2_Pipeline* pipeline = &e->pipeline;
    uint32_t status = tav_sr2_Pipeline_align(pipeline);
    status |= tav_sr2_Pipeline_setOutput(pipeline, &e->output_image);
    status |= tav_sr2_Pipeline_process(pipeline);
    e->cursor = 0;
    e->state |= TAV_SR2_STATE_PROCESSED;
    return status;
}
