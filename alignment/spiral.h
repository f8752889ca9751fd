// The square spiral that the pixel matcher and the block search walk: (0,0), then ring r = 1,
// 2, ... clockwise in image coordinates (y down), each ring starting at (r, 1 - r), going down
// to (r, r), left to (-r, r), up to (-r, -r) and right to (r, -r), where the walk of radius R
// ends. Ring r holds 8 r offsets.
#pragma once

#include <stdint.h>

template <typename Visit>
inline void tav_sr2_spiralWalk(int32_t radius, Visit&& visit) {
    visit(0, 0);
    for (int32_t r = 1; r <= radius; ++r) {
        for (int32_t y = 1 - r; y <= r; ++y)
            visit(r, y);
        for (int32_t x = r - 1; x >= -r; --x)
            visit(x, r);
        for (int32_t y = r - 1; y >= -r; --y)
            visit(-r, y);
        for (int32_t x = 1 - r; x <= r; ++x)
            visit(x, -r);
    }
}
