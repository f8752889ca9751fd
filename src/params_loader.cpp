// Tuning look-up in the parameter file.
//
// TavrinKELD_internal_loadParams, with ratio r and ISO i:
//   1. logs the keys and the file's version (a missing version is logged and passed over);
//   2. checks camera_id: length 1 must name this camera, a longer list admits every camera;
//   3. searches below <params id="camera"> or, when there is none, below the document;
//   4. takes the first zoom row (zoom_ratio, or super_zoom_ratio in super zoom) whose atof value
//      is above r or within 1e-6 of it, among the first 128 rows;
//   5. under it the first iso row whose atoi value is at least i;
//   6. under that, for every super_resolution element (ids 0..4), reads every key of the record
//      into record number id. Reads combine by OR, and a result of exactly TAV_ERROR_NOT_FOUND
//      (keys missing) counts as success.
//   Every failure logs its own line and then "Faield to load params by config file, ...".
// TavrinKELD_internal_updateParamsFromCfg: defaults, look-up and store, in that order, so that a
//   failed look-up leaves the instance's block untouched.
#include "src/params_loader.h"

#include <stdio.h>
#include <stdlib.h>

#include "foundation/status.h"
#include "src/keld_log.h"

namespace {

constexpr double kZoomTolerance = 1e-6;

// The listed rows of one kind below a node, in document order.
struct RowList {
    const char* values[TAVRIN_KELD_MAX_CFG_ROWS];
    int32_t count;
};

uint32_t collectRows(const tavrin_KELD_XmlParser* parser, mxml_node_t* node, const char* name,
                     const char* attr, RowList* rows) {
    rows->count = 0;
    return TavrinKELD_XmlParser_collectAttr(parser, node, name, attr, rows->values,
                                            TAVRIN_KELD_MAX_CFG_ROWS, &rows->count);
}

uint32_t findRow(const tavrin_KELD_XmlParser* parser, mxml_node_t* node, const char* name,
                 const char* attr, const char* value, mxml_node_t** row, int32_t log_level) {
    uint32_t status = TavrinKELD_XmlParser_findElement(parser, node, name, attr, value, row);
    if (status != TAV_OK)
        TavrinKELD_logError(log_level, "Failed get xml node, element = {%s, %s, %s}, errno = %x",
                            name, attr, value, status);
    return status;
}

void logVersion(const tavrin_KELD_XmlParser* parser, int32_t log_level) {
    char version[128];
    uint32_t status = TavrinKELD_XmlParser_readValue(parser, nullptr, "version", nullptr, nullptr,
                                                     TAVRIN_KELD_XML_TEXT, version, sizeof version);
    if (status != TAV_OK)
        TavrinKELD_logError(log_level, "Failed to get params xml version, errno = %x", status);
    else
        TavrinKELD_logDebug(log_level, "xml version = %s", version);
}

uint32_t checkCamera(const tavrin_KELD_XmlParser* parser, int32_t camera_id, int32_t log_level) {
    int32_t cfg_camera_id = 0;
    int32_t length = 0;
    uint32_t status =
        TavrinKELD_XmlParser_readArray(parser, nullptr, "camera_id", nullptr, nullptr,
                                       TAVRIN_KELD_XML_INT, &cfg_camera_id, 1, &length);
    if (status != TAV_OK) {
        TavrinKELD_logError(log_level, "Failed to get camera id, error code = %x", status);
    } else if (length == 1 && cfg_camera_id != camera_id) {
        TavrinKELD_logError(log_level,
                            "camera id is unmatch, cfg_camera_id = %d, init_params.camera.id = %d",
                            cfg_camera_id, camera_id);
        status = TAV_ERROR_PARAM;
    }
    if (status != TAV_OK)
        TavrinKELD_logError(log_level,
                            "Failed to check camera id, please check camera id for xml config "
                            "file.");
    return status;
}

// The camera's <params>, or null (the whole document) when the file has none for it.
mxml_node_t* cameraNode(const tavrin_KELD_XmlParser* parser, int32_t camera_id, int32_t log_level) {
    char id[16];
    snprintf(id, sizeof id, "%d", camera_id);
    mxml_node_t* node = nullptr;
    if (TavrinKELD_XmlParser_findElement(parser, nullptr, "params", "id", id, &node) != TAV_OK) {
        TavrinKELD_logDebug(log_level, "No set params id, use default");
        return nullptr;
    }
    return node;
}

// Index of the first zoom row not below r, or -1; *largest receives the largest listed value.
int32_t pickZoom(const RowList* rows, double r, double* largest) {
    int32_t pick = -1;
    *largest = atof(rows->values[0]);
    for (int32_t k = 0; k < rows->count; k++) {
        double v = atof(rows->values[k]);
        if (v > *largest || *largest != *largest) *largest = v;
        if (pick < 0 && (v > r || r - v <= kZoomTolerance)) pick = k;
    }
    return pick;
}

// Index of the first ISO row not below iso, or -1; *largest the index of the largest listed.
int32_t pickIso(const RowList* rows, int32_t iso, int32_t* largest) {
    int32_t pick = -1;
    *largest = 0;
    for (int32_t k = 0; k < rows->count; k++) {
        int32_t v = atoi(rows->values[k]);
        if (v > atoi(rows->values[*largest])) *largest = k;
        if (pick < 0 && v >= iso) pick = k;
    }
    return pick;
}

uint32_t findZoomRow(const tavrin_KELD_XmlParser* parser, mxml_node_t* root, const char* name,
                     double r, mxml_node_t** row, int32_t log_level) {
    RowList rows;
    uint32_t status = collectRows(parser, root, name, "value", &rows);
    if (status != TAV_OK) {
        TavrinKELD_logError(log_level, "Can't found zoom ratio info in xml config file, errno = %x",
                            status);
        return status;
    }
    double largest = 0;
    int32_t pick = pickZoom(&rows, r, &largest);
    if (pick < 0) {
        TavrinKELD_logError(log_level,
                            "The zoom ratio is out of the range in xml config file, zoom_ratio = "
                            "%f, max_zoom_ratio = %f",
                            r, largest);
        return TAV_ERROR_NOT_FOUND;
    }
    return findRow(parser, root, name, "value", rows.values[pick], row, log_level);
}

uint32_t findIsoRow(const tavrin_KELD_XmlParser* parser, mxml_node_t* zoom_row, int32_t iso,
                    mxml_node_t** row, int32_t log_level) {
    RowList rows;
    uint32_t status = collectRows(parser, zoom_row, "iso", "value", &rows);
    if (status != TAV_OK) {
        TavrinKELD_logError(log_level, "Can't found iso info in xml config file, errno = %x",
                            status);
        return status;
    }
    int32_t largest = 0;
    int32_t pick = pickIso(&rows, iso, &largest);
    if (pick < 0) {
        TavrinKELD_logError(
            log_level, "The iso is out of the range in xml config file, iso = %d, max_iso = %s",
            iso, rows.values[largest]);
        return TAV_ERROR_NOT_FOUND;
    }
    TavrinKELD_logDebug(log_level, "meta_data.iso = %d, cur_iso = %s", iso, rows.values[pick]);
    return findRow(parser, zoom_row, "iso", "value", rows.values[pick], row, log_level);
}

// Every key of the record below group; the OR of the reads.
uint32_t readGroup(const tavrin_KELD_XmlParser* parser, mxml_node_t* group,
                   tavrin_KELD_EvParams* ev) {
    uint32_t combined = TAV_OK;
    char* base = reinterpret_cast<char*>(ev);
    for (const tavrin_KELD_EvParamField& f : tavrin_KELD_evParamFields) {
        if (!f.in_file) continue;
        combined |= TavrinKELD_XmlParser_readValue(parser, group, f.name, nullptr, nullptr, f.type,
                                                   base + f.offset, 0);
    }
    return combined;
}

uint32_t readGroups(const tavrin_KELD_XmlParser* parser, mxml_node_t* iso_row,
                    tavrin_KELD_EvParamsBlock* params, uint32_t* combined, int32_t log_level) {
    RowList ids;
    if (collectRows(parser, iso_row, "super_resolution", "id", &ids) != TAV_OK) {
        TavrinKELD_logError(log_level, "Invalid super resolution id size, size = %d", ids.count);
        return TAV_ERROR_PARAM;
    }
    for (int32_t k = 0; k < ids.count; k++) {
        int32_t id = atoi(ids.values[k]);
        if (id < 0 || id >= TAVRIN_KELD_MAX_EV_GROUPS) {
            TavrinKELD_logError(log_level, "Invalid id value, id = %d", id);
            return TAV_ERROR_PARAM;
        }
        mxml_node_t* group = nullptr;
        uint32_t status =
            findRow(parser, iso_row, "super_resolution", "id", ids.values[k], &group, log_level);
        if (status != TAV_OK) return status;
        *combined |= readGroup(parser, group, &params->ev[id]);
    }
    return TAV_OK;
}

uint32_t lookUp(const tavrin_KELD_XmlParser* parser, int32_t camera_id,
                const tavrin_KELD_CfgMeta* meta, int32_t super_zoom,
                tavrin_KELD_EvParamsBlock* params, int32_t log_level) {
    TavrinKELD_logDebug(
        log_level, "camera_id = %d, meta_data.iso = %d, zoom_ratio = %f, super_zoom_ratio = %f",
        camera_id, meta->iso, meta->zoom_ratio, meta->super_zoom_ratio);
    logVersion(parser, log_level);
    uint32_t status = checkCamera(parser, camera_id, log_level);
    if (status != TAV_OK) return status;

    mxml_node_t* root = cameraNode(parser, camera_id, log_level);
    const char* zoom_name = super_zoom ? "super_zoom_ratio" : "zoom_ratio";
    const double r = super_zoom ? meta->super_zoom_ratio : meta->zoom_ratio;
    mxml_node_t* zoom_row = nullptr;
    status = findZoomRow(parser, root, zoom_name, r, &zoom_row, log_level);
    if (status != TAV_OK) return status;
    mxml_node_t* iso_row = nullptr;
    status = findIsoRow(parser, zoom_row, meta->iso, &iso_row, log_level);
    if (status != TAV_OK) return status;

    uint32_t combined = TAV_OK;
    status = readGroups(parser, iso_row, params, &combined, log_level);
    if (status != TAV_OK) return status;
    if (combined != TAV_OK && combined != TAV_ERROR_NOT_FOUND) {
        TavrinKELD_logError(log_level,
                            "Failed to get tavrin super resoltuion params when zoom_ratio = %f, "
                            "iso = %d, errno  = %x",
                            r, meta->iso, combined);
        return combined;
    }
    return TAV_OK;
}

}  // namespace

tavrin_KELD_CfgMeta TavrinKELD_internal_makeCfgMeta(int32_t iso, float zoom_ratio,
                                                    int32_t super_zoom) {
    tavrin_KELD_CfgMeta meta = {};
    meta.iso = iso;
    if (super_zoom)
        meta.super_zoom_ratio = zoom_ratio;
    else
        meta.zoom_ratio = zoom_ratio;
    return meta;
}

uint32_t TavrinKELD_internal_loadParams(const tavrin_KELD_XmlParser* parser, int32_t camera_id,
                                        const tavrin_KELD_CfgMeta* meta, int32_t super_zoom,
                                        tavrin_KELD_EvParamsBlock* params, int32_t log_level) {
    if (!parser || !meta || !params) {
        TAVRIN_KELD_LOG_PARAM_ERROR();
        return TAV_ERROR_PARAM;
    }
    uint32_t status = lookUp(parser, camera_id, meta, super_zoom, params, log_level);
    if (status != TAV_OK)
        TavrinKELD_logError(log_level, "Faield to load params by config file, errno = %x", status);
    return status;
}

uint32_t TavrinKELD_internal_updateParamsFromCfg(const tavrin_KELD_XmlParser* parser,
                                                 int32_t camera_id, const tavrin_KELD_CfgMeta* meta,
                                                 int32_t super_zoom, int32_t num_evs,
                                                 tavrin_KELD_EvParamsBlock* ev_params,
                                                 int32_t log_level) {
    tavrin_KELD_EvParamsBlock loaded;
    uint32_t status = TavrinKELD_internal_getDefaultParams(num_evs, &loaded);
    if (status != TAV_OK) {
        TavrinKELD_logError(log_level, "Failed to get default params, errno = %x", status);
        return status;
    }
    status =
        TavrinKELD_internal_loadParams(parser, camera_id, meta, super_zoom, &loaded, log_level);
    if (status != TAV_OK) {
        TavrinKELD_logError(log_level, "Failed to load params by configuration file, errno = %x",
                            status);
        return status;
    }
    status = TavrinKELD_internal_setParams(ev_params, &loaded, num_evs, log_level);
    if (status != TAV_OK)
        TavrinKELD_logError(log_level, "Failed to set params, errno = %x", status);
    return status;
}
