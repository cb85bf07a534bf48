// main() of every umockdev-backed test: makes sure the process runs under the
// umockdev preload (as umockdev-wrapper would) before GoogleTest starts, so
// that testbeds created by the tests, and daemons they start, see the emulated
// /dev and /sys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <umockdev.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    if (!umockdev_in_mock_environment()) {
        std::string preload = "libumockdev-preload.so.0";
        if (const char* old = std::getenv("LD_PRELOAD"); old != nullptr && old[0] != '\0')
            preload = preload + ":" + old;
        setenv("LD_PRELOAD", preload.c_str(), 1);
        execv("/proc/self/exe", argv);
        std::perror("re-exec under umockdev preload");
        return 1;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
