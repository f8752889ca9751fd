// INTERIM, to be deleted when the engine publishes its main loop, tav_sr2_process. Until then it
// is a weak reference, null when no object defines it, and the process driver treats it as a
// failed engine call.
//
// A weak reference does not pull an archive member into a link: once the engine declares the
// function, remove this header, include the engine's, and drop engineProcess in
// src/instance_process.cpp.
#pragma once

#include <stdint.h>

#include "engine/engine.h"
#include "src/tavrin_keld.h"

__attribute__((weak)) uint32_t tav_sr2_process(tav_sr2_Engine** handle,
                                               const tavrin_KELD_Image* output);
