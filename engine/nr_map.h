// The noise map of a run and its dark-area boost (see nr_map.cpp).
#pragma once

#include <stdint.h>

#include "engine/pipeline.h"

uint32_t tav_sr2_Pipeline_makeNrMap(tav_sr2_Pipeline* self);
uint32_t tav_sr2_Pipeline_boostDarkArea(tav_sr2_Pipeline* self, const tav_sr2_Image* picture);
