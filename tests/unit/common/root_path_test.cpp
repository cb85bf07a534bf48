#include "common/root_path.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <string>

namespace {

TEST(RootPath, ProductionPathStandsWhenRootUnsetOrEmpty)
{
    root_path_buf buf;
    unsetenv("TACTORD_ROOT");
    const char* abs = "/var/mutli_config.sock";
    EXPECT_EQ(resolve_path(abs, buf), abs);
    setenv("TACTORD_ROOT", "", 1);
    EXPECT_EQ(resolve_path(abs, buf), abs);
    unsetenv("TACTORD_ROOT");
}

TEST(RootPath, PathIsPrefixedWithRoot)
{
    root_path_buf buf;
    setenv("TACTORD_ROOT", "/tmp/sandbox", 1);
    EXPECT_STREQ(resolve_path("/tmp/UNIX2.domain.scanner", buf), "/tmp/sandbox/tmp/UNIX2.domain.scanner");
    unsetenv("TACTORD_ROOT");
}

TEST(RootPath, OverlongResultIsCutNotOverrun)
{
    char small[12];
    std::memset(small, 'x', sizeof small);
    setenv("TACTORD_ROOT", "/a/very/long/root", 1);
    const char* out = resolve_path("/var/log/tactord.log", small, sizeof small - 2);
    EXPECT_EQ(std::strlen(out), sizeof small - 3);
    EXPECT_EQ(small[sizeof small - 1], 'x');
    unsetenv("TACTORD_ROOT");
}

}  // namespace
