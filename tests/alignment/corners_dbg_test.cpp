#include <gtest/gtest.h>
#include "alignment/motion_estimator.h"
#include "tests/alignment/align_test_util.h"
TEST(Dbg, Kinds) {
    tav_fixtures::Heap heap(32 << 20);
    const tav_align_test::Texture texture(31);
    tav_fixtures::TestImage img(&heap.pool, 320, 240, TAV_SR2_FMT_UINT8);
    tav_sr2_MotionEstimator e;
    tav_sr2_MotionEstimator_init(&e, &heap.pool);
    e.fit_method = 3; e.max_pixels = 320*240; e.motion_model = 3; e.normalize_level0 = 0; e.inlier_ratio = 0.5;
    tav_sr2_MotionEstimator_configure(&e, 320, 240);
    tav_align_test::fillShifted(&img.img, texture, 0, 0);
    tav_sr2_MotionEstimator_setReference(&e, &img.img);
    tav_align_test::fillShifted(&img.img, texture, 2.5, -1.25);
    tav_sr2_MotionEstimator_estimate(&e, &img.img);
    for (int k = 0; k < e.level_count; ++k) {
        const tav_sr2_TemplateSet* s = &e.templates[k];
        int g = 0, p = 0, gi = 0, pi = 0, gm = 0, pm = 0;
        for (int i = 0; i < s->count; ++i) {
            bool grad = s->cells[i].kind == 0;
            (grad ? g : p)++;
            if (s->match_x[i] >= 0) (grad ? gm : pm)++;
            if (s->inlier[i]) (grad ? gi : pi)++;
        }
        const tav_sr2_Trans2D& t = e.level_result[k];
        printf("level %d: %dx%d grad %d (m %d in %d) pix %d (m %d in %d) t=%.3f %.3f stats %d %d %d\n", k, e.ref_pyramid[k].width, e.ref_pyramid[k].height, g, gm, gi, p, pm, pi, t.m[2]/t.m[8], t.m[5]/t.m[8], e.level_stats[3*k], e.level_stats[3*k+1], e.level_stats[3*k+2]);
    }
    tav_sr2_MotionEstimator_finish(&e);
}
