// Test seams of the IMC stack's platform services.
#pragma once

#include <cstddef>
#include <cstdint>

// Replaces the clock the stack reads (same contract as GetTimeStamp); null
// restores GetTimeStamp.
using imc_clock_fn = int (*)(uint64_t* now_ms);
void IMC_Platform_Set_Clock(imc_clock_fn clock);

// Replaces the allocator behind IMC_Platform_Calloc and IMC_Platform_Free
// (same contracts as calloc and free); nulls restore calloc and free.
using imc_calloc_fn = void* (*)(std::size_t count, std::size_t size);
using imc_free_fn = void (*)(void* p);
void IMC_Platform_Set_Allocator(imc_calloc_fn alloc, imc_free_fn release);
