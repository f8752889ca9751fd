// The instance's life: init, the tuning from the parameter file, uninit.
//
// TavrinKELD_internal_init(handle, init_params): refuses bad arguments with "Error params" and
//   TAV_ERROR_PARAM (an output smaller than the frame included), reads the debug block, allocates
//   the object (zeroed), copies the init fields, settles t_merge_num from the merge_num property
//   (8 when it is out of range, 5 in super zoom), derives the geometry, sizes and allocates the
//   work buffer, opens the parameter file and, for two or more frame groups, the group result
//   image. Every failure releases what was made before it and leaves *handle untouched.
// TavrinKELD_internal_deriveGeometry(obj): an empty zoom rect is the whole frame. With no ratio
//   given, or an output wider than the frame, the ratio is the larger of output / rect in each
//   dimension (double, stored as float), and a full-width rect means super zoom. A given ratio
//   with an output as wide as the frame keeps the ratio and makes the rect the whole frame.
// TavrinKELD_internal_setParamsByCfgFile(handle, meta): the look-up keys from the ISO and the
//   zoom, the row of the file into ev_params, then merge_num = min(t_merge_num, num_max_ev).
// TavrinKELD_internal_uninit(handle): closes the engine log (level 7), the parser, frees the
//   buffer, the group result and the object, clears *handle; a parser failure is returned.
#include "src/tavrin_internal_keld.h"

#include <stdlib.h>
#include <string.h>

#include "engine/buffer_budget.h"
#include "foundation/log.h"
#include "foundation/status.h"
#include "src/com_format_names.h"
#include "src/keld_log.h"
#include "src/property_service.h"

namespace {

constexpr int32_t kMaxEvGroups = TAVRIN_KELD_MAX_EV_GROUPS;
constexpr int32_t kPrintRecords = 2;        // log_level bit that prints the records
constexpr int32_t kCoreEngineLogLevel = 7;  // log_level that may open the engine log
constexpr int32_t kEngineLogVerbosity = 4;

bool inRange(int32_t v, int32_t lo, int32_t hi) {
    return v >= lo && v <= hi;
}

bool zoomAcceptable(float zoom) {
    return zoom == 0.0f || (zoom >= TAVRIN_KELD_MIN_ZOOM && zoom <= TAVRIN_KELD_MAX_ZOOM);
}

bool initArgsValid(const tavrin_KELD_InitParams* p) {
    return p->width >= 1 && p->height >= 1 && p->stride >= 1 &&
           inRange(p->num_max_ev, 1, TAVRIN_KELD_MAX_EV) && inRange(p->num_evs, 1, kMaxEvGroups) &&
           zoomAcceptable(p->zoom_ratio) && inRange(p->format, 1, TAVRIN_KELD_MAX_FORMAT) &&
           p->output_width >= p->width && p->output_height >= p->height;
}

void printInitParams(int32_t level, const char* heading, const tavrin_KELD_InitParams* p) {
    TavrinKELD_logDebug(level, "%s", heading);
    TavrinKELD_logDebug(level, "camera_id = %d", p->camera_id);
    TavrinKELD_logDebug(level, "width = %d, height = %d, stride = %d", p->width, p->height,
                        p->stride);
    TavrinKELD_logDebug(level, "output_width = %d, output_height = %d", p->output_width,
                        p->output_height);
    TavrinKELD_logDebug(level, "num_evs = %d, num_max_ev = %d, merge_num = %d", p->num_evs,
                        p->num_max_ev, p->merge_num);
    TavrinKELD_logDebug(level, "zoom_ratio = %f", p->zoom_ratio);
    TavrinKELD_logDebug(level, "zoom_rect = {%d, %d, %d, %d}", p->zoom_rect[0], p->zoom_rect[1],
                        p->zoom_rect[2], p->zoom_rect[3]);
    TavrinKELD_logDebug(level, "format = %d", p->format);
    TavrinKELD_logDebug(level, "num_cores = %d, affinity_mask = %d", p->num_cores,
                        p->affinity_mask);
    TavrinKELD_logDebug(level,
                        "enable_fine_exp_fusion = %d, enable_post_drc = %d, "
                        "enable_anti_aliasing_halo = %d",
                        p->enable_fine_exp_fusion, p->enable_post_drc,
                        p->enable_anti_aliasing_halo);
    TavrinKELD_logDebug(level, "params_cfg_file = %s",
                        p->params_cfg_file ? p->params_cfg_file : "(null)");
    TavrinKELD_logDebug(level, "params_bin_file = %s",
                        p->params_bin_file ? p->params_bin_file : "(null)");
}

void copyInitFields(tavrin_KELD_Obj* obj, const tavrin_KELD_InitParams* p) {
    obj->camera_id = p->camera_id;
    obj->width = p->width;
    obj->height = p->height;
    obj->stride = p->stride;
    obj->output_width = p->output_width;
    obj->output_height = p->output_height;
    obj->num_evs = p->num_evs;
    obj->num_max_ev = p->num_max_ev;
    obj->zoom_ratio = p->zoom_ratio;
    memcpy(obj->zoom_rect, p->zoom_rect, sizeof obj->zoom_rect);
    obj->format = p->format;
    obj->num_cores = p->num_cores;
    obj->affinity_mask = p->affinity_mask;
    obj->enable_fine_exp_fusion = p->enable_fine_exp_fusion;
    obj->enable_post_drc = p->enable_post_drc;
    obj->enable_anti_aliasing_halo = p->enable_anti_aliasing_halo;
    obj->params_cfg_file = p->params_cfg_file;
    obj->merge_num = p->merge_num;
    obj->params_bin_file = p->params_bin_file;
}

// The object's init fields in the init record's shape, for the print-out.
tavrin_KELD_InitParams storedInitParams(const tavrin_KELD_Obj* obj) {
    tavrin_KELD_InitParams p = {};
    p.camera_id = obj->camera_id;
    p.width = obj->width;
    p.height = obj->height;
    p.stride = obj->stride;
    p.output_width = obj->output_width;
    p.output_height = obj->output_height;
    p.num_evs = obj->num_evs;
    p.num_max_ev = obj->num_max_ev;
    p.zoom_ratio = obj->zoom_ratio;
    memcpy(p.zoom_rect, obj->zoom_rect, sizeof p.zoom_rect);
    p.format = obj->format;
    p.num_cores = obj->num_cores;
    p.affinity_mask = obj->affinity_mask;
    p.enable_fine_exp_fusion = obj->enable_fine_exp_fusion;
    p.enable_post_drc = obj->enable_post_drc;
    p.enable_anti_aliasing_halo = obj->enable_anti_aliasing_halo;
    p.params_cfg_file = obj->params_cfg_file;
    p.merge_num = obj->merge_num;
    p.params_bin_file = obj->params_bin_file;
    return p;
}

void setXmlBaseName(tavrin_KELD_Obj* obj) {
    const char* path = obj->params_cfg_file;
    if (!path) return;
    const char* slash = strrchr(path, '/');
    const char* base = slash ? slash + 1 : path;
    strncpy(obj->xml_base_name, base, sizeof obj->xml_base_name - 1);
}

// The merge limit asked for by property, or the default when the property is out of range.
int32_t mergeLimitFromProperty(const tavrin_KELD_Obj* obj, int32_t level) {
    int32_t merge_num = 0;
    TavrinKELD_Property_getInt(TAVRIN_KELD_PROP_MERGE_NUM, &merge_num);
    TavrinKELD_logDebug(level, "get merge_num: %d", merge_num);
    return inRange(merge_num, 1, obj->num_max_ev) ? merge_num : TAVRIN_KELD_DEFAULT_T_MERGE;
}

uint32_t allocWorkBuffer(tavrin_KELD_Obj* obj, int32_t level) {
    const int32_t size = tav_sr2_getBufferSize(obj->width, obj->height, obj->output_width,
                                               obj->output_height, obj->num_max_ev, obj->num_max_ev,
                                               tav_com_formatName(obj->format), obj->zoom_ratio);
    if (size < 1) {
        TavrinKELD_logError(level, "Failed to get super resolution buffer size.");
        return TAV_ERROR_GENERIC;
    }
    obj->buffer = malloc(static_cast<size_t>(size));
    if (!obj->buffer) {
        TavrinKELD_logError(level, "Failed to malloc buffer.");
        return TAV_ERROR_MALLOC;
    }
    obj->buffer_size = size;
    TavrinKELD_logDebug(level, "sr_buffer_size = %d MB", size >> 20);
    TavrinKELD_logDebug(level, "buffer_size = %d MB, buffer = %p", obj->buffer_size >> 20,
                        obj->buffer);
    return TAV_OK;
}

uint32_t openParamsFile(tavrin_KELD_Obj* obj, int32_t level) {
    uint32_t status =
        TavrinKELD_XmlParser_open(&obj->xml_parser, obj->params_cfg_file, TAVRIN_KELD_XML_READ);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to init tavrin xml parser, errno = %x", status);
    }
    return status;
}

// The group result image: frame-sized, in the frame's layout.
uint32_t allocOutputImage(tavrin_KELD_Obj* obj, int32_t level) {
    const int64_t bytes =
        TavrinKELD_internal_outputImageBytes(obj->format, obj->stride, obj->height);
    if (bytes == 0) {
        TavrinKELD_logError(level, "Unvalid image format #%d\n", obj->format);
        return TAV_OK;
    }
    uint8_t* memory = static_cast<uint8_t*>(malloc(static_cast<size_t>(bytes)));
    if (!memory) return TAV_ERROR_MALLOC;
    tavrin_KELD_Image* image = &obj->output_image;
    image->width = obj->width;
    image->height = obj->height;
    image->plane0 = memory;
    image->plane1 = memory + static_cast<int64_t>(obj->stride) * obj->height;
    image->pitch0 = obj->stride;
    image->pitch1 = obj->stride;
    return TAV_OK;
}

void closeEngineLog(int32_t level) {
    if (level != kCoreEngineLogLevel) return;
    tav_sr2_Logger_disable();
    TavrinKELD_logDebug(level, "Close Core Engine Log");
}

// Releases the parts of a half-made object, then the object.
void abandonObject(tavrin_KELD_Obj* obj) {
    free(obj->output_image.plane0);
    free(obj->buffer);
    if (obj->debug.log_level == kCoreEngineLogLevel && obj->debug.core_engine_dump) {
        tav_sr2_Logger_disable();
    }
    free(obj);
}

uint32_t buildObject(tavrin_KELD_Obj* obj, const tavrin_KELD_InitParams* init_params,
                     int32_t level) {
    copyInitFields(obj, init_params);
    setXmlBaseName(obj);
    TavrinKELD_logDebug(level, "xml_base_name: %s", obj->xml_base_name);

    obj->t_merge_num = mergeLimitFromProperty(obj, level);
    obj->debug = tavrin_KELD_debug_props;
    obj->base_iso = 0;
    obj->debug.camera_id = obj->camera_id;

    TavrinKELD_internal_deriveGeometry(obj);
    if (obj->super_zoom == 1) obj->t_merge_num = TAVRIN_KELD_SUPER_ZOOM_MERGE;

    uint32_t status = allocWorkBuffer(obj, level);
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to malloc buffer, errno = %x", status);
        TavrinKELD_logError(level, "Failed to init keld obj, errno = %x", status);
        return status;
    }
    if (obj->params_cfg_file) {
        status = openParamsFile(obj, level);
        if (status != TAV_OK) {
            TavrinKELD_logError(level, "Failed to init xml parser, errno = %x", status);
            TavrinKELD_logError(level, "Failed to init keld obj, errno = %x", status);
            return status;
        }
    }
    if (obj->num_evs >= 2 && allocOutputImage(obj, level) != TAV_OK) {
        status = TAV_ERROR_MALLOC;
        if (obj->xml_parser) status |= TavrinKELD_XmlParser_close(&obj->xml_parser);
        TavrinKELD_logError(level, "Failed to init output image, errno = %x", status);
        return status;
    }
    return TAV_OK;
}

}  // namespace

const char* TavrinKELD_internal_getVersion(void) {
    return TAVRIN_KELD_INTERNAL_VERSION;
}

void TavrinKELD_internal_deriveGeometry(tavrin_KELD_Obj* obj) {
    int32_t* rect = obj->zoom_rect;
    if (rect[0] == rect[2]) {
        rect[0] = 0;
        rect[1] = 0;
        rect[2] = obj->width;
        rect[3] = obj->height;
    }
    // The host's rect may span more than an int: widths are taken in 64 bits.
    const int64_t rect_width = int64_t{rect[2]} - rect[0];
    const int64_t rect_height = int64_t{rect[3]} - rect[1];
    if (obj->zoom_ratio == 0.0f || obj->output_width != obj->width) {
        const double zoom_x =
            static_cast<double>(obj->output_width) / static_cast<double>(rect_width);
        const double zoom_y =
            static_cast<double>(obj->output_height) / static_cast<double>(rect_height);
        obj->zoom_ratio = static_cast<float>(zoom_x > zoom_y ? zoom_x : zoom_y);
        if (rect_width == obj->width && obj->output_width != obj->width) obj->super_zoom = 1;
    } else {
        rect[0] = 0;
        rect[1] = 0;
        rect[2] = obj->width;
        rect[3] = obj->height;
    }
}

int64_t TavrinKELD_internal_outputImageBytes(int32_t format, int32_t stride, int32_t height) {
    const int64_t plane = static_cast<int64_t>(stride) * height;
    switch (format) {
        case 45:
        case 46:
            return plane * 2;
        case 48:
        case 49:
            return plane * 3 / 2;
        default:
            return 0;
    }
}

uint32_t TavrinKELD_internal_init(tavrin_KELD_Obj** handle,
                                  const tavrin_KELD_InitParams* init_params) {
    if (!handle || !init_params || !initArgsValid(init_params)) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    TavrinKELD_DebugProps_read(&tavrin_KELD_debug_props);
    const tavrin_KELD_DebugProps* props = &tavrin_KELD_debug_props;
    const int32_t level = props->log_level;
    TavrinKELD_logDebug(level, "%s E", __func__);
    TavrinKELD_logDebug(level, "Internal SDK Verion: %s", TavrinKELD_internal_getVersion());
    TavrinKELD_logDebug(level, "Core Engine Version : %s", tav_sr2_getVersion());

    tavrin_KELD_Obj* obj = static_cast<tavrin_KELD_Obj*>(calloc(1, sizeof(tavrin_KELD_Obj)));
    if (!obj) {
        TavrinKELD_logError(level, "Failed to malloc buffer for tavrin_KELD_Obj.");
        return TAV_ERROR_MALLOC;
    }
    if (level & kPrintRecords) printInitParams(level, "[Input Init Params]:", init_params);
    if (level == kCoreEngineLogLevel && props->core_engine_dump) {
        tav_sr2_Logger_enable();
        tav_sr2_Logger_setLevel(kEngineLogVerbosity);
        TavrinKELD_logDebug(level, "Open Core Engine Log");
    }

    uint32_t status = buildObject(obj, init_params, level);
    if (status != TAV_OK) {
        abandonObject(obj);
        return status;
    }
    if (level & kPrintRecords) {
        const tavrin_KELD_InitParams stored = storedInitParams(obj);
        printInitParams(level, "[KELD Obj Init Params]:", &stored);
    }
    *handle = obj;
    TavrinKELD_logDebug(level, "%s X", __func__);
    return TAV_OK;
}

uint32_t TavrinKELD_internal_setParamsByCfgFile(tavrin_KELD_Obj** handle,
                                                const tavrin_KELD_MetaData* meta) {
    if (!handle || !meta || meta->iso < 1 || !*handle) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    tavrin_KELD_Obj* obj = *handle;
    const int32_t level = obj->debug.log_level;
    if (!obj->params_cfg_file) {
        TavrinKELD_logError(level, "params_cfg_file is NULL, please check it in init params.");
        return TAV_ERROR_PARAM;
    }
    obj->cfg_meta = TavrinKELD_internal_makeCfgMeta(meta->iso, obj->zoom_ratio, obj->super_zoom);
    obj->debug.iso = meta->iso;

    uint32_t status = TavrinKELD_internal_updateParamsFromCfg(obj->xml_parser, obj->camera_id,
                                                              &obj->cfg_meta, obj->super_zoom,
                                                              obj->num_evs, &obj->ev_params, level);
    if (status != TAV_OK) return status;

    TavrinKELD_logDebug(level, "t_merge_num : %d", obj->t_merge_num);
    if (obj->t_merge_num > 0) {
        obj->merge_num = obj->t_merge_num < obj->num_max_ev ? obj->t_merge_num : obj->num_max_ev;
    }
    TavrinKELD_logDebug(level, "num_max_ev: %d", obj->num_max_ev);
    TavrinKELD_logDebug(level, "merge_num: %d", obj->merge_num);
    return TAV_OK;
}

uint32_t TavrinKELD_internal_uninit(tavrin_KELD_Obj** handle) {
    if (!handle || !*handle) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    tavrin_KELD_Obj* obj = *handle;
    const int32_t level = obj->debug.log_level;
    closeEngineLog(level);

    uint32_t status = TAV_OK;
    if (obj->xml_parser) {
        status = TavrinKELD_XmlParser_close(&obj->xml_parser);
        if (status != TAV_OK) {
            TavrinKELD_logError(level, "Failed to uninit tavrin xml parser, errno = %x", status);
        }
    }
    free(obj->buffer);
    free(obj->output_image.plane0);
    memset(&obj->output_image, 0, sizeof obj->output_image);
    free(obj);
    *handle = nullptr;
    if (status != TAV_OK) {
        TavrinKELD_logError(level, "Failed to uninit tavrin keld engine, errno = %x", status);
    }
    return status;
}
