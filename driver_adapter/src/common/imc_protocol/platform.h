// The operating-system services the IMC stack is built on: its allocator and
// its millisecond clock.
#pragma once

#include <cstddef>
#include <cstdint>

// count x size zeroed bytes, or null (also when the product overflows).
void* IMC_Platform_Calloc(std::size_t count, std::size_t size);
void IMC_Platform_Free(void* p);

// The stack's clock in milliseconds (the OS layer's GetTimeStamp). 0, or a
// non-zero value when the clock cannot be read.
int IMC_Platform_Time(uint64_t* now_ms);
