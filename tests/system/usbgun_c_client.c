/* A scanner client in C, built against the installed header and library: it declares a scanner, sets the data
 * type and route, then prints the first inventory and scan it receives. */
#define _POSIX_C_SOURCE 200809L
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <usbgun_c.h>

static atomic_int lists;

static int on_list(uint8_t* data, int len)
{
    (void)data;
    atomic_fetch_add(&lists, len == (int)sizeof(UsbDevInfo_t));
    return 0;
}

int main(void)
{
    UsbInfoCb_t cb = {on_list, NULL};
    if (UsbGunInit(cb) != 0 || UsbGunConfigSet("Test Scanner", 1) != 0 || UsbGunDataTypeSet(eCdcData) != 0 ||
        UsbGunSetRouteInfo(eModeFixed, eScreenOrvel) != 0)
        return 1;
    uint8_t buf[512];
    UsbGunDatHead_t head = {0};
    for (int i = 0, have = 0; i < 1000 && (have < (int)(sizeof head + head.length) || atomic_load(&lists) == 0); ++i) {
        const int n = UsbGunRead(buf + have, (int)sizeof buf - have);
        have += n > 0 ? n : 0;
        if (have >= (int)sizeof head)
            memcpy(&head, buf, sizeof head);
        nanosleep(&(struct timespec){0, 10000000}, NULL);
    }
    UsbDevInfo_t list;
    UsbDevInfoGet(&list);
    printf("list %d: %d %s\nscan %x slot %d type %d: %.*s\n", atomic_load(&lists), list.usbdev_total_count,
           list.usb_desc[0].devname, head.flag, head.slot, head.datatype, (int)head.length, (const char*)(buf + sizeof head));
    return 0;
}
