// The Android property store, found at run time.
//
// Each read looks up __system_property_get anew: first in "libc.so" through dlopen and dlsym
// (closed again after the read), then, where that library or symbol is missing, in the running
// process itself (dlsym(RTLD_DEFAULT, ...)), so that a host program exporting the symbol serves as
// the store. Nothing links against the symbol.
//
// Every read gives TAV_ERROR_PARAM for a null argument and TAV_ERROR_NOT_FOUND when no store
// exists (the value is then untouched). An unset property reads as empty text, which the number
// forms turn into 0.
#pragma once

#include <stdint.h>

// Bytes a property value may take, its terminating zero included (Android's PROP_VALUE_MAX).
static const int32_t TAVRIN_KELD_PROP_VALUE_MAX = 92;

// The signature of Android's reader: copies the value into value (room for
// TAVRIN_KELD_PROP_VALUE_MAX bytes) and returns its length.
typedef int (*tavrin_KELD_PropertyGetFn)(const char* name, char* value);

// The raw text into value, which must hold TAVRIN_KELD_PROP_VALUE_MAX bytes.
uint32_t TavrinKELD_Property_getText(const char* name, char* value);
uint32_t TavrinKELD_Property_getInt(const char* name, int32_t* value);    // atoi
uint32_t TavrinKELD_Property_getLong(const char* name, int64_t* value);   // atoll
uint32_t TavrinKELD_Property_getFloat(const char* name, float* value);    // atof
uint32_t TavrinKELD_Property_getDouble(const char* name, double* value);  // atof
