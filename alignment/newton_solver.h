// The homography solver behind motion model kind 3: the algebraic residual as a quadratic form
// built from match moments, and a Newton iteration on that residual times a multiplicative prior.
#pragma once

#include <stdint.h>

// E(P) = P' M P - 2 v' P + c over the eight parameters P; M is symmetric, row-major 8 x 8.
struct tav_sr2_Quadratic {
    double m[64];
    double v[8];
    double c;
};

// Builds the residual E(P) = sum w [(p0 A + p1 B + p2 - C s)^2 + (p3 A + p4 B + p5 - D s)^2],
// s = p6 A + p7 B + 1, from the 36 weighted moments of the matches.
void tav_sr2_Quadratic_fromMoments(const double* moments, tav_sr2_Quadratic* q);
// E(P), and half its gradient (M P - v) in half_grad when that is not null.
double tav_sr2_Quadratic_eval(const tav_sr2_Quadratic* q, const double* p, double* half_grad);

// Solves a x = b for a symmetric n x n matrix (row-major, n <= 8) by elimination without row
// exchange, reading and updating only the upper triangle. a and b are overwritten; b becomes x.
// Returns 1 when a pivot's magnitude falls below 1e-8 (b is then unspecified), else 0.
int32_t tav_sr2_Newton_eliminate(double* a, double* b, int32_t n);

// The Newton system of J(P) = E(P) exp(sum ((p_k - mu_k) / sigma_k)^2), both halved and divided
// by the exponential: grad = g + e u, hess = H + e (diag(2 / sigma^2) + u u') + g u' + u g', with
// e = E / 2, g and H half the gradient and Hessian of E, u_k = 2 (p_k - mu_k) / sigma_k^2.
void tav_sr2_Newton_barrierSystem(const tav_sr2_Quadratic* q, const double* p, const double* mu,
                                  const double* sigma, double* grad, double* hess);

// Minimises J from p (updated in place) for at most 100 rounds. Returns 0 when the largest step
// fell below 1e-8, 1 when a pivot vanished, 3 after 100 rounds.
int32_t tav_sr2_Newton_minimise(const tav_sr2_Quadratic* q, double* p, const double* mu,
                                const double* sigma);
