// The layer's millisecond clock.
#include <ctime>

#include "vr_os.h"

int GetTimeStamp(uint64_t* out)
{
    if (out == nullptr)
        return -1;
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    *out = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return 0;
}
