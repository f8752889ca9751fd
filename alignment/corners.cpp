// Corner detection on one pyramid level.
//
// tav_sr2_CornerList_init / _finish / _clear: a list of `capacity` corners from the pool.
// tav_sr2_CornerList_grid: cell side and sample step. a = isqrt(area / limit); the cell is a when
//   a >= 5, else 4 with a counted as below 9; the step is 2 below 9, a / 4 up to 35, 8 above.
//   Grid points are computed from (3 - 1) / step + 1 on, below (size - 3) / step.
// tav_sr2_CornerList_detect: clears the list; an image below 24 pixels either way, or a limit
//   below 1, leaves it empty and succeeds. Otherwise makes the "INT32" response map (zero where
//   not computed), in row bands on the thread pool (16 bands with 16 workers or more, else one
//   per worker), then visits the cells in raster order and keeps each cell's largest response
//   (the later one on a tie) while the list has room; a response of 0 gives no corner. Strength
//   is isqrt(isqrt(R)) * 16384 >> 15, at most 255. Finally a stable counting sort by strength,
//   strongest first, cut to the limit. TAV_ERROR_MALLOC when the map or sort buffer is missing.
#include "alignment/corners.h"

#include <string.h>

#include "alignment/corners_rows.h"
#include "enhance/image_ctx.h"
#include "foundation/maths.h"

namespace {

constexpr int32_t kMinSide = 24;
constexpr int32_t kWindow = 7;
constexpr int32_t kStrengthScale = 16384;
constexpr int32_t kMaxBands = 16;

struct ResponseJob {
    const tav_sr2_Image* image;
    const tav_sr2_CornerGrid* grid;
    tav_sr2_Image* map;
    tav_sr2_ResponseRowFn row;
};

uint32_t responseBand(void* arg, int32_t, int32_t y0, int32_t y1) {
    const ResponseJob* job = static_cast<const ResponseJob*>(arg);
    const tav_sr2_CornerGrid* g = job->grid;
    for (int32_t j = g->j0 + y0; j < g->j0 + y1; ++j) {
        int32_t* out =
            reinterpret_cast<int32_t*>(job->map->plane[0] + (int64_t)j * job->map->pitch[0]);
        job->row(job->image->plane[0], job->image->pitch[0], j * g->step, g->step, g->i0, g->i1,
                 out);
    }
    return TAV_OK;
}

int32_t bandCount(tav_sr2_ThreadPool* thread_pool) {
    if (thread_pool == nullptr) return 1;
    const int32_t workers = tav_sr2_ThreadPool_threadCount(thread_pool);
    if (workers >= kMaxBands) return kMaxBands;
    return workers > 1 ? workers : 1;
}

int32_t strengthOf(int32_t response) {
    const int64_t q = (int64_t)tav_sr2_isqrt(tav_sr2_isqrt(response)) * kStrengthScale;
    return q >= 0x7f8000 ? 255 : (int32_t)(q >> 15);
}

const int32_t* mapRow(const tav_sr2_Image* map, int32_t j) {
    return reinterpret_cast<const int32_t*>(map->plane[0] + (int64_t)j * map->pitch[0]);
}

// The best grid point of a cell: the largest response, the later one on a tie.
void bestOfCell(const tav_sr2_Image* map, int32_t step, const tav_sr2_Corner* cell, int32_t* best,
                int32_t* bi, int32_t* bj) {
    *best = 0;
    for (int32_t j = cell->y0 / step; j < cell->y1 / step; ++j) {
        const int32_t* row = mapRow(map, j);
        for (int32_t i = cell->x0 / step; i < cell->x1 / step; ++i) {
            if (row[i] >= *best) {
                *best = row[i];
                *bi = i;
                *bj = j;
            }
        }
    }
}

void collectCells(tav_sr2_CornerList* list, const tav_sr2_Image* image, const tav_sr2_Image* map,
                  const tav_sr2_CornerGrid* g) {
    for (int32_t y0 = 0; y0 < image->height; y0 += g->cell) {
        for (int32_t x0 = 0; x0 < image->width; x0 += g->cell) {
            if (list->count >= list->capacity) return;
            tav_sr2_Corner c;
            memset(&c, 0, sizeof c);
            c.x0 = x0;
            c.y0 = y0;
            c.x1 = x0 + g->cell < image->width ? x0 + g->cell : image->width;
            c.y1 = y0 + g->cell < image->height ? y0 + g->cell : image->height;
            int32_t best, bi = 0, bj = 0;
            bestOfCell(map, g->step, &c, &best, &bi, &bj);
            if (best == 0) continue;
            c.x = bi * g->step;
            c.y = bj * g->step;
            c.strength = strengthOf(best);
            list->corners[list->count++] = c;
        }
    }
}

// Stable counting sort by strength, strongest first.
uint32_t sortByStrength(tav_sr2_CornerList* list) {
    if (list->count < 2) return TAV_OK;
    tav_sr2_Corner* sorted = static_cast<tav_sr2_Corner*>(
        tav_sr2_MemPool_alloc(list->pool, (uint32_t)(list->count * sizeof(tav_sr2_Corner))));
    if (sorted == nullptr) return TAV_ERROR_MALLOC;
    int32_t start[256] = {};  // bucket 255 - strength, strongest first
    for (int32_t k = 0; k < list->count; ++k)
        ++start[255 - list->corners[k].strength];
    int32_t total = 0;
    for (int32_t b = 0; b < 256; ++b) {
        const int32_t n = start[b];
        start[b] = total;
        total += n;
    }
    for (int32_t k = 0; k < list->count; ++k) {
        sorted[start[255 - list->corners[k].strength]++] = list->corners[k];
    }
    memcpy(list->corners, sorted, (size_t)list->count * sizeof(tav_sr2_Corner));
    tav_sr2_MemPool_free(list->pool, sorted);
    return TAV_OK;
}

}  // namespace

uint32_t tav_sr2_CornerList_init(tav_sr2_CornerList* list, tav_sr2_MemPool* pool,
                                 int32_t capacity) {
    if (list == nullptr || capacity < 0) return TAV_ERROR_PARAM;
    memset(list, 0, sizeof *list);
    list->pool = pool;
    list->corners = static_cast<tav_sr2_Corner*>(tav_sr2_MemPool_alloc(
        pool, tav_sr2_MemPool_sizeOf((int64_t)capacity * (int64_t)sizeof(tav_sr2_Corner))));
    if (list->corners == nullptr) return TAV_ERROR_MALLOC;
    list->capacity = capacity;
    return TAV_OK;
}

uint32_t tav_sr2_CornerList_finish(tav_sr2_CornerList* list) {
    if (list == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_MemPool* pool = list->pool;
    if (list->corners != nullptr) tav_sr2_MemPool_free(pool, list->corners);
    memset(list, 0, sizeof *list);
    list->pool = pool;
    return TAV_OK;
}

void tav_sr2_CornerList_clear(tav_sr2_CornerList* list) {
    if (list != nullptr) list->count = 0;
}

bool tav_sr2_CornerList_grid(int32_t width, int32_t height, int32_t limit,
                             tav_sr2_CornerGrid* grid) {
    memset(grid, 0, sizeof *grid);
    if (width < kMinSide || height < kMinSide || limit < 1) return false;
    const int64_t per_corner = (int64_t)width * height / limit;
    int32_t a = tav_sr2_isqrt(per_corner > INT32_MAX ? INT32_MAX : (int32_t)per_corner);
    grid->cell = a >= 5 ? a : 4;
    if (a < 5) a = 0;
    grid->step = a < 9 ? 2 : a < 36 ? a >> 2 : 8;
    const int32_t first = (kWindow / 2 - 1) / grid->step + 1;
    grid->map_width = (width - 1) / grid->step + 1;
    grid->map_height = (height - 1) / grid->step + 1;
    grid->i0 = first;
    grid->j0 = first;
    grid->i1 = (width - 3) / grid->step;
    grid->j1 = (height - 3) / grid->step;
    return true;
}

uint32_t tav_sr2_CornerList_responseMap(const tav_sr2_Image* image, const tav_sr2_CornerGrid* grid,
                                        tav_sr2_Image* map, tav_sr2_ThreadPool* thread_pool,
                                        const tav_sr2_CornerRows* rows) {
    if (image == nullptr || grid == nullptr || map == nullptr || rows == nullptr ||
        map->plane[0] == nullptr || map->width != grid->map_width ||
        map->height != grid->map_height) {
        return TAV_ERROR_PARAM;
    }
    for (int32_t j = 0; j < map->height; ++j) {
        memset(map->plane[0] + (int64_t)j * map->pitch[0], 0, (size_t)map->width * 4);
    }
    if (grid->i1 <= grid->i0 || grid->j1 <= grid->j0) return TAV_OK;
    ResponseJob job = {image, grid, map, rows->response};
    const tav_sr2_ImageCtx ctx = {map->pool, thread_pool, nullptr};
    return tav_sr2_ImageCtx_runBands(&ctx, bandCount(thread_pool), grid->j1 - grid->j0,
                                     &responseBand, &job);
}

uint32_t tav_sr2_CornerList_detectWithRows(tav_sr2_CornerList* list, const tav_sr2_Image* image,
                                           int32_t limit, tav_sr2_ThreadPool* thread_pool,
                                           const tav_sr2_CornerRows* rows) {
    if (list == nullptr || image == nullptr || rows == nullptr) return TAV_ERROR_PARAM;
    list->count = 0;
    tav_sr2_CornerGrid grid;
    if (!tav_sr2_CornerList_grid(image->width, image->height, limit, &grid)) return TAV_OK;
    if (image->plane[0] == nullptr) return TAV_ERROR_PARAM;

    tav_sr2_Image map;
    tav_sr2_Image_init(&map, list->pool);
    uint32_t status =
        tav_sr2_Image_alloc(&map, grid.map_width, grid.map_height, nullptr, TAV_SR2_FMT_INT32);
    if (status == TAV_OK)
        status = tav_sr2_CornerList_responseMap(image, &grid, &map, thread_pool, rows);
    if (status == TAV_OK) {
        collectCells(list, image, &map, &grid);
        status = sortByStrength(list);
        if (list->count > limit) list->count = limit;
    }
    tav_sr2_Image_finish(&map);
    return status;
}

uint32_t tav_sr2_CornerList_detect(tav_sr2_CornerList* list, const tav_sr2_Image* image,
                                   int32_t limit, tav_sr2_ThreadPool* thread_pool) {
    return tav_sr2_CornerList_detectWithRows(list, image, limit, thread_pool,
                                             tav_sr2_cornerRowsVector());
}
