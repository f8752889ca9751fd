// The ghost map's object and its two passes; the work image and the block grids live in
// ghost_front.cpp and ghost_blocks.cpp.
#include "merge/ghost.h"

#include <string.h>

#include "enhance/image_rows.h"
#include "merge/ghost_internal.h"

namespace {

constexpr int32_t kBlock = 4;
constexpr double kDefaultSigma = 0.4;
constexpr double kDefaultNoiseLevel = 1.0;
constexpr double kDefaultFalloff = 0.8;
constexpr int32_t kDefaultScale = 2;
constexpr double kBlurredMapOfs = 16.0;  // from this threshold up the map is blurred
constexpr double kMapSigma = 1.8;
constexpr int32_t kMapBands = 8;

tav_sr2_Image* images(tav_sr2_Ghost* g, int32_t i) {
    tav_sr2_Image* all[] = {&g->base_filtered, &g->base_small,   &g->inv_tensor,
                            &g->cur_filtered,  &g->cur_small,    &g->ghost_map,
                            &g->flow_map,      &g->radial_small, &g->radial_weight};
    return i < (int32_t)(sizeof all / sizeof all[0]) ? all[i] : nullptr;
}

// The luma the ghost map reads: the first plane of a frame 48 or 49, or a plain UINT8 image.
uint32_t lumaOf(const tav_sr2_Image* frame, tav_sr2_Image* luma) {
    tav_sr2_Image_init(luma, nullptr);
    if (frame->format == TAV_SR2_FMT_UINT8)
        return tav_sr2_Image_crop(luma, frame, 0, 0, frame->width, frame->height);
    if (!tav_sr2_isSemiPlanar8(frame->format)) return TAV_ERROR_UNSUPPORTED;
    return tav_sr2_Image_viewPlane0(luma, frame, 0, 0, frame->width, frame->height);
}

// The whole 4 x 4 blocks of the work image, centred on an even offset, less a border of at
// least two pixels for the gradients.
uint32_t placeBlocks(tav_sr2_Ghost* g) {
    const int32_t w = g->base_filtered.width, h = g->base_filtered.height;
    const int32_t nbx = (w - kBlock) >> 2, nby = (h - kBlock) >> 2;
    if (nbx < 1 || nby < 1) return TAV_ERROR_PARAM;
    const int32_t ox = ((w - kBlock * nbx) >> 1) & ~1, oy = ((h - kBlock * nby) >> 1) & ~1;
    int32_t* r = g->ghost_block_rect;
    r[0] = ox, r[1] = oy, r[2] = ox + kBlock * nbx, r[3] = oy + kBlock * nby;
    if (g->ghost_scale == 1) {
        for (int32_t k = 0; k < 4; ++k)
            g->ghost_valid_rect[k] = r[k];
    }
    return TAV_OK;
}

// Every block a ghost, on the caller's thread: this cannot fail.
void distrustAll(tav_sr2_Ghost* g) {
    for (int32_t j = 0; j < g->ghost_map.height; ++j)
        memset(tav_sr2_rowOf<uint8_t>(&g->ghost_map, 0, j), 255, g->ghost_map.width);
}

// The comparison proper; a failure here leaves ghost_map at 255.
uint32_t compare(tav_sr2_Ghost* g) {
    uint32_t status = tav_sr2_Ghost_matchBrightness(g);
    if (status == TAV_OK && g->deghost_noise_level > 0.0)
        status = tav_sr2_Ghost_presmooth(g, &g->cur_filtered);
    if (status == TAV_OK) status = tav_sr2_Ghost_flow(g);
    if (status == TAV_OK) status = tav_sr2_Ghost_residual(g);
    return status;
}

}  // namespace

uint32_t tav_sr2_Ghost_init(tav_sr2_Ghost* ghost, tav_sr2_MemPool* pool) {
    if (ghost == nullptr) return TAV_ERROR_PARAM;
    *ghost = {};
    ghost->pool = pool;
    for (int32_t i = 0; images(ghost, i) != nullptr; ++i)
        tav_sr2_Image_init(images(ghost, i), pool);
    ghost->deghost_gauss_sigma0 = kDefaultSigma;
    ghost->deghost_noise_level = kDefaultNoiseLevel;
    ghost->radial_falloff = kDefaultFalloff;
    ghost->ghost_scale = kDefaultScale;
    ghost->input_scale = 1.0f;
    ghost->rows = &tav_sr2_ghostRowsVector;
    return TAV_OK;
}

uint32_t tav_sr2_Ghost_finish(tav_sr2_Ghost* ghost) {
    if (ghost == nullptr) return TAV_ERROR_PARAM;
    uint32_t status = TAV_OK;
    for (int32_t i = 0; images(ghost, i) != nullptr; ++i) {
        const uint32_t released = tav_sr2_Image_finish(images(ghost, i));
        if (status == TAV_OK) status = released;
    }
    return status;
}

uint32_t tav_sr2_Ghost_setBase(tav_sr2_Ghost* ghost, const tav_sr2_Image* crop) {
    if (ghost == nullptr || crop == nullptr || ghost->rows == nullptr) return TAV_ERROR_PARAM;
    if (ghost->ghost_scale < 1) return TAV_ERROR_PARAM;
    tav_sr2_Image luma;
    uint32_t status = lumaOf(crop, &luma);
    if (status == TAV_OK)
        status = tav_sr2_Ghost_workImage(ghost, &luma, &ghost->base_small, &ghost->base_filtered);
    if (status == TAV_OK && ghost->deghost_noise_level > 0.0)
        status = tav_sr2_Ghost_presmooth(ghost, &ghost->base_filtered);
    if (status == TAV_OK) status = placeBlocks(ghost);
    if (status == TAV_OK) status = tav_sr2_Ghost_invTensor(ghost);
    if (status == TAV_OK) status = tav_sr2_Ghost_radialWeight(ghost);
    if (status == TAV_OK) status = tav_sr2_Ghost_allocMaps(ghost);
    return status;
}

uint32_t tav_sr2_Ghost_addFrame(tav_sr2_Ghost* ghost, const tav_sr2_Image* warped) {
    if (ghost == nullptr || warped == nullptr) return TAV_ERROR_PARAM;
    if (ghost->ghost_map.plane[0] == nullptr) return TAV_ERROR_GENERIC;
    tav_sr2_Image luma;
    uint32_t status = lumaOf(warped, &luma);
    if (status != TAV_OK) return status;
    const int32_t s = ghost->ghost_scale;
    if (luma.width / s != ghost->base_filtered.width ||
        luma.height / s != ghost->base_filtered.height)
        return TAV_ERROR_PARAM;
    status = tav_sr2_Ghost_workImage(ghost, &luma, &ghost->cur_small, &ghost->cur_filtered);
    if (status != TAV_OK) return status;
    if (compare(ghost) != TAV_OK) {
        distrustAll(ghost);  // neither the last frame's map nor a half-written one is trusted
        return TAV_OK;
    }
    const tav_sr2_ImageCtx ctx = tav_sr2_Ghost_ctx(ghost);
    if (ghost->deghost_ofs < kBlurredMapOfs) return TAV_OK;
    return tav_sr2_Ghost_gauss7(&ctx, &ghost->ghost_map, &ghost->ghost_map, kMapSigma, kMapBands);
}
