// Vrenn OS layer: start-up, named semaphores, tasks and the millisecond clock.
#pragma once

#include <semaphore.h>

#include <cstdint>

#include "vr_memmanager.h"

// Starts the layer once per process: asks the application for its memory
// configuration (GetUserDefinedMemManagerConfig, GetHeapSize) and keeps it for
// the layer's services. Returns 0, or -1 when the configuration is unusable
// (the application's error reporter, if any, is told why). Later calls return
// the first call's result without asking again.
int VR_SysInit();

// What VR_SysInit took from the application. Both return false / 0 before a
// successful VR_SysInit.
bool VR_GetMemManagerConfig(UserDefinedMemManagerConfig* out);
uint32_t VR_GetHeapSize();

// Defaults the layer puts into the record before the application fills it;
// the application may leave these two fields alone.
inline constexpr uint32_t VR_DEFAULT_MAX_HOLES = 1024;
inline constexpr uint32_t VR_DEFAULT_FRAGMENT_MIN_SIZE = 16;

// Named, process-shared counting semaphore. An existing semaphore of that name
// is opened as it is (its count is not reset); otherwise it is created with
// initial_count. The name may be given with or without its leading '/'.
// Returns null on failure. The semaphore stays open for the process's life.
using VR_NAMED_SEM = sem_t*;
VR_NAMED_SEM VR_NamedSemOpen(const char* name, uint32_t initial_count);

// Starts a detached thread running entry(arg). The name is what the system
// shows for the thread (cut to the platform's 15 characters); stack_size is
// in bytes (raised to the platform minimum when smaller). Returns 0 and the
// task's id in *id (may be null), or -1.
using VR_TASK_ENTRY = void (*)(void* arg);
using VR_TASK_ID = int;
inline constexpr int VR_MAX_TASKS = 32;
int VR_CreateTask(VR_TASK_ID* id, const char* name, VR_TASK_ENTRY entry, void* arg,
                  uint32_t stack_size, int priority);

// The layer's 64-bit millisecond clock: monotonic (never set back with the
// wall time), counted from an arbitrary point such as the system's boot.
// Returns 0, or -1 for a null out.
int GetTimeStamp(uint64_t* out);
