// Pool figures of the guided filter.
//
// tav_sr2_GuidedFilter_classOf(format): 8-bit for 1, 35, 44..49; 16-bit for 3, 50, 52, 53, 63,
//   64; float for 5 and 67; none otherwise.
// tav_sr2_GuidedFilter_requiredSize(w, h, format): on the block grid gw x gh, gw = ((w >> 2) + 1)
//   & ~1 and gh likewise, one pool block per image: blk_sum, blk_sq, a_img, b_img, and per
//   direction a_dir, b_dir, the two line sums and two scratch rows long enough for a line of the
//   grid with the largest radius on each side; then map_small and the resize's row buffers of the
//   noise variant. Each block is rounded as the pool rounds it.
#include "nr/guided_filter_size.h"

#include "foundation/image_format.h"

namespace {

uint64_t poolBlock(uint64_t n) {
    const uint64_t need = n + 8 < 24 ? 24 : n + 8;
    return (need + 15) & ~uint64_t{15};
}

uint64_t gridImage(int32_t gw, int32_t gh, int32_t format) {
    return poolBlock(tav_sr2_ImageFormat_query(gw, gh, format, 0));
}

// Image formats of the filter's buffers, by class.
struct ClassFormats {
    int32_t blk_sum;
    int32_t blk_sq;
    int32_t model;  // a and b, fused and per direction
    int32_t line_sum;
    int32_t line_sq;
};

ClassFormats formatsOf(int32_t cls) {
    switch (cls) {
        case TAV_SR2_GF_CLASS_8BIT:
            return {TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT8, TAV_SR2_FMT_UINT16,
                    TAV_SR2_FMT_INT32};
        case TAV_SR2_GF_CLASS_16BIT:
            return {TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32, TAV_SR2_FMT_UINT16, TAV_SR2_FMT_INT32,
                    TAV_SR2_FMT_INT32};
        default:
            return {TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT, TAV_SR2_FMT_FLOAT,
                    TAV_SR2_FMT_FLOAT};
    }
}

// Line radius in blocks for the largest window: r = (window >> 2) | 1, n = r >> 2.
constexpr int32_t kMaxLineRadius = ((TAV_SR2_GF_MAX_WINDOW >> 2) | 1) >> 2;
constexpr int32_t kDirections = 4;

}  // namespace

int32_t tav_sr2_GuidedFilter_classOf(int32_t format) {
    switch (format) {
        case 1:
        case 35:
        case 44:
        case 45:
        case 46:
        case 47:
        case 48:
        case 49:
            return TAV_SR2_GF_CLASS_8BIT;
        case 3:
        case 50:
        case 52:
        case 53:
        case 63:
        case 64:
            return TAV_SR2_GF_CLASS_16BIT;
        case 5:
        case 67:
            return TAV_SR2_GF_CLASS_FLOAT;
        default:
            return TAV_SR2_GF_CLASS_NONE;
    }
}

uint32_t tav_sr2_GuidedFilter_requiredSize(int32_t width, int32_t height, int32_t format) {
    const int32_t cls = tav_sr2_GuidedFilter_classOf(format);
    if (width < 0 || height < 0 || cls == TAV_SR2_GF_CLASS_NONE) return 0;
    const int32_t gw = ((width >> 2) + 1) & ~1;
    const int32_t gh = ((height >> 2) + 1) & ~1;
    const ClassFormats f = formatsOf(cls);

    uint64_t total =
        gridImage(gw, gh, f.blk_sum) + gridImage(gw, gh, f.blk_sq) + 2 * gridImage(gw, gh, f.model);
    const int32_t line = (gw > gh ? gw : gh) + 2 * kMaxLineRadius;
    const uint64_t per_direction = 2 * gridImage(gw, gh, f.model) + gridImage(gw, gh, f.line_sum) +
                                   gridImage(gw, gh, f.line_sq) +
                                   2 * poolBlock(static_cast<uint64_t>(line) * 4);
    total += kDirections * per_direction;

    // Noise variant: the shrunk map, and the resize's two 16-bit rows per worker.
    total += gridImage(gw, gh, TAV_SR2_FMT_UINT8);
    total += poolBlock(static_cast<uint64_t>(TAV_SR2_GF_MAX_WORKERS) * gw * 2 * 2);
    return total > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(total);
}
