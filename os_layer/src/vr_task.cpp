// Tasks on POSIX threads, recorded in a fixed table of VR_MAX_TASKS slots.
#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

#include "vr_os.h"

namespace {

// The platform shows at most 15 characters of a thread name.
constexpr std::size_t VR_TASK_NAME_MAX = 16;

struct vr_task_rec {
    bool in_use;
    std::array<char, VR_TASK_NAME_MAX> name;
    VR_TASK_ENTRY entry;
    void* arg;
};

std::mutex g_task_lock;  // guards g_tasks (slot allocation and release)
std::array<vr_task_rec, VR_MAX_TASKS> g_tasks{};

void* task_main(void* p)
{
    const auto slot = static_cast<int>(reinterpret_cast<intptr_t>(p));
    VR_TASK_ENTRY entry;
    void* arg;
    std::array<char, VR_TASK_NAME_MAX> name;
    {
        std::lock_guard<std::mutex> guard(g_task_lock);
        entry = g_tasks[slot].entry;
        arg = g_tasks[slot].arg;
        name = g_tasks[slot].name;
    }
    pthread_setname_np(pthread_self(), name.data());
    entry(arg);
    std::lock_guard<std::mutex> guard(g_task_lock);
    g_tasks[slot] = vr_task_rec{};
    return nullptr;
}

// Owns a thread attribute object for the length of one creation.
class thread_attr {
public:
    thread_attr() { ok_ = pthread_attr_init(&attr_) == 0; }
    ~thread_attr()
    {
        if (ok_)
            pthread_attr_destroy(&attr_);
    }
    thread_attr(const thread_attr&) = delete;
    thread_attr& operator=(const thread_attr&) = delete;
    bool ok() const { return ok_; }
    pthread_attr_t* get() { return &attr_; }

private:
    pthread_attr_t attr_{};
    bool ok_ = false;
};

std::size_t stack_bytes(uint32_t requested)
{
    const long page = sysconf(_SC_PAGESIZE);
    const std::size_t p = page > 0 ? static_cast<std::size_t>(page) : 4096;
    const std::size_t size = std::max<std::size_t>(requested, PTHREAD_STACK_MIN);
    return (size + p - 1) / p * p;
}

}  // namespace

// The priority is not applied: the layer's tasks run in the platform's normal
// scheduling class, whose threads share one priority.
int VR_CreateTask(VR_TASK_ID* id, const char* name, VR_TASK_ENTRY entry, void* arg,
                  uint32_t stack_size, int priority)
{
    (void)priority;
    if (entry == nullptr)
        return -1;

    int slot = -1;
    {
        std::lock_guard<std::mutex> guard(g_task_lock);
        for (int i = 0; i < VR_MAX_TASKS; ++i) {
            if (!g_tasks[i].in_use) {
                slot = i;
                break;
            }
        }
        if (slot < 0)
            return -1;
        vr_task_rec& rec = g_tasks[slot];
        rec = vr_task_rec{};
        rec.in_use = true;
        if (name != nullptr)
            std::strncpy(rec.name.data(), name, rec.name.size() - 1);
        rec.entry = entry;
        rec.arg = arg;
    }

    thread_attr attr;
    pthread_t thread;
    const bool started = attr.ok() &&
                         pthread_attr_setdetachstate(attr.get(), PTHREAD_CREATE_DETACHED) == 0 &&
                         pthread_attr_setstacksize(attr.get(), stack_bytes(stack_size)) == 0 &&
                         pthread_create(&thread, attr.get(), task_main,
                                        reinterpret_cast<void*>(static_cast<intptr_t>(slot))) == 0;
    if (!started) {
        std::lock_guard<std::mutex> guard(g_task_lock);
        g_tasks[slot] = vr_task_rec{};
        return -1;
    }
    if (id != nullptr)
        *id = slot;
    return 0;
}
