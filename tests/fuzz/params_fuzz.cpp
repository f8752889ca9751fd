// libFuzzer target for the parameter file: open, look-ups, hand-over to the engine's record.
// Build with -DTAVRIN_FUZZ=ON under clang (cmake/fuzz.cmake); run as
//   ./tavrin_params_fuzz -dict=../tests/fuzz/params.dict ../tests/fuzz/params_corpus
#include <stddef.h>
#include <stdint.h>

#include "tests/fuzz/params_fuzz_entry.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    TavrinFuzz_quietMxml();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    TavrinFuzz_params(data, size);
    return 0;
}
