/* Tavrin KELD: multi-frame super-resolution for phone cameras. The public C interface.
 *
 * A host makes one instance per zoomed capture, feeds it a burst of frames and face rectangles,
 * runs it once and frees it. Every function but TavrinKELD_getVersion returns a status whose low
 * 32 bits count; every failure has bit 31 set. */
#ifndef TAVRIN_KELD_H
#define TAVRIN_KELD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define TAVRIN_KELD_EXPORT __attribute__((visibility("default")))
#else
#define TAVRIN_KELD_EXPORT
#endif

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

/* The library's version text. Needs no instance. */
TAVRIN_KELD_EXPORT const char* TavrinKELD_getVersion(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVRIN_KELD_H */
