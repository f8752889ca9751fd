// Status words of the whole system. Every failure has the top bit set; results of parallel jobs
// combine by bitwise OR, so a caller tests a combined word with `status & 0x80000000`.
#pragma once

#include <stdint.h>

// The public header publishes the same words; whichever comes first defines them.
#ifndef TAVRIN_STATUS_WORDS
#define TAVRIN_STATUS_WORDS
static const uint32_t TAV_OK = 0x00000000u;
static const uint32_t TAV_ERROR_GENERIC = 0x80000000u;
static const uint32_t TAV_ERROR_PARAM = 0x80000001u;
static const uint32_t TAV_ERROR_STATE = 0x80000002u;
static const uint32_t TAV_ERROR_MALLOC = 0x80000004u;
static const uint32_t TAV_ERROR_IO = 0x80000008u;
static const uint32_t TAV_ERROR_UNSUPPORTED = 0x80000010u;
static const uint32_t TAV_ERROR_NOT_FOUND = 0x80000020u;
static const uint32_t TAV_ERROR_MAGIC = 0x80000040u;
static const uint32_t TAV_ERROR_TIMEOUT = 0x80000080u;
static const uint32_t TAV_ERROR_BUFFER = 0xC0000000u;
#endif

static inline bool tav_sr2_failed(uint32_t status) { return (status & 0x80000000u) != 0; }
