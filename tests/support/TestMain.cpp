#include <gtest/gtest.h>

#include "DescriptorCheck.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Death tests re-run the test binary instead of forking a process that may
    // hold other threads' state; slower, but exact.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testsupport::installDescriptorLeakCheck();
    return RUN_ALL_TESTS();
}
