// tav_sr2_CornerList: corners of one pyramid level, one per grid cell at most, strongest first.
//
// The detector evaluates a Harris response (k = 1/16, 64-bit integers) on a sparse grid, keeps
// the best grid point of each cell, and orders the kept corners by strength with a stable
// counting sort. Cells are visited in raster order and a full list refuses the rest, so with
// more cells than room the bottom cells are the ones that go missing.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"
#include "foundation/thread_pool.h"

struct tav_sr2_Corner {
    int32_t x0;  // the cell, right and bottom exclusive
    int32_t y0;
    int32_t x1;
    int32_t y1;
    int32_t x;  // the grid point, level pixels
    int32_t y;
    uint8_t response_extra[8];  // zero
    int32_t strength;           // 0..255
    uint8_t spare[8];           // zero
};
static_assert(sizeof(tav_sr2_Corner) == 44, "corner record layout");
static_assert(offsetof(tav_sr2_Corner, strength) == 32, "corner record layout");

struct tav_sr2_CornerList {
    tav_sr2_Corner* corners;
    int32_t count;
    int32_t capacity;
    tav_sr2_MemPool* pool;
};

// The grid the detector uses for an image: cell side, sample step, and the computed grid
// points: columns i0 .. i1-1 and rows j0 .. j1-1 of a map of map_width x map_height.
struct tav_sr2_CornerGrid {
    int32_t cell;
    int32_t step;
    int32_t map_width;
    int32_t map_height;
    int32_t i0, i1;
    int32_t j0, j1;
};

struct tav_sr2_CornerRows;

// Empty list with room for `capacity` corners. TAV_ERROR_PARAM for a null list or a negative
// capacity, TAV_ERROR_MALLOC when the pool is short.
uint32_t tav_sr2_CornerList_init(tav_sr2_CornerList* list, tav_sr2_MemPool* pool, int32_t capacity);
uint32_t tav_sr2_CornerList_finish(tav_sr2_CornerList* list);
void tav_sr2_CornerList_clear(tav_sr2_CornerList* list);

// Grid of a width x height image for `limit` corners; false when the detector finds nothing
// there (an image below 24 pixels in either direction, or a limit below 1).
bool tav_sr2_CornerList_grid(int32_t width, int32_t height, int32_t limit,
                             tav_sr2_CornerGrid* grid);
// Clears the list and detects at most `limit` corners of a "UINT8" image. The response map is
// made in row jobs on the thread pool when it has more than one worker. TAV_ERROR_PARAM for a
// null argument, TAV_ERROR_MALLOC when the map or the sort buffer cannot be had.
uint32_t tav_sr2_CornerList_detect(tav_sr2_CornerList* list, const tav_sr2_Image* image,
                                   int32_t limit, tav_sr2_ThreadPool* thread_pool);
// The same with a chosen response kernel (tests and benchmarks compare the two forms).
uint32_t tav_sr2_CornerList_detectWithRows(tav_sr2_CornerList* list, const tav_sr2_Image* image,
                                           int32_t limit, tav_sr2_ThreadPool* thread_pool,
                                           const tav_sr2_CornerRows* rows);
// The response map alone: an "INT32" image of the grid's map size, zero outside the computed
// grid points. The map must already have that size.
uint32_t tav_sr2_CornerList_responseMap(const tav_sr2_Image* image, const tav_sr2_CornerGrid* grid,
                                        tav_sr2_Image* map, tav_sr2_ThreadPool* thread_pool,
                                        const tav_sr2_CornerRows* rows);
