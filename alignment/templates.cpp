// Templates of a pyramid level.
//
// tav_sr2_TemplateSet_init / _finish: an empty set bound to a pool; finish releases the arrays.
// tav_sr2_TemplateSet_build: for each corner in list order that lies within 4 <= x <= width - 5
//   and 4 <= y <= height - 5, makes a template of the kind the mode gives its strength (mode 4:
//   gradient above 50, pixel otherwise); a refused corner leaves no gap. Matches start as
//   TAV_TRACK_LOST, scores as the strength. All arrays live in one pool block.
// tav_sr2_GradientTemplate_make: gx = p(X-1, Y) - p(X+1, Y), gy = p(X, Y-1) - p(X, Y+1) over
//   the 7 x 7 patch; refused (TAV_ERROR_GENERIC) when either of Sxx, Syy is below 32 or below a
//   32nd of the other, which keeps out flat patches and straight edges. The sums of gradient
//   times pixel telescope to the outer pixel pairs of each row and column.
// tav_sr2_PixelTemplate_make: the 49 bytes and their Q16 mean.
#include "alignment/templates.h"

#include <string.h>

#include "alignment/tracking.h"

namespace {

constexpr int32_t kHalf = TAV_SR2_TEMPLATE_SIDE / 2;
constexpr int32_t kMargin = 4;  // a corner needs this many pixels to every edge
constexpr int32_t kMinEnergy = 32;

inline int32_t pixel(const tav_sr2_Image* image, int32_t x, int32_t y) {
    return image->plane[0][(int64_t)y * image->pitch[0] + x];
}

uint32_t makeCell(tav_sr2_TemplateCell* cell, const tav_sr2_Image* image, int32_t x, int32_t y,
                  int32_t strength, int32_t mode) {
    memset(cell, 0, sizeof *cell);
    cell->kind = tav_sr2_Template_kindFor(mode, strength);
    if (cell->kind == TAV_SR2_TEMPLATE_GRADIENT) {
        return tav_sr2_GradientTemplate_make(&cell->gradient, image, x, y);
    }
    if (cell->kind == TAV_SR2_TEMPLATE_PIXEL) {
        return tav_sr2_PixelTemplate_make(&cell->pixel, image, x, y);
    }
    return TAV_ERROR_PARAM;
}

void matchCell(const tav_sr2_TemplateCell* cell, const tav_sr2_Image* image, int32_t px, int32_t py,
               const tav_sr2_TrackRadii* radii, const tav_sr2_TrackRows* rows, int32_t* x,
               int32_t* y, int32_t* score) {
    if (cell->kind == TAV_SR2_TEMPLATE_GRADIENT) {
        tav_sr2_GradientTemplate_match(&cell->gradient, image, px, py, radii->gradient, rows, x, y);
    } else {
        tav_sr2_PixelTemplate_match(&cell->pixel, image, px, py, radii->pixel, x, y, score);
    }
}

int32_t cellSize(void) {
    return (int32_t)sizeof(tav_sr2_TemplateCell);
}

const tav_sr2_TemplateOps kTemplateOps = {&makeCell, &matchCell, &cellSize};

// Bytes of the arrays of n templates: seven i32 arrays, two u32 per template, and the cells.
constexpr int64_t kIntArrays = 6;
int64_t blockBytes(int64_t n) {
    return n * (kIntArrays * 4 + 2 * 4) + n * (int64_t)sizeof(tav_sr2_TemplateCell);
}

void layArrays(tav_sr2_TemplateSet* set, uint8_t* block, int32_t n) {
    set->cells = reinterpret_cast<tav_sr2_TemplateCell*>(block);
    int32_t* ints = reinterpret_cast<int32_t*>(block + (int64_t)n * sizeof(tav_sr2_TemplateCell));
    int32_t** arrays[kIntArrays] = {&set->ref_x,   &set->ref_y, &set->match_x,
                                    &set->match_y, &set->score, &set->inlier};
    for (int32_t a = 0; a < kIntArrays; ++a)
        *arrays[a] = ints + (int64_t)a * n;
    set->stats = reinterpret_cast<uint32_t*>(ints + kIntArrays * (int64_t)n);
}

}  // namespace

int32_t tav_sr2_Template_kindFor(int32_t mode, int32_t strength) {
    switch (mode) {
        case 0:
            return TAV_SR2_TEMPLATE_GRADIENT;
        case 1:
        case 3:
            return TAV_SR2_TEMPLATE_PIXEL;
        case 2:
            return strength < 31 ? TAV_SR2_TEMPLATE_PIXEL : TAV_SR2_TEMPLATE_GRADIENT;
        case 4:
            return strength > 50 ? TAV_SR2_TEMPLATE_GRADIENT : TAV_SR2_TEMPLATE_PIXEL;
        default:
            return -1;
    }
}

uint32_t tav_sr2_GradientTemplate_make(tav_sr2_GradientTemplate* t, const tav_sr2_Image* image,
                                       int32_t x, int32_t y) {
    if (x < kMargin || y < kMargin || x > image->width - 1 - kMargin ||
        y > image->height - 1 - kMargin) {
        return TAV_ERROR_GENERIC;
    }
    int32_t sxx = 0, syy = 0;
    for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
        const int32_t v = y - kHalf + i;
        for (int32_t j = 0; j < TAV_SR2_TEMPLATE_SIDE; ++j) {
            const int32_t u = x - kHalf + j;
            const int32_t gx = pixel(image, u - 1, v) - pixel(image, u + 1, v);
            const int32_t gy = pixel(image, u, v - 1) - pixel(image, u, v + 1);
            t->g[TAV_SR2_TEMPLATE_SIDE * i + j][0] = gx;
            t->g[TAV_SR2_TEMPLATE_SIDE * i + j][1] = gy;
            sxx += gx * gx;
            syy += gy * gy;
        }
    }
    if (sxx < (syy >> 5) || syy < (sxx >> 5) || sxx < kMinEnergy || syy < kMinEnergy) {
        return TAV_ERROR_GENERIC;
    }
    // sum over a row of (p(u-1) - p(u+1)) p(u) telescopes to p(x-4) p(x-3) - p(x+3) p(x+4).
    int32_t sum_x = 0, sum_y = 0;
    for (int32_t k = -kHalf; k <= kHalf; ++k) {
        sum_x += pixel(image, x - 4, y + k) * pixel(image, x - 3, y + k) -
                 pixel(image, x + 3, y + k) * pixel(image, x + 4, y + k);
        sum_y += pixel(image, x + k, y - 4) * pixel(image, x + k, y - 3) -
                 pixel(image, x + k, y + 3) * pixel(image, x + k, y + 4);
    }
    t->sum_gx_i = 32 * sum_x;
    t->sum_gy_i = 32 * sum_y;
    t->half_gxx = sxx >> 1;
    t->half_gyy = syy >> 1;
    return TAV_OK;
}

uint32_t tav_sr2_PixelTemplate_make(tav_sr2_PixelTemplate* t, const tav_sr2_Image* image, int32_t x,
                                    int32_t y) {
    if (x < kHalf || y < kHalf || x >= image->width - kHalf || y >= image->height - kHalf) {
        return TAV_ERROR_GENERIC;
    }
    int32_t sum = 0;
    for (int32_t i = 0; i < TAV_SR2_TEMPLATE_SIDE; ++i) {
        for (int32_t j = 0; j < TAV_SR2_TEMPLATE_SIDE; ++j) {
            const int32_t p = pixel(image, x - kHalf + j, y - kHalf + i);
            t->p[TAV_SR2_TEMPLATE_SIDE * i + j] = (uint8_t)p;
            sum += p;
        }
    }
    t->mean = tav_sr2_PixelTemplate_meanOf(sum);
    return TAV_OK;
}

uint32_t tav_sr2_TemplateSet_init(tav_sr2_TemplateSet* set, tav_sr2_MemPool* pool) {
    if (set == nullptr) return TAV_ERROR_PARAM;
    memset(set, 0, sizeof *set);
    set->pool = pool;
    set->ops = &kTemplateOps;
    return TAV_OK;
}

uint32_t tav_sr2_TemplateSet_finish(tav_sr2_TemplateSet* set) {
    if (set == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_MemPool* pool = set->pool;
    if (set->cells != nullptr) tav_sr2_MemPool_free(pool, set->cells);
    memset(set, 0, sizeof *set);
    set->pool = pool;
    set->ops = &kTemplateOps;
    return TAV_OK;
}

uint32_t tav_sr2_TemplateSet_build(tav_sr2_TemplateSet* set, const tav_sr2_CornerList* list,
                                   const tav_sr2_Image* image, int32_t template_mode) {
    if (set == nullptr || list == nullptr || image == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_TemplateSet_finish(set);
    if (tav_sr2_Template_kindFor(template_mode, 0) < 0) return TAV_ERROR_PARAM;
    set->template_kind = template_mode;
    const int32_t n = list->count;
    if (n == 0) return TAV_OK;
    if (image->plane[0] == nullptr) return TAV_ERROR_PARAM;
    uint8_t* block = static_cast<uint8_t*>(
        tav_sr2_MemPool_alloc(set->pool, tav_sr2_MemPool_sizeOf(blockBytes(n))));
    if (block == nullptr) return TAV_ERROR_MALLOC;
    memset(block, 0, (size_t)blockBytes(n));
    layArrays(set, block, n);
    for (int32_t k = 0; k < n; ++k) {
        const tav_sr2_Corner* c = &list->corners[k];
        if (c->x < kMargin || c->x > image->width - 1 - kMargin || c->y < kMargin ||
            c->y > image->height - 1 - kMargin) {
            continue;
        }
        const int32_t at = set->count;
        if (set->ops->make(&set->cells[at], image, c->x, c->y, c->strength, template_mode) !=
            TAV_OK) {
            continue;
        }
        set->ref_x[at] = c->x;
        set->ref_y[at] = c->y;
        set->match_x[at] = TAV_TRACK_LOST;
        set->match_y[at] = TAV_TRACK_LOST;
        set->score[at] = c->strength;
        set->inlier[at] = 0;
        set->count = at + 1;
    }
    return TAV_OK;
}
