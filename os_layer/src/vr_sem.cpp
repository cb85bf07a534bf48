// Named semaphores on the platform's POSIX named semaphores.
#include <fcntl.h>
#include <semaphore.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "vr_os.h"

namespace {
// Names are "/" + up to 250 characters (NAME_MAX less the "sem." prefix the
// platform adds), with no further '/'.
constexpr std::size_t VR_SEM_NAME_MAX = 251;
}  // namespace

VR_NAMED_SEM VR_NamedSemOpen(const char* name, uint32_t initial_count)
{
    if (name == nullptr)
        return nullptr;
    if (name[0] == '/')
        ++name;
    if (name[0] == '\0' || std::strchr(name, '/') != nullptr)
        return nullptr;

    std::array<char, VR_SEM_NAME_MAX + 1> full{};
    const int n = std::snprintf(full.data(), full.size(), "/%s", name);
    if (n < 0 || static_cast<std::size_t>(n) >= full.size())
        return nullptr;

    sem_t* sem = sem_open(full.data(), O_CREAT, 0666, initial_count);
    return sem == SEM_FAILED ? nullptr : sem;
}
