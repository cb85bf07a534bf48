// main() of every umockdev-backed test: re-runs the process under the umockdev
// preload (as umockdev-wrapper would) before GoogleTest starts, so that the
// testbeds the tests make, and the daemons they start, see the emulated /dev and /sys.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    // The preload is looked for in LD_PRELOAD: umockdev_in_mock_environment()
    // reports a testbed, which exists only once a test makes one.
    const char* old = std::getenv("LD_PRELOAD");
    if (old == nullptr || std::string(old).find("libumockdev-preload") == std::string::npos) {
        std::string preload = "libumockdev-preload.so.0";
        if (old != nullptr && *old != '\0')
            preload.append(":").append(old);
        setenv("LD_PRELOAD", preload.c_str(), 1);
        execv("/proc/self/exe", argv);
        std::perror("re-exec under umockdev preload");
        return 1;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
