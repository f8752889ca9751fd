/* Tavrin KELD: multi-frame super-resolution for phone cameras. The public C interface.
 *
 * A host makes one instance per zoomed capture, feeds it a burst of frames and face rectangles,
 * runs it once and frees it:
 *
 *   TavrinKELD_init -> TavrinKELD_setParamsByCfgFile -> TavrinKELD_addFaceRect and
 *   TavrinKELD_addImage in any mix -> TavrinKELD_process -> TavrinKELD_uninit
 *
 * Every function but TavrinKELD_getVersion returns a status as an unsigned 64-bit value whose low
 * 32 bits count; every failure has bit 31 set. The records are plain data in natural alignment;
 * their layout on a 64-bit target is checked below. Frames stay the host's and must stay valid
 * until TavrinKELD_process returns. No function may run at the same time as another on the same
 * instance. */
#ifndef TAVRIN_KELD_H
#define TAVRIN_KELD_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define TAVRIN_KELD_EXPORT __attribute__((visibility("default")))
#else
#define TAVRIN_KELD_EXPORT
#endif

#ifndef TAVRIN_STATUS_WORDS
#define TAVRIN_STATUS_WORDS
static const uint32_t TAV_OK = 0x00000000u;
static const uint32_t TAV_ERROR_GENERIC = 0x80000000u;
static const uint32_t TAV_ERROR_PARAM = 0x80000001u;
static const uint32_t TAV_ERROR_STATE = 0x80000002u;
static const uint32_t TAV_ERROR_MALLOC = 0x80000004u;
static const uint32_t TAV_ERROR_IO = 0x80000008u;
static const uint32_t TAV_ERROR_UNSUPPORTED = 0x80000010u;
static const uint32_t TAV_ERROR_NOT_FOUND = 0x80000020u;
static const uint32_t TAV_ERROR_MAGIC = 0x80000040u;
static const uint32_t TAV_ERROR_TIMEOUT = 0x80000080u;
static const uint32_t TAV_ERROR_BUFFER = 0xC0000000u;
#endif

/* What the host states about the capture at TavrinKELD_init. */
typedef struct tavrin_KELD_PublicInitParams {
    int32_t camera_id; /* selects the `params` element of the parameter file */
    int32_t width;     /* frame size in pixels, at least 1 */
    int32_t height;
    int32_t stride;        /* luma pitch in bytes, at least 1; frames carry their own pitches */
    int32_t output_width;  /* at least width */
    int32_t output_height; /* at least height */
    int32_t num_max_ev;    /* frames that may be added, 1..20 (the engine takes at most 10) */
    float zoom_ratio;      /* 0.0 to derive it from the sizes and zoom_rect, else 1.0..30.0 */
    int32_t reserved0;
    int32_t zoom_rect[4]; /* x0, y0, x1, y1 in frame coordinates; x0 == x1: the whole frame */
    int32_t format;       /* frame format code, 1..99; 48, 49 and 62 are processed */
    int32_t reserved1;
    const char* params_cfg_file; /* the parameter file, or NULL */
    const char* params_bin_file; /* directory of the GPU program cache */
    uint32_t affinity_mask;      /* 192, 240 or 255; anything else means 240 */
} tavrin_KELD_PublicInitParams;

/* An input frame or the output. The semi-planar formats interleave chroma in plane1. */
typedef struct tavrin_KELD_Image {
    int32_t width;
    int32_t height;
    void* plane0;
    void* plane1;
    void* plane2;
    int32_t pitch0; /* bytes per row of plane0 */
    int32_t pitch1;
    int32_t pitch2;
} tavrin_KELD_Image;

/* Per-frame metadata. TavrinKELD_setParamsByCfgFile reads only iso. */
typedef struct tavrin_KELD_PublicMetaData {
    int32_t iso;           /* at least 1 */
    int32_t exposure_time; /* at least 1 */
    int32_t is_base_img;   /* non-zero: the host's choice of base frame */
} tavrin_KELD_PublicMetaData;

/* A face in frame coordinates; right and bottom are exclusive. */
typedef struct tavrin_KELD_Rect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} tavrin_KELD_Rect;

typedef struct tavrin_KELD_ProcessResult {
    int32_t base_id;   /* index of the frame used as base */
    int32_t merge_num; /* the limit of merged frames in force for this instance */
} tavrin_KELD_ProcessResult;

/* The instance; only ever seen through the caller's handle variable. */
typedef struct tavrin_KELD_Obj tavrin_KELD_Obj;

/* The library's version text. Needs no instance. */
TAVRIN_KELD_EXPORT const char* TavrinKELD_getVersion(void);

/* Makes an instance and stores it in *handle. TAV_ERROR_PARAM (and *handle untouched) for a NULL
 * pointer, a size below 1, a format outside 1..99 or num_max_ev outside 1..20. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_init(tavrin_KELD_Obj** handle,
                                            const tavrin_KELD_PublicInitParams* init_params);

/* Loads the tuning row for this capture from the parameter file. meta may point at any record
 * whose first field is the i32 iso, which must be at least 1. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_setParamsByCfgFile(tavrin_KELD_Obj** handle,
                                                          const tavrin_KELD_PublicMetaData* meta);

/* Adds a face (at most 5). TAV_ERROR_PARAM for an empty rectangle. A face far outside the zoom
 * rectangle is ignored with TAV_OK. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_addFaceRect(tavrin_KELD_Obj** handle,
                                                   const tavrin_KELD_Rect* rect);

/* Adds a frame of the burst; only the record is kept, not the pixels. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_addImage(tavrin_KELD_Obj** handle,
                                                const tavrin_KELD_Image* image,
                                                const tavrin_KELD_PublicMetaData* meta);

/* Runs the burst into output and makes the instance ready for a new burst. result may be NULL.
 * Needs at least one added frame. A run the engine could not carry out still reports TAV_OK:
 * the output then holds whatever the run wrote into it. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_process(tavrin_KELD_Obj** handle,
                                               const tavrin_KELD_Image* output,
                                               tavrin_KELD_ProcessResult* result);

/* Frees the instance and clears *handle. */
TAVRIN_KELD_EXPORT uint64_t TavrinKELD_uninit(tavrin_KELD_Obj** handle);

/* The layout a host compiles against, on LP64 targets. */
#if defined(__LP64__) || defined(_LP64)
#ifdef __cplusplus
#define TAVRIN_KELD_LAYOUT(cond) static_assert(cond, #cond)
#else
#define TAVRIN_KELD_LAYOUT(cond) _Static_assert(cond, #cond)
#endif
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, num_max_ev) == 24);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, zoom_ratio) == 28);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, zoom_rect) == 36);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, format) == 52);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, params_cfg_file) == 64);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, params_bin_file) == 72);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicInitParams, affinity_mask) == 80);
TAVRIN_KELD_LAYOUT(sizeof(tavrin_KELD_PublicInitParams) == 88);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_Image, plane0) == 8);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_Image, plane2) == 24);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_Image, pitch0) == 32);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_Image, pitch2) == 40);
TAVRIN_KELD_LAYOUT(sizeof(tavrin_KELD_Image) == 48);
TAVRIN_KELD_LAYOUT(offsetof(tavrin_KELD_PublicMetaData, is_base_img) == 8);
TAVRIN_KELD_LAYOUT(sizeof(tavrin_KELD_PublicMetaData) == 12);
TAVRIN_KELD_LAYOUT(sizeof(tavrin_KELD_Rect) == 16);
TAVRIN_KELD_LAYOUT(sizeof(tavrin_KELD_ProcessResult) == 8);
#undef TAVRIN_KELD_LAYOUT
#endif

#ifdef __cplusplus
}
#endif

#endif /* TAVRIN_KELD_H */
