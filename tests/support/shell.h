// Shell commands run by tests (installs, tools, a daemon run to its end).
#pragma once

#include <string>
#include <utility>

namespace testsupport {

// Output (both streams) and exit status of command run by /bin/sh; status
// -1 when it did not exit normally.
std::pair<std::string, int> run_command(const std::string& command);

}  // namespace testsupport
