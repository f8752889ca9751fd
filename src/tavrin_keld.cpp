// The exported functions of the shared library: thin shells that check their arguments and call
// the instance layer.
#include "src/tavrin_keld.h"

#include "src/version.h"

extern "C" TAVRIN_KELD_EXPORT const char* TavrinKELD_getVersion(void) { return TAVRIN_KELD_VERSION; }
