// The merge weights of the base frame: the two ghost weight tables and the face rectangles of
// the face map.
//
// tav_sr2_fillWeightTable(table, slope, offset): the logistic weight of a ghost difference j,
//   in doubles with the library's own exp; an exp that overflows gives weight 0.
// tav_sr2_Pipeline_faceMapRects(self, w, h, rects): the internal faces moved by clip_rect,
//   with x0, y0 not below 0 and x1, y1 not beyond the w x h base view, then taken through the
//   diagonal transform from the view to the face map (face_mask's size), whose integer mapping
//   rounds half away from zero.
#include "engine/pipeline_steps.h"
#include "foundation/log.h"
#include "foundation/maths.h"
#include "foundation/trans2d.h"

namespace {

constexpr double kFullWeight = 128.0;

int32_t max32(int32_t a, int32_t b) {
    return a > b ? a : b;
}
int32_t min32(int32_t a, int32_t b) {
    return a < b ? a : b;
}

}  // namespace

void tav_sr2_fillWeightTable(uint8_t* table, double slope, double offset) {
    for (int32_t j = 0; j < 256; ++j) {
        const double excess = j - offset > 0.0 ? j - offset : 0.0;
        double w = 256.0 / (tav_sr2_exp(slope * excess) + 1.0);
        if (!(w > 0.0)) w = 0.0;  // NaN from an overflowed exp counts as no weight
        if (w > kFullWeight) w = kFullWeight;
        table[j] = static_cast<uint8_t>(w);
    }
}

int32_t tav_sr2_Pipeline_faceMapRects(const tav_sr2_Pipeline* self, int32_t view_width,
                                      int32_t view_height, tav_sr2_Rect* rects) {
    tav_sr2_Trans2D to_map;
    tav_sr2_Trans2D_identity(&to_map);
    to_map.m[0] = static_cast<double>(self->face_mask.width) / view_width;
    to_map.m[4] = static_cast<double>(self->face_mask.height) / view_height;
    int32_t count = 0;
    for (int32_t k = 0; k < self->internal_face_num && k < TAV_SR2_MAX_FACES; ++k) {
        const tav_sr2_Rect& face = self->internal_face_rects[k];
        tav_sr2_Rect r;
        // Only the sides that can leave the view are clamped: a face beside the view comes out
        // inverted, and the face map paints nothing for it.
        r.left = max32(face.left - self->clip_rect.left, 0);
        r.top = max32(face.top - self->clip_rect.top, 0);
        r.right = min32(face.right - self->clip_rect.left, view_width);
        r.bottom = min32(face.bottom - self->clip_rect.top, view_height);
        tav_sr2_log_i("render_face_rect  [%d, %d, %d, %d]\n", r.left, r.top, r.right, r.bottom);
        tav_sr2_Rect* m = &rects[count++];
        tav_sr2_Trans2D_applyInt(&to_map, &m->left, &m->top, r.left, r.top);
        tav_sr2_Trans2D_applyInt(&to_map, &m->right, &m->bottom, r.right, r.bottom);
        tav_sr2_log_i("face_trans2D_rect  [%d, %d, %d, %d]\n", m->left, m->top, m->right,
                      m->bottom);
    }
    return count;
}
