// Layer start-up. Kept in its own file: it is the only part of the layer that
// calls back into the application, so programs that use just the semaphores
// or tasks do not need the application's hooks.
#include <mutex>

#include "vr_os.h"

namespace {

std::mutex g_sys_lock;  // guards every g_sys_* below
bool g_sys_started = false;
int g_sys_result = -1;
UserDefinedMemManagerConfig g_sys_cfg{};
uint32_t g_sys_heap_size = 0;

void report(const UserDefinedMemManagerConfig& cfg, MemErrorType type, const char* info)
{
    if (cfg.m_reportMemErrorFuncPtr != nullptr)
        cfg.m_reportMemErrorFuncPtr(type, info);
}

}  // namespace

int VR_SysInit()
{
    std::lock_guard<std::mutex> guard(g_sys_lock);
    if (g_sys_started)
        return g_sys_result;
    g_sys_started = true;

    UserDefinedMemManagerConfig cfg{};
    cfg.m_maxHoles = VR_DEFAULT_MAX_HOLES;
    cfg.m_fragmentMinSize = VR_DEFAULT_FRAGMENT_MIN_SIZE;
    GetUserDefinedMemManagerConfig(&cfg);
    const uint32_t heap_size = GetHeapSize();

    if (cfg.m_memManageAlgorithm > MemManageAlgorithm_Tlsf) {
        report(cfg, kMemErrorTypeInitError1, "unknown memory manage algorithm");
        return g_sys_result = -1;
    }
    if (cfg.m_heapSize == 0 || heap_size == 0) {
        report(cfg, kMemErrorTypeInitError2, "heap size is 0");
        return g_sys_result = -1;
    }
    g_sys_cfg = cfg;
    g_sys_heap_size = heap_size;
    return g_sys_result = 0;
}

bool VR_GetMemManagerConfig(UserDefinedMemManagerConfig* out)
{
    std::lock_guard<std::mutex> guard(g_sys_lock);
    if (out == nullptr || g_sys_result != 0)
        return false;
    *out = g_sys_cfg;
    return true;
}

uint32_t VR_GetHeapSize()
{
    std::lock_guard<std::mutex> guard(g_sys_lock);
    return g_sys_result == 0 ? g_sys_heap_size : 0;
}
