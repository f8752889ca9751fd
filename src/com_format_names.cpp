// Host format codes to names.
//
// tav_com_format_names: 100 rows built at compile time from the engine's name table where the
//   names agree, with the host table's own rows written out where they differ.
// tav_com_formatName: bounds-checked row read; null outside 0..99.
#include "src/com_format_names.h"

#include "foundation/image_format.h"

static constexpr const char* engineName(int32_t code) {
    return tav_sr2_format_names[code].name;
}

static constexpr std::array<const char*, 100> buildComFormatNames() {
    std::array<const char*, 100> names{};
    for (int32_t c = 0; c <= 83; c++)
        names[c] = engineName(c);
    // The host table repeats "RGBA8888" where the engine has "BGR888"; kept as the host has it.
    names[10] = engineName(TAV_SR2_FMT_RGBA8888);
    names[76] = "BAYER10_M8L2PACKED_LE_RGGB";
    names[77] = "BAYER10_M8L2PACKED_LE_GRBG";
    names[78] = "BAYER10_M8L2PACKED_LE_GBRG";
    names[79] = "BAYER10_M8L2PACKED_LE_BGGR";
    names[84] = "BAYER12_M8L4PACKED_RGGB";
    names[85] = "BAYER12_M8L4PACKED_GRBG";
    names[86] = "BAYER12_M8L4PACKED_GBRG";
    names[87] = "BAYER12_M8L4PACKED_BGGR";
    names[88] = "BAYER14_UNPACKED_RGGB";
    names[89] = "BAYER14_UNPACKED_GRBG";
    names[90] = "BAYER14_UNPACKED_GBRG";
    names[91] = "BAYER14_UNPACKED_BGGR";
    // BAYER16, HSV and LAB sit eight rows lower than in the engine.
    for (int32_t c = 92; c <= 97; c++)
        names[c] = engineName(c - 8);
    names[98] = nullptr;
    names[99] = nullptr;
    return names;
}

constinit const std::array<const char*, 100> tav_com_format_names = buildComFormatNames();

const char* tav_com_formatName(int32_t code) {
    if ((uint32_t)code >= (uint32_t)TAV_COM_FORMAT_COUNT) return nullptr;
    return tav_com_format_names[code];
}
