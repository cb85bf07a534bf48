#include "common/usb_gun/unixsocket.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/scratch_root.h"

TEST(UnixSocket, ServerUnderTheRootAcceptsAClientAndReadsWithATimeout)
{
    testsupport::ScratchRoot root;
    const int server = unix_server_open("/tmp/UNIX2.domain.test");
    ASSERT_GT(server, 0);
    struct stat st{};
    ASSERT_EQ(stat(root.at("/tmp/UNIX2.domain.test").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777U);

    const int client = unix_client_open("/tmp/UNIX2.domain.test");
    ASSERT_GT(client, 0);
    const int conn = unix_server_accept(server);
    ASSERT_GT(conn, 0);
    char buf[8] = {};
    EXPECT_EQ(unix_socket_read(conn, buf, sizeof buf, 5), 0);  // nothing yet
    EXPECT_EQ(unix_socket_read(conn, nullptr, sizeof buf, 5), -1);
    ASSERT_EQ(unix_socket_write(client, "abc", 3), 3);
    EXPECT_EQ(unix_socket_read(conn, buf, sizeof buf, 100), 3);
    EXPECT_EQ(std::string(buf, 3), "abc");

    EXPECT_EQ(unix_client_open("/tmp/nobody.listens"), -2);
    EXPECT_EQ(unix_socket_close(0), 0);
    for (int fd : {conn, client, server})
        EXPECT_EQ(unix_socket_close(fd), 0);
}
