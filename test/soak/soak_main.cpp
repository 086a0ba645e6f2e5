// soak_tests: the tests, or, started with --soak-client, one client process
// of theirs (soak_util.h).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "soak_util.h"

int main(int argc, char** argv)
{
    if (argc > 1 && strcmp(argv[1], DeviceDetectSoak::CLIENT_ROLE_FLAG) == 0) {
        int code = DeviceDetectSoak::RunClient(argc, argv);
        fflush(nullptr);
        // The IPC threads are still running: skip the static destructors.
        _exit(code);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
