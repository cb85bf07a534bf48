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
    // umockdev_in_mock_environment() only reports a testbed (UMOCKDEV_DIR),
    // which exists once a test makes one; the preload itself is what this
    // re-exec is about, so look for it in LD_PRELOAD to run exactly once.
    const char* old = std::getenv("LD_PRELOAD");
    const bool preloaded = old != nullptr && std::string(old).find("libumockdev-preload") != std::string::npos;
    if (!umockdev_in_mock_environment() && !preloaded) {
        std::string preload = "libumockdev-preload.so.0";
        if (old != nullptr && old[0] != '\0')
            preload = preload + ":" + old;
        setenv("LD_PRELOAD", preload.c_str(), 1);
        execv("/proc/self/exe", argv);
        std::perror("re-exec under umockdev preload");
        return 1;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
