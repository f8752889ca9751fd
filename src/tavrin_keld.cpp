// The exported functions of the shared library: thin shells that check their arguments, build
// the instance layer's records and call it. A NULL pointer or a value out of range returns
// TAV_ERROR_PARAM without a log line here; everything else is reported by the instance layer.
//
// TavrinKELD_init: the init record gets num_evs 1, 8 cores and the mask 240 (or the host's 192,
//   240 or 255), then the properties "debug.tavrin.keld.core_num" (1..12), ".core_mask"
//   (1..255) and ".merge_num" (1..num_max_ev, else num_max_ev) override cores, mask and merge
//   limit.
// TavrinKELD_setParamsByCfgFile, TavrinKELD_addImage: the internal metadata record with its
//   reserved fields zero (only iso for the former).
#include "src/tavrin_keld.h"

#include <string.h>

#include "src/keld_log.h"
#include "src/property_service.h"
#include "src/tavrin_internal_keld.h"
#include "src/version.h"

namespace {

bool inRange(int32_t v, int32_t lo, int32_t hi) {
    return v >= lo && v <= hi;
}

bool publicInitValid(const tavrin_KELD_PublicInitParams* p) {
    return p->width >= 1 && p->height >= 1 && p->stride >= 1 && p->output_width >= 1 &&
           p->output_height >= 1 && inRange(p->format, 1, TAVRIN_KELD_MAX_FORMAT) &&
           inRange(p->num_max_ev, 1, TAVRIN_KELD_MAX_EV);
}

bool hostAffinityTaken(uint32_t mask) {
    return mask == 192 || mask == 240 || mask == 255;
}

// A property that overrides a setting when it lies in lo..hi.
void overrideFromProperty(const char* name, int32_t lo, int32_t hi, int32_t* setting) {
    int32_t value = 0;
    if (TavrinKELD_Property_getInt(name, &value) == TAV_OK && inRange(value, lo, hi)) {
        *setting = value;
    }
}

tavrin_KELD_InitParams internalInit(const tavrin_KELD_PublicInitParams* p) {
    tavrin_KELD_InitParams init = {};
    init.camera_id = p->camera_id;
    init.width = p->width;
    init.height = p->height;
    init.stride = p->stride;
    init.output_width = p->output_width;
    init.output_height = p->output_height;
    init.num_evs = 1;
    init.num_max_ev = p->num_max_ev;
    init.zoom_ratio = p->zoom_ratio;
    init.reserved0 = p->reserved0;
    memcpy(init.zoom_rect, p->zoom_rect, sizeof init.zoom_rect);
    init.format = p->format;
    init.reserved1 = p->reserved1;
    init.num_cores = TAVRIN_KELD_DEFAULT_CORES;
    init.affinity_mask = TAVRIN_KELD_DEFAULT_AFFINITY;
    init.params_cfg_file = p->params_cfg_file;
    init.params_bin_file = p->params_bin_file;
    if (hostAffinityTaken(p->affinity_mask))
        init.affinity_mask = static_cast<int32_t>(p->affinity_mask);

    overrideFromProperty(TAVRIN_KELD_PROP_CORE_NUM, 1, TAVRIN_KELD_MAX_CORES, &init.num_cores);
    overrideFromProperty(TAVRIN_KELD_PROP_CORE_MASK, 1, TAVRIN_KELD_MAX_CORE_MASK,
                         &init.affinity_mask);
    init.merge_num = init.num_max_ev;
    overrideFromProperty(TAVRIN_KELD_PROP_MERGE_NUM, 1, init.num_max_ev, &init.merge_num);
    return init;
}

tavrin_KELD_MetaData internalMeta(const tavrin_KELD_PublicMetaData* meta) {
    tavrin_KELD_MetaData internal = {};
    internal.iso = meta->iso;
    internal.exposure_time = meta->exposure_time;
    internal.is_base_img = meta->is_base_img;
    return internal;
}

bool rectEmpty(const tavrin_KELD_Rect* r) {
    return r->right <= r->left || r->bottom <= r->top;
}

}  // namespace

extern "C" {

TAVRIN_KELD_EXPORT const char* TavrinKELD_getVersion(void) {
    return TAVRIN_KELD_VERSION;
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_init(tavrin_KELD_Obj** handle,
                                            const tavrin_KELD_PublicInitParams* init_params) {
    if (!handle || !init_params || !publicInitValid(init_params)) return TAV_ERROR_PARAM;
    const tavrin_KELD_InitParams init = internalInit(init_params);
    TavrinKELD_logDebug(tavrin_KELD_debug_props.log_level, "SDK Version: %s",
                        TavrinKELD_getVersion());
    return TavrinKELD_internal_init(handle, &init);
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_setParamsByCfgFile(tavrin_KELD_Obj** handle,
                                                          const tavrin_KELD_PublicMetaData* meta) {
    if (!handle || !meta || meta->iso < 1) return TAV_ERROR_PARAM;
    tavrin_KELD_MetaData internal = {};
    internal.iso = meta->iso;
    return TavrinKELD_internal_setParamsByCfgFile(handle, &internal);
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_addFaceRect(tavrin_KELD_Obj** handle,
                                                   const tavrin_KELD_Rect* rect) {
    if (!handle || !rect || rectEmpty(rect)) return TAV_ERROR_PARAM;
    return TavrinKELD_internal_addFaceRect(handle, rect);
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_addImage(tavrin_KELD_Obj** handle,
                                                const tavrin_KELD_Image* image,
                                                const tavrin_KELD_PublicMetaData* meta) {
    if (!handle || !image || !meta) return TAV_ERROR_PARAM;
    const tavrin_KELD_MetaData internal = internalMeta(meta);
    return TavrinKELD_internal_addImage(handle, image, &internal);
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_process(tavrin_KELD_Obj** handle,
                                               const tavrin_KELD_Image* output,
                                               tavrin_KELD_ProcessResult* result) {
    if (!handle || !output) return TAV_ERROR_PARAM;
    return TavrinKELD_internal_process(handle, output, result);
}

TAVRIN_KELD_EXPORT uint64_t TavrinKELD_uninit(tavrin_KELD_Obj** handle) {
    if (!handle) return TAV_ERROR_PARAM;
    return TavrinKELD_internal_uninit(handle);
}

}  // extern "C"
