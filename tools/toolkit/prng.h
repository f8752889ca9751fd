// The tools' own random numbers: xoshiro256** seeded through splitmix64, with uniform and
// Gaussian draws built on it. The sequence for a seed is fixed by this file alone, so a burst made
// from a seed is the same on every machine and library version.
#pragma once

#include <stdint.h>

#include <cmath>

namespace tavtool {

struct Prng {
    uint64_t s[4];
    bool has_spare = false;
    double spare = 0.0;
};

inline uint64_t splitmix64(uint64_t* state) {
    uint64_t z = (*state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

inline void prngSeed(Prng* p, uint64_t seed) {
    uint64_t state = seed;
    for (uint64_t& word : p->s)
        word = splitmix64(&state);
    p->has_spare = false;
}

inline uint64_t rotl(uint64_t x, int k) {
    return (x << k) | (x >> (64 - k));
}

inline uint64_t prngNext(Prng* p) {
    uint64_t* s = p->s;
    const uint64_t result = rotl(s[1] * 5, 7) * 9;
    const uint64_t t = s[1] << 17;
    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= t;
    s[3] = rotl(s[3], 45);
    return result;
}

// Uniform in [0, 1), 53 bits.
inline double prngUniform(Prng* p) {
    return static_cast<double>(prngNext(p) >> 11) * 0x1.0p-53;
}

// Uniform in [lo, hi).
inline double prngRange(Prng* p, double lo, double hi) {
    return lo + (hi - lo) * prngUniform(p);
}

// Standard normal by the Box-Muller transform; the second value of each pair is kept.
inline double prngGauss(Prng* p) {
    if (p->has_spare) {
        p->has_spare = false;
        return p->spare;
    }
    const double u1 = 1.0 - prngUniform(p);  // (0, 1]: log stays finite
    const double u2 = prngUniform(p);
    const double r = std::sqrt(-2.0 * std::log(u1));
    const double a = 6.283185307179586 * u2;
    p->spare = r * std::sin(a);
    p->has_spare = true;
    return r * std::cos(a);
}

}  // namespace tavtool
