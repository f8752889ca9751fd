// What the GPU render context takes from the engine's pool, for the buffer budget: its texture
// count T and its fixed need G, the bytes it holds whatever the picture size.
//
// The render context's code allocates only what is counted here; a change there that takes more
// from the pool changes these figures with it.
#pragma once

#include <stdint.h>

// Texture slots of the engine's render context; each slot has a luma and a chroma texture.
static const int32_t TAV_SR2_RENDER_SLOT_COUNT = 24;
// Program slots of the binary cache, and how many of them hold a program.
static const int32_t TAV_SR2_RENDER_PROGRAM_SLOTS = 12;
static const int32_t TAV_SR2_RENDER_PROGRAMS_BUILT = 9;
// Room kept for one program binary taken from the cache; a driver's binary larger than this is
// refused by the cache loader and the program is built from its text instead.
static const uint32_t TAV_SR2_RENDER_PROGRAM_BINARY_MAX = 64 * 1024;
// The deblur coefficient texture: one column per pattern class, one row per tap.
static const int32_t TAV_SR2_RENDER_COEFF_CLASSES = 6561;
static const int32_t TAV_SR2_RENDER_COEFF_TAPS = 25;
// Room for the deciphered vertex and fragment texts of the program being built.
static const uint32_t TAV_SR2_RENDER_PROGRAM_TEXT_MAX = 16 * 1024;
// The cipher's per-setup state: four tables of 256 u32, 18 subkeys and the key.
static const uint32_t TAV_SR2_RENDER_CIPHER_STATE = 4 * 256 * 4 + 18 * 4 + 16;

// T: the texture count of a context with slot_count slots (2 per slot); 0 for a negative count.
int32_t tav_sr2_SR2GLRender_textureCount(int32_t slot_count);

// G: pool bytes the context holds or passes through independently of the picture size: the EGL
// state block, the texture name and size arrays, the cached program binaries, the deciphering
// scratch of one program's texts, and the two FLOAT working images of the deblur coefficient
// texture. Each block is counted with the pool's header and rounding.
uint32_t tav_sr2_SR2GLRender_fixedNeed(int32_t slot_count);
