#include "common/imc_protocol/platform.h"

#include <atomic>
#include <cstdlib>

#include "common/imc_protocol/platform_internal.h"
#include "vr_os.h"

namespace {

void* system_calloc(std::size_t count, std::size_t size)
{
    return std::calloc(count, size);
}

void system_free(void* p)
{
    std::free(p);
}

std::atomic<imc_clock_fn> g_clock{GetTimeStamp};
std::atomic<imc_calloc_fn> g_calloc{system_calloc};
std::atomic<imc_free_fn> g_free{system_free};

}  // namespace

void IMC_Platform_Set_Clock(imc_clock_fn clock)
{
    g_clock.store(clock != nullptr ? clock : GetTimeStamp, std::memory_order_relaxed);
}

void IMC_Platform_Set_Allocator(imc_calloc_fn alloc, imc_free_fn release)
{
    g_calloc.store(alloc != nullptr ? alloc : system_calloc, std::memory_order_relaxed);
    g_free.store(release != nullptr ? release : system_free, std::memory_order_relaxed);
}

void* IMC_Platform_Calloc(std::size_t count, std::size_t size)
{
    if (count == 0 || size == 0)
        return nullptr;
    return g_calloc.load(std::memory_order_relaxed)(count, size);
}

void IMC_Platform_Free(void* p)
{
    if (p != nullptr)
        g_free.load(std::memory_order_relaxed)(p);
}

int IMC_Platform_Time(uint64_t* now_ms)
{
    return g_clock.load(std::memory_order_relaxed)(now_ms);
}
