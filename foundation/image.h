// tav_sr2_Image: the picture record every stage exchanges.
//
// An owned image holds one pool block: plane 0 at its start, plane 1 right after the last byte of
// plane 0, plane 2 right after plane 1. An external image (a view or a wrapped buffer) points at
// someone else's pixels and never releases them. Pitches, plane rows and sizes all come from
// tav_sr2_ImageFormat_layout.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "foundation/image_format.h"
#include "foundation/mem_pool.h"
#include "foundation/status.h"

struct tav_sr2_Image {
    int32_t width;
    int32_t height;
    int32_t format;     // engine format code, 0..89
    uint32_t external;  // 1: the planes belong to someone else; 0: allocated from pool
    uint8_t* plane[3];  // missing planes are null
    int32_t pitch[3];   // bytes from one row of a plane to the next
    tav_sr2_MemPool* pool;
};
static_assert(offsetof(tav_sr2_Image, width) == 0);
static_assert(offsetof(tav_sr2_Image, height) == 4);
static_assert(offsetof(tav_sr2_Image, format) == 8);
static_assert(offsetof(tav_sr2_Image, external) == 12);
static_assert(offsetof(tav_sr2_Image, plane) == 16);
static_assert(offsetof(tav_sr2_Image, pitch) == 16 + 3 * sizeof(void*));
static_assert(offsetof(tav_sr2_Image, pool) ==
              (16 + 3 * sizeof(void*) + 3 * sizeof(int32_t) + alignof(void*) - 1) / alignof(void*) *
                  alignof(void*));

// Caller planes handed to tav_sr2_Image_setup: the pointers, then the pitches, as many of each as
// the format has planes.
struct tav_sr2_ImagePlanes1 {
    uint8_t* plane[1];
    int32_t pitch[1];
};
struct tav_sr2_ImagePlanes2 {
    uint8_t* plane[2];
    int32_t pitch[2];
};
struct tav_sr2_ImagePlanes3 {
    uint8_t* plane[3];
    int32_t pitch[3];
};
static_assert(offsetof(tav_sr2_ImagePlanes1, pitch) == 1 * sizeof(void*));
static_assert(offsetof(tav_sr2_ImagePlanes2, pitch) == 2 * sizeof(void*));
static_assert(offsetof(tav_sr2_ImagePlanes3, pitch) == 3 * sizeof(void*));

// Left, top, right, bottom; right and bottom exclusive.
struct tav_sr2_Rect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
};

uint32_t tav_sr2_Image_init(tav_sr2_Image* image, tav_sr2_MemPool* pool);
uint32_t tav_sr2_Image_finish(tav_sr2_Image* image);

// planes: null for pixels from the image's pool, else a tav_sr2_ImagePlanes1/2/3 matching the
// plane count of code. A block whose byte count is unchanged is kept as it is.
uint32_t tav_sr2_Image_setup(tav_sr2_Image* image, int32_t width, int32_t height,
                             const void* planes, int32_t code);
// buffer: null for pixels from the pool; for a one-plane format the pixels themselves; for a
// format of two or three planes an array of that many plane pointers.
uint32_t tav_sr2_Image_alloc(tav_sr2_Image* image, int32_t width, int32_t height,
                             const void* buffer, int32_t code);
// Lays the planes one behind another in data. An owned block of the image is not released.
uint32_t tav_sr2_Image_wrapBuffer(tav_sr2_Image* image, int32_t width, int32_t height, void* data,
                                  int32_t size, int32_t code);

// Views. They write the whole destination record (external, the source's pool) and never release
// a block the destination may hold, so the destination is an empty record or another view.
uint32_t tav_sr2_Image_crop(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x, int32_t y,
                            int32_t width, int32_t height);
uint32_t tav_sr2_Image_viewPlane0(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height);
uint32_t tav_sr2_Image_viewPlane1(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height);
uint32_t tav_sr2_Image_viewPlane2(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height);
uint32_t tav_sr2_Image_viewChroma(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x,
                                  int32_t y, int32_t width, int32_t height);

uint32_t tav_sr2_Image_copy(tav_sr2_Image* dst, const tav_sr2_Image* src);
uint32_t tav_sr2_Image_copyRect(tav_sr2_Image* dst, const tav_sr2_Image* src, int32_t x, int32_t y,
                                const tav_sr2_Rect* rect);
