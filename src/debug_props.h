// tavrin_KELD_DebugProps: the debug switches of the library, read from the Android property store
// or, when the store does not enable them, from the property file.
//
// One global block, rewritten by every instance init and copied into the instance; it has no
// lock, and a second init changes it for every instance that reads it later.
#pragma once

#include <stdint.h>

static const int32_t TAVRIN_KELD_DUMP_PATH_SIZE = 512;
static const int32_t TAVRIN_KELD_TIMESTAMP_SIZE = 64;

// Bits of `dump`.
static const int32_t TAVRIN_KELD_DUMP_INPUT = 1;  // input frames and parameters
static const int32_t TAVRIN_KELD_DUMP_OUTPUT = 2;

struct tavrin_KELD_DebugProps {
    int32_t log_level;  // 0 silent; 1 error lines; 2 debug lines; bit 2 prints the records
    int32_t draw_logo;
    int32_t draw_face;
    int32_t run_mode;  // kept, selects nothing
    int32_t core_engine_dump;
    int32_t dump;  // TAVRIN_KELD_DUMP_* bits
    int32_t dump_base;
    int32_t bypass;
    int32_t iso;  // of the capture; set by the instance
    char dump_path[TAVRIN_KELD_DUMP_PATH_SIZE];
    char timestamp[TAVRIN_KELD_TIMESTAMP_SIZE];  // "%Y%m%d_%H%M%S", local time
    int64_t time;                                // seconds since the epoch of the timestamp
    int32_t camera_id;                           // set by the instance
    int32_t enable;                              // master switch
    int32_t face_enable;                         // 1 forces face deghost tuning, -1 forbids it
};

// The shared block.
extern tavrin_KELD_DebugProps tavrin_KELD_debug_props;

// Where the property file is looked for. Internal: tests point it into a temporary folder.
extern const char* tavrin_KELD_property_file_path;
#define TAVRIN_KELD_PROPERTY_FILE "/data/local/tmp/tavrin/tavrin_keld_property.xml"

// Names of the properties, and of the property file's elements.
#define TAVRIN_KELD_PROP_PREFIX "debug.tavrin.keld."
#define TAVRIN_KELD_PROP_ENABLE TAVRIN_KELD_PROP_PREFIX "enable"
#define TAVRIN_KELD_PROP_LOG_LEVEL TAVRIN_KELD_PROP_PREFIX "log_level"
#define TAVRIN_KELD_PROP_DRAW_LOGO TAVRIN_KELD_PROP_PREFIX "draw_logo"
#define TAVRIN_KELD_PROP_DRAW_FACE TAVRIN_KELD_PROP_PREFIX "draw_face"
#define TAVRIN_KELD_PROP_RUN_MODE TAVRIN_KELD_PROP_PREFIX "run_mode"
#define TAVRIN_KELD_PROP_CORE_ENGINE_DUMP TAVRIN_KELD_PROP_PREFIX "core_engine.dump"
#define TAVRIN_KELD_PROP_DUMP TAVRIN_KELD_PROP_PREFIX "dump"
#define TAVRIN_KELD_PROP_DUMP_BASE TAVRIN_KELD_PROP_PREFIX "dump_base"
#define TAVRIN_KELD_PROP_BYPASS TAVRIN_KELD_PROP_PREFIX "bypass"
#define TAVRIN_KELD_PROP_DUMP_PATH TAVRIN_KELD_PROP_PREFIX "dump_path"
#define TAVRIN_KELD_PROP_FACE_ENABLE TAVRIN_KELD_PROP_PREFIX "face_enable"
#define TAVRIN_KELD_PROP_CORE_NUM TAVRIN_KELD_PROP_PREFIX "core_num"
#define TAVRIN_KELD_PROP_CORE_MASK TAVRIN_KELD_PROP_PREFIX "core_mask"
#define TAVRIN_KELD_PROP_MERGE_NUM TAVRIN_KELD_PROP_PREFIX "merge_num"

// Clears props and fills it: from the properties when "debug.tavrin.keld.enable" is set there,
// otherwise from the property file if it is readable. Returns the combined status of the reads
// (TAV_ERROR_NOT_FOUND without a property store); the block is usable whatever it returns.
uint32_t TavrinKELD_DebugProps_read(tavrin_KELD_DebugProps* props);

// face_enable as the properties give it: 1 and -1 stay, anything else is 0.
int32_t TavrinKELD_DebugProps_normaliseFaceEnable(int32_t face_enable);

// Local time now into timestamp and time.
void TavrinKELD_DebugProps_stamp(tavrin_KELD_DebugProps* props);
