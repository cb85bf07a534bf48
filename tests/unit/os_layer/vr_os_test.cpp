// The OS layer's operations that the daemon and the adapter call: start-up, named semaphores, tasks.
#include "vr_os.h"

#include "support/adapter.h"

TEST(VrSysInit, KeepsTheMemoryConfigurationTheApplicationHooksGive)
{
    UserDefinedMemManagerConfig kept{};
    EXPECT_FALSE(VR_GetMemManagerConfig(&kept));
    ASSERT_EQ(VR_SysInit(), 0);
    ASSERT_TRUE(VR_GetMemManagerConfig(&kept));
    // Fields the application leaves alone keep the layer's defaults; the heap size is asked apart.
    EXPECT_TRUE(kept.m_maxHoles == VR_DEFAULT_MAX_HOLES && kept.m_fragmentMinSize == VR_DEFAULT_FRAGMENT_MIN_SIZE);
    EXPECT_TRUE(VR_GetHeapSize() == GetHeapSize() && VR_GetHeapSize() != kept.m_heapSize);
    EXPECT_EQ(VR_SysInit(), 0);
}

TEST(VrNamedSem, CountsFromTheInitialValueAndIsSharedByName)
{
    const std::string name = "tactord_vr_test_" + std::to_string(getpid());
    VR_NAMED_SEM a = VR_NamedSemOpen(name.c_str(), 2);
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(sem_trywait(a) == 0 && sem_trywait(a) == 0 && sem_trywait(a) == -1 && errno == EAGAIN);
    // Opened again, with a leading '/' or not, it is the same semaphore, its count kept.
    VR_NAMED_SEM b = VR_NamedSemOpen(("/" + name).c_str(), 5);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(sem_trywait(b), -1);
    ASSERT_EQ(sem_post(a), 0);
    EXPECT_EQ(sem_trywait(b), 0);
    sem_unlink(("/" + name).c_str());
}

// Tasks never end, so the table stays full; the first records its thread's name and stack size.
std::latch& g_started = *new std::latch(VR_MAX_TASKS);  // outlives the tasks
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
    for (;;)
        pause();
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
}
