#include "vr_os.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <condition_variable>
#include <mutex>
#include <string>

namespace {

TEST(VrSysInit, KeepsTheMemoryConfigurationTheApplicationHooksGive)
{
    UserDefinedMemManagerConfig kept{};
    EXPECT_FALSE(VR_GetMemManagerConfig(&kept));
    EXPECT_EQ(VR_GetHeapSize(), 0u);

    ASSERT_EQ(VR_SysInit(), 0);
    ASSERT_TRUE(VR_GetMemManagerConfig(&kept));
    EXPECT_EQ(kept.m_record_alloc_memory_info, 1);
    EXPECT_EQ(kept.m_heapSize, 0x2000000u);
    // Fields the application leaves alone keep the layer's defaults.
    EXPECT_EQ(kept.m_maxHoles, VR_DEFAULT_MAX_HOLES);
    EXPECT_EQ(kept.m_fragmentMinSize, VR_DEFAULT_FRAGMENT_MIN_SIZE);
    // The heap size is asked separately and is not the configuration's.
    EXPECT_EQ(VR_GetHeapSize(), GetHeapSize());
    EXPECT_NE(VR_GetHeapSize(), kept.m_heapSize);
    EXPECT_EQ(VR_SysInit(), 0);
}

class VrNamedSem : public testing::Test {
protected:
    std::string name_ = "tactord_vr_test_" + std::to_string(getpid());
    void TearDown() override { sem_unlink(("/" + name_).c_str()); }
};

TEST_F(VrNamedSem, CountsFromTheInitialValueAndIsSharedByName)
{
    VR_NAMED_SEM a = VR_NamedSemOpen(name_.c_str(), 2);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(sem_trywait(a), 0);
    EXPECT_EQ(sem_trywait(a), 0);
    EXPECT_EQ(sem_trywait(a), -1);
    EXPECT_EQ(errno, EAGAIN);

    // Opening it again (leading '/' or not) gets the same semaphore, its
    // count untouched by the new initial value.
    VR_NAMED_SEM b = VR_NamedSemOpen(("/" + name_).c_str(), 5);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(sem_trywait(b), -1);
    ASSERT_EQ(sem_post(a), 0);
    EXPECT_EQ(sem_trywait(b), 0);
}

// Task bodies report where they run and wait to be released, so that the
// table stays full while the test looks.
struct task_probe {
    std::mutex lock;  // guards every field below
    std::condition_variable cv;
    int started = 0;
    int finished = 0;
    bool release = false;
    std::string name;
    size_t stack = 0;

    void wait_started(int n)
    {
        std::unique_lock<std::mutex> guard(lock);
        cv.wait(guard, [&] { return started == n; });
    }
};

void probe_entry(void* arg)
{
    auto* p = static_cast<task_probe*>(arg);
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    pthread_attr_t attr;
    size_t stack = 0;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        pthread_attr_getstacksize(&attr, &stack);
        pthread_attr_destroy(&attr);
    }
    std::unique_lock<std::mutex> guard(p->lock);
    if (p->started++ == 0) {
        p->name = name;
        p->stack = stack;
    }
    p->cv.notify_all();
    p->cv.wait(guard, [p] { return p->release; });
    ++p->finished;
    p->cv.notify_all();
}

TEST(VrCreateTask, RunsTasksOnNamedThreadsWithTheRequestedStackUpToTheTableSize)
{
    EXPECT_EQ(VR_CreateTask(nullptr, "none", nullptr, nullptr, 65536, 1), -1);

    task_probe probe;
    VR_TASK_ID id = -1;
    ASSERT_EQ(VR_CreateTask(&id, "touchscreen process", probe_entry, &probe, 102400, 15), 0);
    EXPECT_GE(id, 0);
    probe.wait_started(1);  // the first task's name and stack are recorded
    for (int i = 1; i < VR_MAX_TASKS; ++i)
        ASSERT_EQ(VR_CreateTask(nullptr, "filler", probe_entry, &probe, 0, 1), 0) << i;
    EXPECT_EQ(VR_CreateTask(nullptr, "one too many", probe_entry, &probe, 0, 1), -1);
    probe.wait_started(VR_MAX_TASKS);

    std::unique_lock<std::mutex> guard(probe.lock);
    EXPECT_EQ(probe.name, "touchscreen pro");  // the platform keeps 15 characters
    EXPECT_GE(probe.stack, 102400u);
    probe.release = true;
    probe.cv.notify_all();
    probe.cv.wait(guard, [&] { return probe.finished == probe.started; });
}

TEST(VrGetTimeStamp, CountsMillisecondsOfTheMonotonicClock)
{
    uint64_t before = 0;
    uint64_t after = 0;
    timespec mono{};
    ASSERT_EQ(GetTimeStamp(&before), 0);
    clock_gettime(CLOCK_MONOTONIC, &mono);
    ASSERT_EQ(GetTimeStamp(&after), 0);
    const uint64_t ms = static_cast<uint64_t>(mono.tv_sec) * 1000 + static_cast<uint64_t>(mono.tv_nsec) / 1000000;
    EXPECT_TRUE(before <= ms && ms <= after);
}

}  // namespace
