// Programs run by tests: shell commands run to their end (installs, a daemon's one-shot run), and programs
// started with their output in files, to be read while they run (the tools).
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "support/scratch_root.h"

namespace testsupport {

// Output (both streams) and exit status of command run by /bin/sh; status -1 when it did not exit normally.
inline std::pair<std::string, int> run_command(const std::string& command)
{
    std::string out;
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    char buf[512];
    while (p != nullptr && std::fgets(buf, sizeof buf, p) != nullptr)
        out += buf;
    const int status = p != nullptr ? pclose(p) : -1;
    return {out, status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

struct ProgramRun {
    int status;  // -1 when it did not exit normally
    std::string out, err;
};

// Starts argv[0] with its standard output in output + ".out" and its error in output + ".err", both emptied
// before it starts so that a wait for their text never sees an earlier run's.
inline pid_t start_program(std::vector<std::string> argv, const std::string& output)
{
    std::vector<char*> args;
    for (std::string& a : argv)
        args.push_back(a.data());
    args.push_back(nullptr);
    const int out = open((output + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const int err = open((output + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    close(out);
    close(err);
    return pid;
}

// Waits for the program start_program started and reads what it wrote.
inline ProgramRun finish_program(pid_t pid, const std::string& output)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(output + ".out"), read_file(output + ".err")};
}

}  // namespace testsupport
