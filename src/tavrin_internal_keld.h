// tavrin_KELD_Obj: the instance behind a public handle, and its operations.
//
// The instance checks and derives the geometry of a capture, owns the engine's work buffer and
// the open parameter file, and collects faces, frames and tuning without touching pixels. Each
// process call builds a core engine at the head of the work buffer, drives it through one run
// per frame group, decorates the output and destroys the engine again; the instance is then
// ready for the next burst.
#pragma once

#include <stdint.h>

#include "engine/engine.h"
#include "src/debug_props.h"
#include "src/ev_params.h"
#include "src/params_loader.h"
#include "src/tavrin_keld.h"
#include "src/xml_parser.h"

#define TAVRIN_KELD_INTERNAL_VERSION "Tavrin Internal KELD Ver.1.2.8 2025-08-11 Brumel"

static const int32_t TAVRIN_KELD_MAX_FACES = 5;
static const int32_t TAVRIN_KELD_MAX_GROUP_FRAMES = 20;  // frames per group
static const int32_t TAVRIN_KELD_MAX_EV = 20;            // num_max_ev
static const int32_t TAVRIN_KELD_MAX_FORMAT = 99;
static const float TAVRIN_KELD_MIN_ZOOM = 1.0f;
static const float TAVRIN_KELD_MAX_ZOOM = 30.0f;
static const int32_t TAVRIN_KELD_DEFAULT_CORES = 8;
static const int32_t TAVRIN_KELD_DEFAULT_AFFINITY = 240;
static const int32_t TAVRIN_KELD_MAX_CORES = 12;
static const int32_t TAVRIN_KELD_MAX_CORE_MASK = 255;
static const int32_t TAVRIN_KELD_DEFAULT_T_MERGE = 8;  // t_merge_num without a usable property
static const int32_t TAVRIN_KELD_SUPER_ZOOM_MERGE = 5;
static const int32_t TAVRIN_KELD_TIME_BUDGET_US = 10000000;
static const int32_t TAVRIN_KELD_XML_BASE_NAME_SIZE = 256;

// The init record of the instance layer.
struct tavrin_KELD_InitParams {
    int32_t camera_id;
    int32_t width;
    int32_t height;
    int32_t stride;
    int32_t output_width;
    int32_t output_height;
    int32_t num_evs;  // frame groups, 1..5; the public interface fixes it to 1
    int32_t num_max_ev;
    float zoom_ratio;
    int32_t reserved0;
    int32_t zoom_rect[4];
    int32_t format;
    int32_t reserved1;
    int32_t num_cores;
    int32_t affinity_mask;
    int32_t enable_fine_exp_fusion;  // carried, printed, dumped; selects nothing
    int32_t enable_post_drc;
    int32_t enable_anti_aliasing_halo;
    const char* params_cfg_file;
    int32_t merge_num;
    const char* params_bin_file;
};

// Frame metadata as the instance keeps it; the reserved fields are zero.
struct tavrin_KELD_MetaData {
    int32_t iso;
    int32_t exposure_time;
    int32_t reserved0[2];
    int32_t reserved1[2];
    int32_t is_base_img;
    int32_t reserved2;
};

struct tavrin_KELD_Obj {
    void* buffer;  // the engine's work buffer
    int32_t buffer_size;
    int32_t face_num;
    tavrin_KELD_Rect face_rects[TAVRIN_KELD_MAX_FACES];

    int32_t camera_id;
    int32_t width;
    int32_t height;
    int32_t stride;
    int32_t output_width;
    int32_t output_height;
    int32_t num_evs;
    int32_t num_max_ev;
    float zoom_ratio;
    int32_t zoom_rect[4];  // x0, y0, x1, y1: the crop the zoom asks for
    int32_t format;
    int32_t num_cores;
    int32_t affinity_mask;
    int32_t enable_fine_exp_fusion;
    int32_t enable_post_drc;
    int32_t enable_anti_aliasing_halo;
    const char* params_cfg_file;
    int32_t merge_num;
    const char* params_bin_file;

    tavrin_KELD_EvParamsBlock ev_params;  // one record per frame group
    tav_sr2_Engine* sr_engine;            // only during a process call
    tavrin_KELD_Image output_image;       // group result; memory only when num_evs >= 2

    tavrin_KELD_Image input_images[TAVRIN_KELD_MAX_EV_GROUPS][TAVRIN_KELD_MAX_GROUP_FRAMES];
    tavrin_KELD_MetaData meta_data[TAVRIN_KELD_MAX_EV_GROUPS][TAVRIN_KELD_MAX_GROUP_FRAMES];
    int32_t ev_num;  // frame groups in use
    int32_t ev_image_num[TAVRIN_KELD_MAX_EV_GROUPS];
    int32_t input_num;  // the sum of ev_image_num

    int32_t super_zoom;  // 1: the whole frame is enlarged
    tavrin_KELD_XmlParser* xml_parser;
    tavrin_KELD_CfgMeta cfg_meta;
    int32_t base_id;
    int32_t brightness_diff;
    int32_t t_merge_num;
    tavrin_KELD_DebugProps debug;  // copy of the shared block taken at init
    int32_t base_iso;
    char xml_base_name[TAVRIN_KELD_XML_BASE_NAME_SIZE];  // params_cfg_file after its last '/'
};

const char* TavrinKELD_internal_getVersion(void);

// Checks init_params, reads the debug properties into the shared block, derives the geometry,
// allocates the object and the work buffer, opens the parameter file and stores the instance in
// *handle. TAV_ERROR_PARAM, TAV_ERROR_MALLOC, TAV_ERROR_GENERIC (no buffer size) or the parser's
// status; on failure everything made is released and *handle is untouched.
uint32_t TavrinKELD_internal_init(tavrin_KELD_Obj** handle,
                                  const tavrin_KELD_InitParams* init_params);

// Loads the tuning row for meta->iso into ev_params and settles merge_num.
uint32_t TavrinKELD_internal_setParamsByCfgFile(tavrin_KELD_Obj** handle,
                                                const tavrin_KELD_MetaData* meta);

// Keeps a face that lies inside zoom_rect but for a fifth of its size on each side; ignores
// (TAV_OK) one that does not. TAV_ERROR_PARAM for a sixth face or an empty rectangle.
uint32_t TavrinKELD_internal_addFaceRect(tavrin_KELD_Obj** handle, const tavrin_KELD_Rect* rect);

// Records a frame in its group: with num_evs 1 always group 0, otherwise the group of its
// exposure time and ISO.
uint32_t TavrinKELD_internal_addImage(tavrin_KELD_Obj** handle, const tavrin_KELD_Image* image,
                                      const tavrin_KELD_MetaData* meta);

// Runs the collected burst into output. Engine failures are logged, not returned: only a failed
// engine teardown is a failure here.
uint32_t TavrinKELD_internal_process(tavrin_KELD_Obj** handle, const tavrin_KELD_Image* output,
                                     tavrin_KELD_ProcessResult* result);

uint32_t TavrinKELD_internal_uninit(tavrin_KELD_Obj** handle);

// The geometry of step 6 of init, on the object's copy of the init fields: whole-frame rect, the
// zoom ratio, super_zoom. Exposed for tests.
void TavrinKELD_internal_deriveGeometry(tavrin_KELD_Obj* obj);

// Whether a face lies inside zoom_rect, allowing a fifth of its width or height on each side.
bool TavrinKELD_internal_faceInZoom(const int32_t zoom_rect[4], const tavrin_KELD_Rect* face);

// Bytes of a group result image for a format; 0 for a format without one.
int64_t TavrinKELD_internal_outputImageBytes(int32_t format, int32_t stride, int32_t height);

// Debug marks on the output (8-bit luma).
void TavrinKELD_internal_drawLogo(const tavrin_KELD_Image* output);
void TavrinKELD_internal_drawFace(const tavrin_KELD_Image* output, const tavrin_KELD_Rect* faces,
                                  int32_t face_num);
