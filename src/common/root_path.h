// Resolution of the daemon's absolute non-device paths (sockets, logs, /tmp
// and /proc files) under $TACTORD_ROOT, so that a test or a development run
// can keep them in a scratch directory. Device and sysfs paths are not passed
// through here.
#pragma once

#include <array>
#include <cstddef>

inline constexpr std::size_t ROOT_PATH_MAX = 256;
using root_path_buf = std::array<char, ROOT_PATH_MAX>;

// Writes "$TACTORD_ROOT" + abs_path into out and returns out.data(); with the
// variable unset or empty, returns abs_path itself (out is left alone). A
// result that would not fit is cut to the buffer (never overrun).
const char* resolve_path(const char* abs_path, char* out, std::size_t out_len);

inline const char* resolve_path(const char* abs_path, root_path_buf& out)
{
    return resolve_path(abs_path, out.data(), out.size());
}
