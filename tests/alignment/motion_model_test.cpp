// Motion model kind 3: recovery of known homographies from exact, noisy and polluted matches;
// the Newton pieces against finite differences and hand-solved systems; model lifecycle.
#include "alignment/motion_model.h"

#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <vector>

#include "alignment/newton_solver.h"
#include "foundation/mem_pool.h"
#include "tests/foundation/pool_fixtures.h"

namespace {

struct Match {
    double c, d;  // reference
    double a, b;  // current
};

tav_sr2_Trans2D homography(double m0, double m1, double m2, double m3, double m4, double m5,
                           double m6, double m7) {
    tav_sr2_Trans2D t;
    tav_sr2_Trans2D_identity(&t);
    const double m[9] = {m0, m1, m2, m3, m4, m5, m6, m7, 1.0};
    for (int i = 0; i < 9; ++i)
        t.m[i] = m[i];
    return t;
}

// Rotation by deg about (cx, cy), scale s, shift (tx, ty), perspective (g, h).
tav_sr2_Trans2D similarity(double deg, double s, double tx, double ty, double g, double h,
                           double cx, double cy) {
    const double r = deg * M_PI / 180.0;
    const double c = s * cos(r), n = s * sin(r);
    return homography(c, -n, cx - c * cx + n * cy + tx, n, c, cy - n * cx - c * cy + ty, g, h);
}

void project(const tav_sr2_Trans2D& t, double x, double y, double* ox, double* oy) {
    const double* m = t.m;
    const double w = m[6] * x + m[7] * y + m[8];
    *ox = (m[0] * x + m[1] * y + m[2]) / w;
    *oy = (m[3] * x + m[4] * y + m[5]) / w;
}

// Largest distance between the two transforms' images of the frame's corners.
double cornerError(const tav_sr2_Trans2D& a, const tav_sr2_Trans2D& b, double w, double h) {
    const double xs[4] = {0, w, 0, w}, ys[4] = {0, 0, h, h};
    double worst = 0.0;
    for (int i = 0; i < 4; ++i) {
        double ax, ay, bx, by;
        project(a, xs[i], ys[i], &ax, &ay);
        project(b, xs[i], ys[i], &bx, &by);
        worst = fmax(worst, hypot(ax - bx, ay - by));
    }
    return worst;
}

std::vector<Match> gridMatches(const tav_sr2_Trans2D& t, double w, double h, int n, double noise,
                               uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> ux(0, w), uy(0, h);
    std::normal_distribution<double> gauss(0.0, noise > 0 ? noise : 1.0);
    std::vector<Match> out;
    for (int i = 0; i < n; ++i) {
        Match m;
        m.c = floor(ux(rng));
        m.d = floor(uy(rng));
        project(t, m.c, m.d, &m.a, &m.b);
        if (noise > 0) {
            m.a += gauss(rng);
            m.b += gauss(rng);
        }
        out.push_back(m);
    }
    return out;
}

struct Model {
    tav_fixtures::Heap heap{1 << 16};
    tav_sr2_MotionModel model;
    Model() {
        tav_sr2_MotionModel_init(&model, &heap.pool);
        EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 2), TAV_OK);
    }
    ~Model() {
        tav_sr2_MotionModel_finish(&model);
        EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    }
    tav_sr2_Trans2D fit(const std::vector<Match>& ms, const tav_sr2_Trans2D& start, double w) {
        tav_sr2_MotionModel_reset(&model);
        for (const Match& m : ms)
            tav_sr2_MotionModel_addMatch(&model, m.c, m.d, m.a, m.b, w);
        tav_sr2_MotionModel_setStart(&model, &start);
        tav_sr2_MotionModel_solve(&model);
        tav_sr2_Trans2D t;
        tav_sr2_MotionModel_getTransform(&model, &t);
        return t;
    }
};

const double kW = 640, kH = 480;

TEST(MotionModel, ExactMatchesGiveTheTransformBack) {
    Model m;
    const tav_sr2_Trans2D cases[] = {
        similarity(0, 1, 30, -12, 0, 0, kW / 2, kH / 2),
        similarity(1.5, 1.02, -25, 30, 0, 0, kW / 2, kH / 2),
        similarity(-1.2, 0.985, 7.5, 3.25, 2e-5, -3e-5, kW / 2, kH / 2),
        homography(1.01, 0.02, -4, -0.015, 0.99, 6, 4e-5, 1e-5),
    };
    tav_sr2_Trans2D identity;
    tav_sr2_Trans2D_identity(&identity);
    for (const tav_sr2_Trans2D& truth : cases) {
        const std::vector<Match> ms = gridMatches(truth, kW, kH, 120, 0.0, 7);
        const tav_sr2_Trans2D got = m.fit(ms, identity, 127.0 / 128.0);
        EXPECT_EQ(tav_sr2_MotionModel_getStatus(&m.model), TAV_MODEL_OK);
        EXPECT_LT(cornerError(got, truth, kW, kH), 1e-9);
        EXPECT_DOUBLE_EQ(got.m[8], 1.0);
    }
}

TEST(MotionModel, WeightlessOrCollinearMatchesLoseAPivot) {
    Model m;
    tav_sr2_Trans2D start = similarity(0, 1, 4, 5, 0, 0, 0, 0);
    const std::vector<Match> ms = gridMatches(start, kW, kH, 50, 0.0, 5);
    tav_sr2_Trans2D got = m.fit(ms, start, 0.0);
    EXPECT_EQ(tav_sr2_MotionModel_getStatus(&m.model), TAV_MODEL_PIVOT);
    EXPECT_LT(cornerError(got, start, kW, kH), 1e-12);  // the start comes back untouched

    std::vector<Match> line;
    for (int i = 0; i < 30; ++i)
        line.push_back({10.0 * i, 20.0 + 5.0 * i, 10.0 * i + 4, 25.0 + 5 * i});
    got = m.fit(line, start, 1.0);
    EXPECT_EQ(tav_sr2_MotionModel_getStatus(&m.model), TAV_MODEL_PIVOT);
}

// The residual straight from the matches, for checking the moments' form.
double directResidual(const std::vector<Match>& ms, const double* p, double w) {
    double e = 0.0;
    for (const Match& m : ms) {
        const double s = p[6] * m.a + p[7] * m.b + 1;
        const double r1 = p[0] * m.a + p[1] * m.b + p[2] - m.c * s;
        const double r2 = p[3] * m.a + p[4] * m.b + p[5] - m.d * s;
        e += w * (r1 * r1 + r2 * r2);
    }
    return e;
}

TEST(NewtonSolver, BarrierSystemMatchesFiniteDifferencesOfTheObjective) {
    Model m;
    const std::vector<Match> ms =
        gridMatches(similarity(2, 1.05, 3, -2, 1e-3, 2e-3, 20, 15), 40, 30, 25, 0.3, 9);
    for (const Match& x : ms)
        tav_sr2_MotionModel_addMatch(&m.model, x.c, x.d, x.a, x.b, 0.75);
    const tav_sr2_HomographyState* s = (const tav_sr2_HomographyState*)m.model.state;
    tav_sr2_Quadratic q;
    tav_sr2_Quadratic_fromMoments(s->moments, &q);

    const double p[8] = {0.98, 0.03, -2.5, -0.02, 0.97, 1.8, 4e-4, -6e-4};
    const double mu[8] = {1, 0, 0, 0, 1, 0, 1e-4, 2e-4};
    const double sigma[8] = {1, 1, 1e10, 1, 1, 1e10, 0.001, 0.001};
    EXPECT_NEAR(tav_sr2_Quadratic_eval(&q, p, nullptr), directResidual(ms, p, 0.75),
                1e-9 * directResidual(ms, p, 0.75));

    // J = E exp(Q); the solver's system is grad J and hess J divided by 2 exp(Q).
    auto priorQ = [&](const double* x) {
        double qsum = 0;
        for (int k = 0; k < 8; ++k)
            qsum += (x[k] - mu[k]) * (x[k] - mu[k]) / (sigma[k] * sigma[k]);
        return qsum;
    };
    auto objective = [&](const double* x) { return directResidual(ms, x, 0.75) * exp(priorQ(x)); };
    // grad J at x, recovered from the solver's scaled gradient there.
    auto gradJ = [&](const double* x, double* out) {
        double hess_unused[64];
        tav_sr2_Newton_barrierSystem(&q, x, mu, sigma, out, hess_unused);
        for (int k = 0; k < 8; ++k)
            out[k] *= 2 * exp(priorQ(x));
    };
    const double scale = 2 * exp(priorQ(p));
    double grad[8], hess[64];
    tav_sr2_Newton_barrierSystem(&q, p, mu, sigma, grad, hess);
    const double steps[8] = {1e-5, 1e-5, 1e-4, 1e-5, 1e-5, 1e-4, 1e-7, 1e-7};
    for (int k = 0; k < 8; ++k) {
        double xp[8], xm[8];
        for (int i = 0; i < 8; ++i)
            xp[i] = xm[i] = p[i];
        xp[k] += steps[k];
        xm[k] -= steps[k];
        const double fd_grad = (objective(xp) - objective(xm)) / (2 * steps[k]) / scale;
        EXPECT_NEAR(grad[k], fd_grad, 1e-5 * (fabs(fd_grad) + 1)) << k;
        double gp[8], gm[8];
        gradJ(xp, gp);
        gradJ(xm, gm);
        for (int l = 0; l < 8; ++l) {
            const double fd = (gp[l] - gm[l]) / (2 * steps[k]) / scale;
            const double size = sqrt(fabs(hess[k * 8 + k] * hess[l * 8 + l]));
            EXPECT_NEAR(hess[k * 8 + l], fd, 1e-5 * size + 1e-6) << k << "," << l;
        }
    }
}

TEST(MotionModel, KindsAndLifecycle) {
    tav_fixtures::Heap heap(1 << 14);
    tav_sr2_MotionModel model;
    EXPECT_EQ(tav_sr2_MotionModel_init(nullptr, &heap.pool), TAV_ERROR_PARAM);
    tav_sr2_MotionModel_init(&model, &heap.pool);
    EXPECT_EQ(tav_sr2_MotionModel_getStatus(&model), TAV_MODEL_NO_MEMORY);
    EXPECT_EQ(tav_sr2_MotionModel_solve(&model), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 6, 2), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, -1, 2), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 0, 2), TAV_ERROR_UNSUPPORTED);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 3), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 2), TAV_OK);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 2), TAV_OK);  // the old state goes back

    tav_sr2_MotionModel other;
    tav_sr2_MotionModel_init(&other, &heap.pool);
    ASSERT_EQ(tav_sr2_MotionModel_setKind(&other, 3, 2), TAV_OK);
    tav_sr2_MotionModel_addMatch(&model, 1, 2, 3, 4, 0.5);
    EXPECT_EQ(tav_sr2_MotionModel_copy(&other, &model), TAV_OK);
    EXPECT_EQ(((tav_sr2_HomographyState*)other.state)->moments[13], 0.5 * 4 * 1);  // B C
    tav_sr2_MotionModel_finish(&other);
    tav_sr2_MotionModel_finish(&model);
    tav_sr2_MotionModel_finish(&model);
    EXPECT_EQ(tav_sr2_MemPool_inUse(&heap.pool), 0u);

#ifdef TAVRIN_FAULT_INJECTION
    tav_sr2_MemPool_injectFailure(1, false);
    EXPECT_EQ(tav_sr2_MotionModel_setKind(&model, 3, 2), TAV_ERROR_MALLOC);
    tav_sr2_MemPool_injectFailure(0, false);
    EXPECT_EQ(model.ops, nullptr);
    EXPECT_EQ(tav_sr2_MotionModel_getStatus(&model), TAV_MODEL_NO_MEMORY);
    tav_sr2_MotionModel_finish(&model);
#endif
}

}  // namespace
