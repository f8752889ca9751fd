// Property reads through whatever __system_property_get the process can find.
//
// getText: finds the reader (libc.so first, then the running process), lets it fill a buffer of
//   TAVRIN_KELD_PROP_VALUE_MAX bytes and copies that into the caller's buffer. The library handle
//   of the first route stays open only for the length of the read.
// getInt, getLong, getFloat, getDouble: getText, then atoi, atoll or atof.
// All: TAV_ERROR_PARAM for a null name or value, TAV_ERROR_NOT_FOUND without a reader.
#include "src/property_service.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "foundation/status.h"

namespace {

constexpr char kLibc[] = "libc.so";
constexpr char kReaderSymbol[] = "__system_property_get";

// Reads name through the reader of "libc.so"; false when the library or the symbol is missing.
bool readThroughLibc(const char* name, char* value) {
    void* libc = dlopen(kLibc, RTLD_NOW | RTLD_LOCAL);
    if (!libc) return false;
    auto reader = reinterpret_cast<tavrin_KELD_PropertyGetFn>(dlsym(libc, kReaderSymbol));
    if (reader) reader(name, value);
    dlclose(libc);
    return reader != nullptr;
}

// The host route: a reader exported by the program that loaded us.
bool readThroughProcess(const char* name, char* value) {
    auto reader = reinterpret_cast<tavrin_KELD_PropertyGetFn>(dlsym(RTLD_DEFAULT, kReaderSymbol));
    if (!reader) return false;
    reader(name, value);
    return true;
}

// The value as text in a buffer of the reader's size, terminated even if the reader is not.
uint32_t readRaw(const char* name, char (&raw)[TAVRIN_KELD_PROP_VALUE_MAX]) {
    memset(raw, 0, sizeof raw);
    if (!readThroughLibc(name, raw) && !readThroughProcess(name, raw)) return TAV_ERROR_NOT_FOUND;
    raw[TAVRIN_KELD_PROP_VALUE_MAX - 1] = '\0';
    return TAV_OK;
}

}  // namespace

uint32_t TavrinKELD_Property_getText(const char* name, char* value) {
    if (!name || !value) return TAV_ERROR_PARAM;
    char raw[TAVRIN_KELD_PROP_VALUE_MAX];
    uint32_t status = readRaw(name, raw);
    if (status == TAV_OK) memcpy(value, raw, sizeof raw);
    return status;
}

uint32_t TavrinKELD_Property_getInt(const char* name, int32_t* value) {
    if (!name || !value) return TAV_ERROR_PARAM;
    char raw[TAVRIN_KELD_PROP_VALUE_MAX];
    uint32_t status = readRaw(name, raw);
    if (status == TAV_OK) *value = atoi(raw);
    return status;
}

uint32_t TavrinKELD_Property_getLong(const char* name, int64_t* value) {
    if (!name || !value) return TAV_ERROR_PARAM;
    char raw[TAVRIN_KELD_PROP_VALUE_MAX];
    uint32_t status = readRaw(name, raw);
    if (status == TAV_OK) *value = atoll(raw);
    return status;
}

uint32_t TavrinKELD_Property_getFloat(const char* name, float* value) {
    if (!name || !value) return TAV_ERROR_PARAM;
    char raw[TAVRIN_KELD_PROP_VALUE_MAX];
    uint32_t status = readRaw(name, raw);
    if (status == TAV_OK) *value = static_cast<float>(atof(raw));
    return status;
}

uint32_t TavrinKELD_Property_getDouble(const char* name, double* value) {
    if (!name || !value) return TAV_ERROR_PARAM;
    char raw[TAVRIN_KELD_PROP_VALUE_MAX];
    uint32_t status = readRaw(name, raw);
    if (status == TAV_OK) *value = atof(raw);
    return status;
}
