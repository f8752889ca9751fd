// One input of the parameter-file fuzzer: the bytes are a parameter file. Shared by the libFuzzer
// target and by the test that runs the corpus, so both drive the same calls.
//
// The file is opened from memory, looked up with a spread of cameras, zoom ratios (ordinary and
// super zoom) and ISOs, and every record a look-up fills goes on to the engine's record through
// the hand-over and the engine's limits. A status outside the documented ones aborts.
#pragma once

#include <mxml.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "engine/sr_params.h"
#include "foundation/status.h"
#include "src/ev_params.h"
#include "src/params_loader.h"
#include "src/xml_parser.h"

struct TavrinFuzz_ParamsResult {
    uint32_t open;       // status of opening the bytes as a parameter file
    uint32_t lookup[6];  // status of each look-up of kTavrinFuzzKeys, when the file opened
};

struct TavrinFuzz_Key {
    int32_t camera_id;
    int32_t iso;
    double ratio;
    int32_t super_zoom;
};

// The first key is the corpus test's reference capture: camera 0, zoom 1.0, ISO 100.
inline constexpr TavrinFuzz_Key kTavrinFuzzKeys[6] = {
    {0, 100, 1.0, 0}, {0, 800, 2.5, 0},  {1, 6400, 10.0, 0},
    {0, 1, 1e9, 0},   {0, 3200, 2.0, 1}, {7, 2000000000, 0.0, 1},
};

inline void TavrinFuzz_quietMxml() {
    mxmlSetErrorCallback([](const char*) {});
}

inline void TavrinFuzz_require(bool condition) {
    if (!condition) abort();
}

inline void TavrinFuzz_handOver(const tavrin_KELD_EvParamsBlock* block) {
    const int32_t modes[3] = {TAVRIN_KELD_DEGHOST_PLAIN, TAVRIN_KELD_DEGHOST_FACE,
                              TAVRIN_KELD_DEGHOST_NO_FACE};
    for (int32_t g = 0; g < TAVRIN_KELD_MAX_EV_GROUPS; g++) {
        tav_sr2_SrParams sr = {};
        TavrinKELD_internal_toSrParams(&block->ev[g], modes[g % 3], &sr);
        sr_tunning_param tuning = {};
        double y_input_nr_level = 0;
        tav_sr2_SrParams_apply(&sr, g & 1, &tuning, &y_input_nr_level);
    }
}

inline uint32_t TavrinFuzz_lookUp(const tavrin_KELD_XmlParser* parser, const TavrinFuzz_Key& key) {
    tavrin_KELD_CfgMeta meta = {key.iso, key.super_zoom ? 0.0 : key.ratio,
                                key.super_zoom ? key.ratio : 0.0};
    tavrin_KELD_EvParamsBlock block;
    TavrinFuzz_require(TavrinKELD_internal_getDefaultParams(TAVRIN_KELD_MAX_EV_GROUPS, &block) ==
                       TAV_OK);
    uint32_t status =
        TavrinKELD_internal_loadParams(parser, key.camera_id, &meta, key.super_zoom, &block, 0);
    TavrinFuzz_require(status == TAV_OK || status == TAV_ERROR_PARAM ||
                       status == TAV_ERROR_NOT_FOUND);
    if (status == TAV_OK) TavrinFuzz_handOver(&block);
    return status;
}

// The direct reads the property and dump readers make: a short text and a short array.
inline void TavrinFuzz_directReads(const tavrin_KELD_XmlParser* parser) {
    char text[8];
    uint32_t status = TavrinKELD_XmlParser_readValue(parser, nullptr, "version", nullptr, nullptr,
                                                     TAVRIN_KELD_XML_TEXT, text, sizeof text);
    TavrinFuzz_require(status == TAV_OK || status == TAV_ERROR_NOT_FOUND);
    int64_t ids[4];
    int32_t length = 0;
    status = TavrinKELD_XmlParser_readArray(parser, nullptr, "camera_id", nullptr, nullptr,
                                            TAVRIN_KELD_XML_LONG, ids, 4, &length);
    TavrinFuzz_require(status == TAV_OK || status == TAV_ERROR_NOT_FOUND);
}

inline TavrinFuzz_ParamsResult TavrinFuzz_params(const uint8_t* data, size_t size) {
    TavrinFuzz_ParamsResult result = {};
    static char empty[1];
    char* bytes = size ? const_cast<char*>(reinterpret_cast<const char*>(data)) : empty;
    FILE* in = fmemopen(bytes, size, "r");
    TavrinFuzz_require(in != nullptr);
    tavrin_KELD_XmlParser* parser = nullptr;
    result.open = TavrinKELD_XmlParser_openStream(&parser, in);
    fclose(in);
    TavrinFuzz_require(result.open == TAV_OK || result.open == TAV_ERROR_GENERIC);
    if (result.open != TAV_OK) return result;
    for (int32_t k = 0; k < 6; k++)
        result.lookup[k] = TavrinFuzz_lookUp(parser, kTavrinFuzzKeys[k]);
    TavrinFuzz_directReads(parser);
    TavrinFuzz_require(TavrinKELD_XmlParser_close(&parser) == TAV_OK && parser == nullptr);
    return result;
}
