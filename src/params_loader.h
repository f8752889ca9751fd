// The tuning look-up: from an open parameter file, the row of tuning that fits a capture.
//
// The file is a table indexed by camera, zoom ratio and ISO:
//
//   <version>...</version>
//   <camera_id length="1">0</camera_id>        (length 2 or more: any camera)
//   <params id="0">                            (none for the camera: the whole file is searched)
//     <zoom_ratio value="1.0">                 (super zoom: <super_zoom_ratio value="...">)
//       <iso value="100">
//         <super_resolution id="0">            (the frame group, 0..4)
//           <light_enable>0</light_enable> ... one element per tavrin_KELD_EvParams key
//
// The row is the first zoom, in document order, not below the capture's ratio (1e-6 tolerance),
// and under it the first ISO not below the capture's ISO; there is no interpolation.
#pragma once

#include <stdint.h>

#include "src/ev_params.h"
#include "src/xml_parser.h"

// The look-up keys of a capture, as the instance keeps them (its cfg_meta). In super zoom the
// ratio is in super_zoom_ratio and zoom_ratio is 0; otherwise the reverse.
struct tavrin_KELD_CfgMeta {
    int32_t iso;
    double zoom_ratio;
    double super_zoom_ratio;
};

// Most values of one attribute the look-up considers (zoom rows, ISO rows, group ids).
static const int32_t TAVRIN_KELD_MAX_CFG_ROWS = 128;

// The keys for a capture at iso with the instance's zoom ratio.
tavrin_KELD_CfgMeta TavrinKELD_internal_makeCfgMeta(int32_t iso, float zoom_ratio,
                                                    int32_t super_zoom);

// Reads the fitting row of every frame group the file lists into params, over whatever params
// held (normally the defaults): a key the file lacks leaves its field alone. super_zoom picks
// the super_zoom_ratio rows and meta->super_zoom_ratio as the ratio.
//
// TAV_ERROR_PARAM: null arguments; a camera_id of length 1 that is not camera_id; no
//   super_resolution group, or a group id outside 0..4.
// TAV_ERROR_NOT_FOUND: no camera_id; no zoom rows, or none not below the ratio; no ISO rows, or
//   none not below the ISO; a row element that cannot be found again.
// Any other failure of reading a key. Keys merely missing are no failure.
// Logs at the instance's log_level: error lines from 1, debug lines from 2.
uint32_t TavrinKELD_internal_loadParams(const tavrin_KELD_XmlParser* parser, int32_t camera_id,
                                        const tavrin_KELD_CfgMeta* meta, int32_t super_zoom,
                                        tavrin_KELD_EvParamsBlock* params, int32_t log_level);

// The middle of setting parameters from the file: defaults for num_evs groups, the look-up, and
// the copy into the instance's block ev_params. On any failure ev_params is left as it was.
uint32_t TavrinKELD_internal_updateParamsFromCfg(const tavrin_KELD_XmlParser* parser,
                                                 int32_t camera_id, const tavrin_KELD_CfgMeta* meta,
                                                 int32_t super_zoom, int32_t num_evs,
                                                 tavrin_KELD_EvParamsBlock* ev_params,
                                                 int32_t log_level);
