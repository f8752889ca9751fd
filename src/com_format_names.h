// tav_com_format_names: the instance layer's format names, indexed by the format code the host
// passes. The instance layer hands the name, never the code, to the engine, which looks it up in
// tav_sr2_format_names; a name the engine lacks resolves there to 0.
#pragma once

#include <stdint.h>

#include <array>

static const int32_t TAV_COM_FORMAT_COUNT = 100;

// Rows the host's codes give. Deliberately not the engine's numbering: row 10 is a second
// "RGBA8888" (there is no "BGR888"), rows 76..79 and 84..91 name Bayer packings the engine does
// not know, rows 92..97 are the engine's 84..89, and rows 98 and 99 are null.
extern const std::array<const char*, 100> tav_com_format_names;

// Name of a host format code; null outside 0..99 and for the two empty rows.
const char* tav_com_formatName(int32_t code);
