#include "common/usb_gun/usbkbd_scanner.h"

#include "common/usb_gun/usbkbd_scanner_internal.h"
#include "support/unit_common.h"

// Per step: the event declared or withdrawn, then the declared event of each slot (0: free).
TEST(WedgeScannerSlots, DeclarationsFillFourSlotsAndAreLoggedEvenWhenNothingChanges)
{
    testsupport::ScratchRoot root;
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    const struct {
        int event;
        bool on;
        std::vector<int> slots;
    } steps[] = {
        {3, true, {3, 0, 0, 0}},  {3, true, {3, 0, 0, 0}},  // already declared
        {4, true, {3, 4, 0, 0}},  {5, true, {3, 4, 5, 0}},  {6, true, {3, 4, 5, 6}},
        {7, true, {3, 4, 5, 6}},  // a fifth scanner changes nothing
        {9, false, {3, 4, 5, 6}},  // never declared
        {4, false, {3, 0, 5, 6}}, {7, true, {3, 7, 5, 6}},  // the first free slot
    };
    for (const auto& s : steps) {
        EXPECT_EQ(UsbKbdScanGunSetEvtIndex(s.event, s.on), 0);
        std::vector<int> slots;
        for (const auto& slot : usbkbd_ctrl.kbd)
            slots.push_back(slot.bOn != 0 ? slot.index : 0);
        EXPECT_EQ(slots, s.slots) << s.event << (s.on ? " on" : " off");
    }
    EXPECT_EQ(root.count_in("/tmp/scan-server.txt", "Set event7 as  ScanGun device success...\r\n"), 2);
    EXPECT_EQ(root.count_in("/tmp/scan-server.txt", "Set event9 as NOT ScanGun device success...\r\n"), 1);
}
