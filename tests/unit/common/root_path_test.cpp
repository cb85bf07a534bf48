#include "common/root_path.h"

#include "support/unit_common.h"

TEST(RootPath, PrefixedWithTheRootWhenSetAndCutNotOverrun)
{
    root_path_buf buf;
    const char* abs = "/var/mutli_config.sock";
    unsetenv("TACTORD_ROOT");
    EXPECT_EQ(resolve_path(abs, buf), abs);
    setenv("TACTORD_ROOT", "", 1);
    EXPECT_EQ(resolve_path(abs, buf), abs);

    setenv("TACTORD_ROOT", "/tmp/sandbox", 1);
    EXPECT_STREQ(resolve_path("/tmp/UNIX2.domain.scanner", buf), "/tmp/sandbox/tmp/UNIX2.domain.scanner");
    char small[12];
    std::memset(small, 'x', sizeof small);
    const char* out = resolve_path("/var/log/tactord.log", small, sizeof small - 2);
    EXPECT_EQ(std::strlen(out), sizeof small - 3);
    EXPECT_EQ(small[sizeof small - 1], 'x');
    unsetenv("TACTORD_ROOT");
}
