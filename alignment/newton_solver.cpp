// Homography solver: residual from moments, symmetric elimination, Newton with a prior barrier.
//
// tav_sr2_Quadratic_fromMoments turns the 36 moments of the matches into the quadratic form of
// the algebraic residual, so the solver never walks the matches again. tav_sr2_Newton_eliminate
// solves a symmetric system without row exchange and reports a vanished pivot.
// tav_sr2_Newton_minimise runs Newton on E(P) exp(Q(P)), Q the squared distance of P from the
// prior mean in units of sigma: the barrier multiplies instead of adding, so it has no pull when
// the matches are explained exactly, and grows with the residual when they are not.
#include "alignment/newton_solver.h"

namespace {

// Moment slots: the order in which the model accumulates them.
enum Moment {
    kOne,
    kA,
    kB,
    kC,
    kD,
    kAA,
    kAB,
    kBB,
    kCC,
    kDD,
    kCD,
    kAC,
    kAD,
    kBC,
    kBD,
    kCAA,
    kDAA,
    kCAB,
    kDAB,
    kCBB,
    kDBB,
    kCCA,
    kDDA,
    kCDA,
    kCCB,
    kDDB,
    kCDB,
    kCCAA,
    kDDAA,
    kCDAA,
    kCCAB,
    kDDAB,
    kCDAB,
    kCCBB,
    kDDBB,
    kCDBB,
    kMomentCount
};
static_assert(kMomentCount == 36);

const double kPivotFloor = 1e-8;
const double kStepFloor = 1e-8;
const int32_t kMaxRounds = 100;

double magnitude(double v) {
    return v < 0.0 ? -v : v;
}

void setSymmetric(double* m, int32_t i, int32_t j, double v) {
    m[i * 8 + j] = v;
    m[j * 8 + i] = v;
}

}  // namespace

// Each match contributes the rows a = (A, B, 1, 0, 0, 0, -CA, -CB) and
// b = (0, 0, 0, A, B, 1, -DA, -DB) with targets C and D: M = sum w (a a' + b b'),
// v = sum w (C a + D b), c = sum w (C^2 + D^2).
void tav_sr2_Quadratic_fromMoments(const double* mo, tav_sr2_Quadratic* q) {
    for (int32_t i = 0; i < 64; ++i)
        q->m[i] = 0.0;
    double* m = q->m;
    // The two affine blocks share their moments.
    for (int32_t base = 0; base <= 3; base += 3) {
        setSymmetric(m, base + 0, base + 0, mo[kAA]);
        setSymmetric(m, base + 0, base + 1, mo[kAB]);
        setSymmetric(m, base + 0, base + 2, mo[kA]);
        setSymmetric(m, base + 1, base + 1, mo[kBB]);
        setSymmetric(m, base + 1, base + 2, mo[kB]);
        setSymmetric(m, base + 2, base + 2, mo[kOne]);
    }
    setSymmetric(m, 0, 6, -mo[kCAA]);
    setSymmetric(m, 0, 7, -mo[kCAB]);
    setSymmetric(m, 1, 6, -mo[kCAB]);
    setSymmetric(m, 1, 7, -mo[kCBB]);
    setSymmetric(m, 2, 6, -mo[kAC]);
    setSymmetric(m, 2, 7, -mo[kBC]);
    setSymmetric(m, 3, 6, -mo[kDAA]);
    setSymmetric(m, 3, 7, -mo[kDAB]);
    setSymmetric(m, 4, 6, -mo[kDAB]);
    setSymmetric(m, 4, 7, -mo[kDBB]);
    setSymmetric(m, 5, 6, -mo[kAD]);
    setSymmetric(m, 5, 7, -mo[kBD]);
    setSymmetric(m, 6, 6, mo[kCCAA] + mo[kDDAA]);
    setSymmetric(m, 6, 7, mo[kCCAB] + mo[kDDAB]);
    setSymmetric(m, 7, 7, mo[kCCBB] + mo[kDDBB]);

    q->v[0] = mo[kAC];
    q->v[1] = mo[kBC];
    q->v[2] = mo[kC];
    q->v[3] = mo[kAD];
    q->v[4] = mo[kBD];
    q->v[5] = mo[kD];
    q->v[6] = -(mo[kCCA] + mo[kDDA]);
    q->v[7] = -(mo[kCCB] + mo[kDDB]);
    q->c = mo[kCC] + mo[kDD];
}

double tav_sr2_Quadratic_eval(const tav_sr2_Quadratic* q, const double* p, double* half_grad) {
    double e = q->c;
    for (int32_t i = 0; i < 8; ++i) {
        double mp = 0.0;
        for (int32_t j = 0; j < 8; ++j)
            mp += q->m[i * 8 + j] * p[j];
        e += p[i] * (mp - 2.0 * q->v[i]);
        if (half_grad) half_grad[i] = mp - q->v[i];
    }
    return e;
}

int32_t tav_sr2_Newton_eliminate(double* a, double* b, int32_t n) {
    for (int32_t k = 0; k < n; ++k) {
        const double pivot = a[k * n + k];
        if (magnitude(pivot) < kPivotFloor) return 1;
        for (int32_t i = k + 1; i < n; ++i) {
            const double f = a[k * n + i] / pivot;  // a[i][k] by symmetry
            if (f == 0.0) continue;
            for (int32_t j = i; j < n; ++j)
                a[i * n + j] -= f * a[k * n + j];
            b[i] -= f * b[k];
        }
    }
    for (int32_t i = n - 1; i >= 0; --i) {
        double s = b[i];
        for (int32_t j = i + 1; j < n; ++j)
            s -= a[i * n + j] * b[j];
        b[i] = s / a[i * n + i];
    }
    return 0;
}

void tav_sr2_Newton_barrierSystem(const tav_sr2_Quadratic* q, const double* p, const double* mu,
                                  const double* sigma, double* grad, double* hess) {
    double g[8];
    const double e = 0.5 * tav_sr2_Quadratic_eval(q, p, g);
    double u[8];
    double v[8];
    for (int32_t k = 0; k < 8; ++k) {
        const double inv_var = 2.0 / (sigma[k] * sigma[k]);
        u[k] = (p[k] - mu[k]) * inv_var;
        v[k] = inv_var + u[k] * u[k];
        grad[k] = g[k] + e * u[k];
    }
    for (int32_t k = 0; k < 8; ++k) {
        for (int32_t l = 0; l < 8; ++l) {
            double h = q->m[k * 8 + l];
            if (k == l) {
                h += e * v[k] + 2.0 * g[k] * u[k];
            } else {
                h += e * u[k] * u[l] + g[k] * u[l] + u[k] * g[l];
            }
            hess[k * 8 + l] = h;
        }
    }
}

int32_t tav_sr2_Newton_minimise(const tav_sr2_Quadratic* q, double* p, const double* mu,
                                const double* sigma) {
    for (int32_t round = 0; round < kMaxRounds; ++round) {
        double step[8];
        double hess[64];
        tav_sr2_Newton_barrierSystem(q, p, mu, sigma, step, hess);
        for (int32_t k = 0; k < 8; ++k)
            step[k] = -step[k];
        if (tav_sr2_Newton_eliminate(hess, step, 8)) return 1;
        double largest = 0.0;
        for (int32_t k = 0; k < 8; ++k) {
            p[k] += step[k];
            // A NaN step wins here and never converges.
            if (!(magnitude(step[k]) <= largest)) largest = magnitude(step[k]);
        }
        if (largest < kStepFloor) return 0;
    }
    return 3;
}
