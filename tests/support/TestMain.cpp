// The main function of the test programs that use the host's modules: it does what a host does at
// start before any component exists (name the user-interface thread, register the host classes
// that components create), then runs the tests.
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GetRunLoop()->attachToCurrentThread() != KVX::kResultOk || RegisterWebServiceClasses() != KVX::kResultOk)
    {
        std::fprintf(stderr, "test main: the host's start-up failed\n");
        return 1;
    }
    return RUN_ALL_TESTS();
}
