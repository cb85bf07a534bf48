#include "common/root_path.h"

#include <cstdio>
#include <cstdlib>

const char* resolve_path(const char* abs_path, char* out, std::size_t out_len)
{
    const char* root = std::getenv("TACTORD_ROOT");
    if (abs_path == nullptr || root == nullptr || root[0] == '\0' || out == nullptr || out_len == 0)
        return abs_path;
    std::snprintf(out, out_len, "%s%s", root, abs_path);
    return out;
}
