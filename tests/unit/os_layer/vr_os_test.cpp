// The operations of the OS layer the adapter calls: start-up, named
// semaphores, tasks and the millisecond clock.
#include "vr_os.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <latch>
#include <string>

namespace {

TEST(VrSysInit, KeepsTheMemoryConfigurationTheApplicationHooksGive)
{
    UserDefinedMemManagerConfig kept{};
    EXPECT_FALSE(VR_GetMemManagerConfig(&kept));
    EXPECT_EQ(VR_GetHeapSize(), 0u);
    ASSERT_EQ(VR_SysInit(), 0);
    ASSERT_TRUE(VR_GetMemManagerConfig(&kept));
    EXPECT_TRUE(kept.m_record_alloc_memory_info == 1 && kept.m_heapSize == 0x2000000u);
    // Fields the application leaves alone keep the layer's defaults.
    EXPECT_TRUE(kept.m_maxHoles == VR_DEFAULT_MAX_HOLES && kept.m_fragmentMinSize == VR_DEFAULT_FRAGMENT_MIN_SIZE);
    // The heap size is asked separately and is not the configuration's.
    EXPECT_TRUE(VR_GetHeapSize() == GetHeapSize() && VR_GetHeapSize() != kept.m_heapSize);
    EXPECT_EQ(VR_SysInit(), 0);
}

TEST(VrNamedSem, CountsFromTheInitialValueAndIsSharedByName)
{
    const std::string name = "tactord_vr_test_" + std::to_string(getpid());
    VR_NAMED_SEM a = VR_NamedSemOpen(name.c_str(), 2);
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(sem_trywait(a) == 0 && sem_trywait(a) == 0);
    EXPECT_TRUE(sem_trywait(a) == -1 && errno == EAGAIN);
    // Opened again (leading '/' or not) it is the same semaphore, its count
    // untouched by the new initial value.
    VR_NAMED_SEM b = VR_NamedSemOpen(("/" + name).c_str(), 5);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(sem_trywait(b), -1);
    ASSERT_EQ(sem_post(a), 0);
    EXPECT_EQ(sem_trywait(b), 0);
    sem_unlink(("/" + name).c_str());
}

// Tasks hold on until released, so that the table stays full while the test
// looks; the first records its thread's name and stack size. The latches
// outlive the tasks, which go on after the test.
std::latch& g_started = *new std::latch(VR_MAX_TASKS);
std::latch& g_release = *new std::latch(1);
std::string g_name;
size_t g_stack = 0;

void probe_task(void* first)
{
    if (first != nullptr) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        g_name = name;
        pthread_attr_t attr;
        if (pthread_getattr_np(pthread_self(), &attr) == 0) {
            pthread_attr_getstacksize(&attr, &g_stack);
            pthread_attr_destroy(&attr);
        }
    }
    g_started.count_down();
    g_release.wait();
}

TEST(VrCreateTask, RunsTasksOnNamedThreadsWithTheRequestedStackUpToTheTableSize)
{
    EXPECT_EQ(VR_CreateTask(nullptr, "none", nullptr, nullptr, 65536, 1), -1);
    VR_TASK_ID id = -1;
    ASSERT_EQ(VR_CreateTask(&id, "touchscreen process", probe_task, &id, 102400, 15), 0);
    EXPECT_GE(id, 0);
    for (int i = 1; i < VR_MAX_TASKS; ++i)
        ASSERT_EQ(VR_CreateTask(nullptr, "filler", probe_task, nullptr, 0, 1), 0) << i;
    EXPECT_EQ(VR_CreateTask(nullptr, "one too many", probe_task, nullptr, 0, 1), -1);
    g_started.wait();
    EXPECT_EQ(g_name, "touchscreen pro");  // the platform keeps 15 characters
    EXPECT_GE(g_stack, 102400u);
    g_release.count_down();
}

TEST(VrGetTimeStamp, CountsMillisecondsOfTheMonotonicClock)
{
    uint64_t before = 0, after = 0;
    timespec mono{};
    ASSERT_EQ(GetTimeStamp(&before), 0);
    clock_gettime(CLOCK_MONOTONIC, &mono);
    ASSERT_EQ(GetTimeStamp(&after), 0);
    const uint64_t ms = static_cast<uint64_t>(mono.tv_sec) * 1000 + static_cast<uint64_t>(mono.tv_nsec) / 1000000;
    EXPECT_TRUE(before <= ms && ms <= after);
}

}  // namespace
