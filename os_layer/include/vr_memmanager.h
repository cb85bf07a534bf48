// Memory-manager configuration the Vrenn OS layer asks of the application.
// The application defines GetUserDefinedMemManagerConfig, GetHeapSize and
// DumpCorruptedMem; the layer calls them from VR_SysInit.
#pragma once

#include <cstddef>
#include <cstdint>

enum MemManageAlgorithm : uint8_t {
    MemManageAlgorithm_Buddy = 0,
    MemManageAlgorithm_Holes = 1,
    MemManageAlgorithm_CRuntime = 2,
    MemManageAlgorithm_Tlsf = 3,
};

enum MemErrorType : int {
    kMemErrorTypeSizeError = 0,
    kMemErrorTypeNotEnoughSpace = 1,
    kMemErrorTypePointerError = 2,
    kMemErrorTypePadError = 3,
    kMemErrorTypeNotEnoughFreeHole = 4,
    kMemErrorTypeInitError1 = 5,
    kMemErrorTypeInitError2 = 6,
    kMemErrorTypeInitError3 = 7,
    kMemErrorTypeInitError4 = 8,
    kMemErrorTypeInitError5 = 9,
};

using UserDefinedMallocFuncPtr = void* (*)(std::size_t size);
using ReportMemErrorFuncPtr = void (*)(MemErrorType type, const char* info);

struct UserDefinedMemManagerConfig {
    UserDefinedMallocFuncPtr m_initMallocFuncPtr;
    MemManageAlgorithm m_memManageAlgorithm;
    uint8_t m_initializememory;
    uint8_t m_uninitializememory;
    uint8_t m_record_alloc_memory_info;
    ReportMemErrorFuncPtr m_reportMemErrorFuncPtr;
    uint32_t m_heapSize;
    uint32_t m_maxHoles;
    uint32_t m_fragmentMinSize;
};

// Application hooks.
void GetUserDefinedMemManagerConfig(UserDefinedMemManagerConfig* cfg);
uint32_t GetHeapSize();
void DumpCorruptedMem(char* info);
