// Pool figures of the GPU render context.
//
// tav_sr2_SR2GLRender_textureCount(slots): 2 per slot.
// tav_sr2_SR2GLRender_fixedNeed(slots): the sum of the blocks the context holds from its start to
//   its finish (EGL state, name and size arrays, program binaries) and of the largest set it holds
//   for a moment during the start (the texts of one program with the cipher state, or the two
//   FLOAT images of the coefficient texture, which never coexist), each rounded as the pool
//   rounds a block.
#include "gpu/render_context_size.h"

namespace {

// A pool block for a request of n bytes: the 8-byte header added, at least 24, to 16 bytes.
uint64_t poolBlock(uint64_t n) {
    const uint64_t need = n + 8 < 24 ? 24 : n + 8;
    return (need + 15) & ~uint64_t{15};
}

// display, surface, context, the saved flag and the four saved handles: eight 8-byte places.
constexpr uint64_t kEglStateBytes = 8 * 8;

}  // namespace

int32_t tav_sr2_SR2GLRender_textureCount(int32_t slot_count) {
    return slot_count > 0 ? 2 * slot_count : 0;
}

uint32_t tav_sr2_SR2GLRender_fixedNeed(int32_t slot_count) {
    const uint64_t textures = static_cast<uint64_t>(tav_sr2_SR2GLRender_textureCount(slot_count));
    const uint64_t lasting =
        poolBlock(kEglStateBytes) + poolBlock(4 * textures) + poolBlock(8 * textures) +
        TAV_SR2_RENDER_PROGRAMS_BUILT * poolBlock(TAV_SR2_RENDER_PROGRAM_BINARY_MAX);
    const uint64_t texts =
        poolBlock(TAV_SR2_RENDER_CIPHER_STATE) + poolBlock(TAV_SR2_RENDER_PROGRAM_TEXT_MAX);
    const uint64_t coeff_image = static_cast<uint64_t>(TAV_SR2_RENDER_COEFF_CLASSES) *
                                 TAV_SR2_RENDER_COEFF_TAPS * sizeof(float);
    const uint64_t coeff = 2 * poolBlock(coeff_image);
    const uint64_t passing = texts > coeff ? texts : coeff;
    return static_cast<uint32_t>(lasting + passing);
}
