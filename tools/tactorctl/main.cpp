#include <csignal>
#include <string>
#include <vector>

#include "tactorctl/ctl.h"

int main(int argc, char** argv)
{
    // A daemon that closes the connection must not end the program silently.
    std::signal(SIGPIPE, SIG_IGN);
    tools::ctl_catch_interrupt();
    return tools::tactorctl_run(std::vector<std::string>(argv + 1, argv + argc), stdout, stderr);
}
