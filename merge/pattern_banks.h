// The two trained filter banks of the pattern upscaler, 6561 filters of 100 i16 (Q12) each, in
// the library's constant data. Filter i starts at element 100 i; within it, tap k of the 5 x 5
// window (row-major) holds its four outputs at 4k .. 4k + 3.
//
// Bank 0 enlarges pictures as the sensor's 2 x 2 box gives them; bank 1 was trained on softer
// ones (a lens or merge blur before the box) and recovers more detail, and the sum of its four
// outputs per tap also carries the deblur kernel of the GPU finishing pass. Both come from
// data/banks/, made by `bash scripts/train-banks.sh` (tools/train_banks.cpp tells how).
#pragma once

#include <stdint.h>

extern "C" const int16_t tav_sr2_pattern_bank_0[];
extern "C" const int16_t tav_sr2_pattern_bank_1[];
