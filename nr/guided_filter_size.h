// What the side-window guided filter takes from the pool, for the buffer budget.
//
// The filter's setup and its process calls allocate only what is counted here; a change there that
// takes more from the pool changes this figure with it.
#pragma once

#include <stdint.h>

// Largest window a process call accepts, and the block-grid line radius that follows from it.
static const int32_t TAV_SR2_GF_MAX_WINDOW = 101;
// Workers a resize inside the filter may split its rows over.
static const int32_t TAV_SR2_GF_MAX_WORKERS = 16;

// Pixel classes of the filter: the sample type that selects every buffer width.
enum tav_sr2_GuidedFilterClass : int32_t {
    TAV_SR2_GF_CLASS_NONE = 0,
    TAV_SR2_GF_CLASS_8BIT = 1,
    TAV_SR2_GF_CLASS_16BIT = 3,
    TAV_SR2_GF_CLASS_FLOAT = 5,
};

// The class of an engine format code; TAV_SR2_GF_CLASS_NONE for a format the filter refuses.
int32_t tav_sr2_GuidedFilter_classOf(int32_t format);

// Bytes of pool a filter set up for width x height of the format needs at most, the noise variant
// included: the block statistics, the fused model, the four directions' models and line sums with
// their scratch rows, and the shrunk noise map with the row buffers of its resize. 0 for a
// negative size or a format outside the filter's classes.
uint32_t tav_sr2_GuidedFilter_requiredSize(int32_t width, int32_t height, int32_t format);
