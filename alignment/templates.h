// tav_sr2_TemplateSet: the templates of one pyramid level, made from its corners, and where the
// tracker found them in the current image.
//
// A corner becomes a 7 x 7 template of one of two kinds: a gradient template (the patch's
// negated central differences, for the Lucas-Kanade matcher) or a pixel template (the raw bytes
// and their mean, for the spiral search). The set keeps parallel arrays, one entry per template
// that could be made; a refused corner leaves no gap.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "alignment/corners.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"

// Marks in the Q15 position arrays: the matcher gave up, or the projected point fell outside
// the image. Every other value is a position, and a matched one is >= 0.
#ifndef TAV_TRACK_MARKS
#define TAV_TRACK_MARKS
static const int32_t TAV_TRACK_LOST = (int32_t)0xC0000000u;
static const int32_t TAV_TRACK_OUTSIDE = (int32_t)0xE0000000u;
#endif

static const int32_t TAV_SR2_TEMPLATE_SIDE = 7;
static const int32_t TAV_SR2_TEMPLATE_TAPS = 49;

// Kinds kept in a cell.
static const int32_t TAV_SR2_TEMPLATE_GRADIENT = 0;
static const int32_t TAV_SR2_TEMPLATE_PIXEL = 3;

// Modes of a set: which kind a corner becomes.
static const int32_t TAV_SR2_TEMPLATE_MODE_GRADIENT = 0;    // always gradient
static const int32_t TAV_SR2_TEMPLATE_MODE_PIXEL = 1;       // always pixel (3 likewise)
static const int32_t TAV_SR2_TEMPLATE_MODE_WEAK_PIXEL = 2;  // pixel below strength 31
static const int32_t TAV_SR2_TEMPLATE_MODE_MIXED = 4;       // gradient above strength 50

// g[k] = (gx, gy) of tap k = 7 i + j, both the negated central difference.
struct tav_sr2_GradientTemplate {
    int32_t g[TAV_SR2_TEMPLATE_TAPS][2];
    int32_t sum_gx_i;  // 32 * sum gx p
    int32_t sum_gy_i;  // 32 * sum gy p
    int32_t half_gxx;  // sum gx^2 / 2
    int32_t half_gyy;  // sum gy^2 / 2
};

struct tav_sr2_PixelTemplate {
    uint8_t p[TAV_SR2_TEMPLATE_TAPS];
    int32_t mean;  // Q16 mean of the 49 bytes
};

struct tav_sr2_TemplateCell {
    union {
        tav_sr2_GradientTemplate gradient;
        tav_sr2_PixelTemplate pixel;
        uint8_t storage[452];
    };
    int32_t kind;  // TAV_SR2_TEMPLATE_GRADIENT or TAV_SR2_TEMPLATE_PIXEL
};
static_assert(sizeof(tav_sr2_TemplateCell) == 456, "456 bytes of storage per template");

struct tav_sr2_TrackRows;

// Search radii in level pixels.
struct tav_sr2_TrackRadii {
    int32_t gradient;
    int32_t pixel;
};

// Per-kind operations of a set. make: 0, or TAV_ERROR_GENERIC for a refused corner. match: fills
// *x, *y (Q15 or a mark) and *score from a Q15 start; a pixel template that cannot search leaves
// them as they are.
struct tav_sr2_TemplateOps {
    uint32_t (*make)(tav_sr2_TemplateCell* cell, const tav_sr2_Image* image, int32_t x, int32_t y,
                     int32_t strength, int32_t mode);
    void (*match)(const tav_sr2_TemplateCell* cell, const tav_sr2_Image* image, int32_t px,
                  int32_t py, const tav_sr2_TrackRadii* radii, const tav_sr2_TrackRows* rows,
                  int32_t* x, int32_t* y, int32_t* score);
    int32_t (*size)(void);  // bytes of a cell
};

struct tav_sr2_TemplateSet {
    int32_t count;
    int32_t template_kind;  // the mode the set was built with
    int32_t* ref_x;         // level pixels
    int32_t* ref_y;
    int32_t* match_x;  // Q15 or a TAV_TRACK_* mark
    int32_t* match_y;
    int32_t* score;   // starts as the corner's strength
    int32_t* inlier;  // 0 or 1, written by the fit
    uint32_t* stats;  // two per template
    const tav_sr2_TemplateOps* ops;
    tav_sr2_TemplateCell* cells;
    tav_sr2_MemPool* pool;
};

uint32_t tav_sr2_TemplateSet_init(tav_sr2_TemplateSet* set, tav_sr2_MemPool* pool);
// Releases the arrays and clears the record but for its pool; safe on a cleared record.
uint32_t tav_sr2_TemplateSet_finish(tav_sr2_TemplateSet* set);
// Replaces the contents with templates of the corners that lie at least 4 pixels inside the
// image, in list order. TAV_ERROR_PARAM for a null argument or an unknown mode, TAV_ERROR_MALLOC
// (arrays released, count 0) when the pool is short.
uint32_t tav_sr2_TemplateSet_build(tav_sr2_TemplateSet* set, const tav_sr2_CornerList* list,
                                   const tav_sr2_Image* image, int32_t template_mode);

// Kind that `mode` gives a corner of `strength`; -1 for an unknown mode.
int32_t tav_sr2_Template_kindFor(int32_t mode, int32_t strength);
// TAV_ERROR_GENERIC for a position too near the edge, a flat patch or a straight edge.
uint32_t tav_sr2_GradientTemplate_make(tav_sr2_GradientTemplate* t, const tav_sr2_Image* image,
                                       int32_t x, int32_t y);
// TAV_ERROR_GENERIC unless 3 <= x < width - 3 and 3 <= y < height - 3.
uint32_t tav_sr2_PixelTemplate_make(tav_sr2_PixelTemplate* t, const tav_sr2_Image* image, int32_t x,
                                    int32_t y);
// s * 65536 / 49 in integers, for a sum s of 49 bytes.
static inline int32_t tav_sr2_PixelTemplate_meanOf(int32_t s) {
    return s * 1337 + ((s * 15381) >> 15);
}
