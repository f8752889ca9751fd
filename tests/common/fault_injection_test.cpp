// The pool fails an allocation on request only in builds with TAVRIN_FAULT_INJECTION; the
// out-of-memory tests are compiled only there. This test says so once in other builds, so a
// green run without the option cannot be mistaken for one that walked every allocation.
#include <gtest/gtest.h>

#ifndef TAVRIN_FAULT_INJECTION
TEST(FaultInjection, OutOfMemoryTestsNeedTheBuildOption) {
    GTEST_SKIP() << "out-of-memory tests are not built: configure with -DTAVRIN_FAULT_INJECTION=ON";
}
#endif
