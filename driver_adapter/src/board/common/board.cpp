#include "board/common/board.h"

#include <atomic>

#include "common/send_log.h"
#include "func/device/drv_device.h"

namespace {
std::atomic<VR_NAMED_SEM> g_ec_init_sem{nullptr};
}  // namespace

VR_NAMED_SEM ec_init_sem()
{
    return g_ec_init_sem.load(std::memory_order_acquire);
}

int InitDriverAdapter(board_id_t id)
{
    (void)id;
    static std::atomic<bool> IsInit{false};
    if (IsInit.load(std::memory_order_acquire))
        return 1;

    send_log(DRV_LOG_INFO, "%s:%d:%s(): DriverAdpter Initiated!\n", DRV_POS);

    // A call repeating a failed board set-up keeps the handle it already has
    // instead of opening the semaphore once more.
    if (g_ec_init_sem.load(std::memory_order_acquire) == nullptr) {
        VR_NAMED_SEM sem = VR_NamedSemOpen(SEM_NAME_EC_INIT, 1);
        if (sem == nullptr) {
            send_log(DRV_LOG_ERR,
                     "%s:%d:%s(): Create named semaphore SEM_NAME_EC_INIT FAILED!\r\n", DRV_POS);
            return -1;
        }
        g_ec_init_sem.store(sem, std::memory_order_release);
    }

    InitGpioAdapters();
    InitSoundAdapters();
    InitRtcAdapters();
    InitScreenAdapters();
    InitKeyBoardAdapters();
    InitSystemAdapters();
    InitPowerManageAdapters();
    InitFlashAdapters();
    InitMachConfAdapters();
    InitUartAdapters();
    InitLedAdapters();
    InitEepromAdapters();
    InitSensorAdapters();
    InitPowerBoardAdapters();
    InitScreenAdapters();  // registered a second time at this place, as always
    InitUSBAdapters();
    InitLedAlarmAdapters();
    InitDockEepromAdapters();

    const int rc = DrvBoardSetup();
    if (rc == 1)
        IsInit.store(true, std::memory_order_release);
    return rc;
}
