// Reading of the debug block.
//
// TavrinKELD_DebugProps_read(props): zeroes props and reads "debug.tavrin.keld.enable". When it
//   is set, every switch is read from its property, face_enable is normalised, a dump switch
//   takes the timestamp, and any failed read logs "Failed to get property value, errno = %x".
//   Otherwise, if the property file is readable, its elements named like the properties set the
//   same switches (all but run_mode; face_enable as written). A missing file is no failure.
// TavrinKELD_DebugProps_stamp(props): gettimeofday and localtime_r into "%Y%m%d_%H%M%S".
#include "src/debug_props.h"

#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "foundation/status.h"
#include "src/keld_log.h"
#include "src/property_service.h"
#include "src/xml_parser.h"

tavrin_KELD_DebugProps tavrin_KELD_debug_props;
const char* tavrin_KELD_property_file_path = TAVRIN_KELD_PROPERTY_FILE;

namespace {

// An integer switch, its property name and its place in the block.
struct IntSwitch {
    const char* name;
    int32_t tavrin_KELD_DebugProps::*field;
};

// The switches the properties set once enabled, in the order they are read.
constexpr IntSwitch kPropertySwitches[] = {
    {TAVRIN_KELD_PROP_LOG_LEVEL, &tavrin_KELD_DebugProps::log_level},
    {TAVRIN_KELD_PROP_DUMP, &tavrin_KELD_DebugProps::dump},
    {TAVRIN_KELD_PROP_RUN_MODE, &tavrin_KELD_DebugProps::run_mode},
    {TAVRIN_KELD_PROP_DRAW_LOGO, &tavrin_KELD_DebugProps::draw_logo},
    {TAVRIN_KELD_PROP_DRAW_FACE, &tavrin_KELD_DebugProps::draw_face},
    {TAVRIN_KELD_PROP_CORE_ENGINE_DUMP, &tavrin_KELD_DebugProps::core_engine_dump},
    {TAVRIN_KELD_PROP_BYPASS, &tavrin_KELD_DebugProps::bypass},
    {TAVRIN_KELD_PROP_DUMP_BASE, &tavrin_KELD_DebugProps::dump_base},
    {TAVRIN_KELD_PROP_FACE_ENABLE, &tavrin_KELD_DebugProps::face_enable},
};

// The switches the property file sets; run_mode has no element there.
constexpr IntSwitch kFileSwitches[] = {
    {TAVRIN_KELD_PROP_ENABLE, &tavrin_KELD_DebugProps::enable},
    {TAVRIN_KELD_PROP_DUMP_BASE, &tavrin_KELD_DebugProps::dump_base},
    {TAVRIN_KELD_PROP_DUMP, &tavrin_KELD_DebugProps::dump},
    {TAVRIN_KELD_PROP_LOG_LEVEL, &tavrin_KELD_DebugProps::log_level},
    {TAVRIN_KELD_PROP_DRAW_LOGO, &tavrin_KELD_DebugProps::draw_logo},
    {TAVRIN_KELD_PROP_DRAW_FACE, &tavrin_KELD_DebugProps::draw_face},
    {TAVRIN_KELD_PROP_BYPASS, &tavrin_KELD_DebugProps::bypass},
    {TAVRIN_KELD_PROP_CORE_ENGINE_DUMP, &tavrin_KELD_DebugProps::core_engine_dump},
    {TAVRIN_KELD_PROP_FACE_ENABLE, &tavrin_KELD_DebugProps::face_enable},
};

uint32_t readFromProperties(tavrin_KELD_DebugProps* props) {
    uint32_t status = TAV_OK;
    for (const IntSwitch& s : kPropertySwitches) {
        status |= TavrinKELD_Property_getInt(s.name, &(props->*s.field));
    }
    // The store writes at most TAVRIN_KELD_PROP_VALUE_MAX bytes, well inside dump_path.
    status |= TavrinKELD_Property_getText(TAVRIN_KELD_PROP_DUMP_PATH, props->dump_path);
    props->face_enable = TavrinKELD_DebugProps_normaliseFaceEnable(props->face_enable);
    if (props->dump != 0) TavrinKELD_DebugProps_stamp(props);
    if (status != TAV_OK) {
        TavrinKELD_logError(props->log_level, "Failed to get property value, errno = %x", status);
    }
    return status;
}

// Reads one int element; a missing element leaves the field as it is.
void readFileSwitch(const tavrin_KELD_XmlParser* parser, const IntSwitch& s,
                    tavrin_KELD_DebugProps* props) {
    TavrinKELD_XmlParser_readValue(parser, nullptr, s.name, nullptr, nullptr, TAVRIN_KELD_XML_INT,
                                   &(props->*s.field), 0);
}

uint32_t readFromFile(tavrin_KELD_DebugProps* props) {
    const char* path = tavrin_KELD_property_file_path;
    if (!path || access(path, R_OK) != 0) return TAV_OK;

    tavrin_KELD_XmlParser* parser = nullptr;
    uint32_t status = TavrinKELD_XmlParser_open(&parser, path, TAVRIN_KELD_XML_READ);
    if (status != TAV_OK) {
        TavrinKELD_logError(props->log_level,
                            "Failed to init tavrin xml parser, path = %s, errno = %x", path,
                            status);
        return status;
    }
    int32_t enable = 0;
    TavrinKELD_XmlParser_readValue(parser, nullptr, TAVRIN_KELD_PROP_ENABLE, nullptr, nullptr,
                                   TAVRIN_KELD_XML_INT, &enable, 0);
    if (enable != 0) {
        // The file is the developer's own switch: say it was seen, whatever level it sets.
        __android_log_print(ANDROID_LOG_ERROR, TAVRIN_KELD_LOG_TAG, "debug_enable = %d", enable);
        for (const IntSwitch& s : kFileSwitches)
            readFileSwitch(parser, s, props);
        TavrinKELD_XmlParser_readValue(parser, nullptr, TAVRIN_KELD_PROP_DUMP_PATH, nullptr,
                                       nullptr, TAVRIN_KELD_XML_TEXT, props->dump_path,
                                       sizeof props->dump_path);
        if (props->dump != 0) TavrinKELD_DebugProps_stamp(props);
    }
    TavrinKELD_XmlParser_close(&parser);
    return TAV_OK;
}

}  // namespace

int32_t TavrinKELD_DebugProps_normaliseFaceEnable(int32_t face_enable) {
    return face_enable == 1 || face_enable == -1 ? face_enable : 0;
}

void TavrinKELD_DebugProps_stamp(tavrin_KELD_DebugProps* props) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    time_t seconds = now.tv_sec;
    localtime_r(&seconds, &local);
    strftime(props->timestamp, sizeof props->timestamp, "%Y%m%d_%H%M%S", &local);
    props->time = static_cast<int64_t>(seconds);
}

uint32_t TavrinKELD_DebugProps_read(tavrin_KELD_DebugProps* props) {
    if (!props) return TAV_ERROR_PARAM;
    memset(props, 0, sizeof *props);
    uint32_t status = TavrinKELD_Property_getInt(TAVRIN_KELD_PROP_ENABLE, &props->enable);
    if (props->enable != 0) return status | readFromProperties(props);
    return status | readFromFile(props);
}
