/* Scanner client library: the client end of the daemon's barcode-scanner
 * socket "/tmp/UNIX2.domain.scanner". A client program connects with
 * UsbGunInit, declares which USB input devices are scanners, sets the data
 * type and the route, reads the scans the daemon delivers with UsbGunRead and
 * gets the inventory of USB input devices with UsbDevInfoGet.
 *
 * Plain C; link with -lusbgun_c (pkg-config: usbgun_c). The library logs to
 * "/tmp/scan-client.txt". All records are little-endian, without padding. */
#ifndef USBGUN_C_H
#define USBGUN_C_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#define USBGUN_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define USBGUN_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* Marker of every scan head. */
#define USBGUN_DAT_FLAG 0x55AA55AAu

/* Kind of scan data (UsbGunDatHead_t.datatype, UsbGunDataTypeSet). */
enum {
    eKbdData = 0,  /* raw input-event records of a keyboard-wedge scanner */
    eCdcData = 1,  /* raw serial bytes of a CDC scanner */
    eOtherData = 2
};

/* Route modes and fixed screens (UsbGunSetRouteInfo). */
enum {
    eModeFocus = 0,  /* follow the focused screen */
    eModeFixed = 1   /* always the fixed screen */
};
enum {
    eScreenMain = 0,
    eScreenSecondray = 1,
    eScreenOrvel = 2  /* the remote-screen window */
};

/* Head in front of the scan bytes of every scan: UsbGunRead returns these
 * heads and their scan bytes back to back (a read may end inside one). */
typedef struct UsbGunDatHead_s {
    uint32_t flag;             /* USBGUN_DAT_FLAG */
    int32_t slot;              /* target screen: 0 main, 1 secondary, 2 remote window */
    int32_t datatype;          /* eKbdData, eCdcData */
    uint32_t length;           /* scan bytes that follow */
    uint32_t data_crc32_check; /* CRC-32 (IEEE 802.3) of the scan bytes */
    uint32_t head_crc32_check; /* CRC-32 of the 20 bytes before this field */
} UsbGunDatHead_t;
USBGUN_STATIC_ASSERT(sizeof(UsbGunDatHead_t) == 24, "scan head is 24 bytes");
USBGUN_STATIC_ASSERT(offsetof(UsbGunDatHead_t, length) == 12, "scan head layout");
USBGUN_STATIC_ASSERT(offsetof(UsbGunDatHead_t, head_crc32_check) == 20, "scan head layout");

#define USBDEV_NAME_LEN 256
#define USBDEV_MAX_COUNT 32

/* One USB input device as the kernel lists it. */
typedef struct UsbDev_Desc_s {
    uint32_t vendor;
    uint32_t product;
    int32_t event_index;            /* N of the device's event node "eventN" */
    char devname[USBDEV_NAME_LEN];  /* NUL-filled */
    char physname[USBDEV_NAME_LEN]; /* NUL-filled */
} UsbDev_Desc_t;
USBGUN_STATIC_ASSERT(sizeof(UsbDev_Desc_t) == 524, "device entry is 524 bytes");
USBGUN_STATIC_ASSERT(offsetof(UsbDev_Desc_t, devname) == 12, "device entry layout");
USBGUN_STATIC_ASSERT(offsetof(UsbDev_Desc_t, physname) == 268, "device entry layout");

/* The inventory: usbdev_total_count valid entries, the rest zero. */
typedef struct UsbDevInfo_s {
    int32_t usbdev_total_count;
    UsbDev_Desc_t usb_desc[USBDEV_MAX_COUNT];
} UsbDevInfo_t;
USBGUN_STATIC_ASSERT(sizeof(UsbDevInfo_t) == 16772, "inventory is 16772 bytes");
USBGUN_STATIC_ASSERT(offsetof(UsbDevInfo_t, usb_desc) == 4, "inventory layout");

/* Called with the inventory's bytes (a UsbDevInfo_t) and their count each
 * time the daemon sends a new one. It runs on the library's receiver thread
 * with the library's lock held: it must not call the library. param is kept
 * but not passed. */
typedef struct UsbInfoCb_s {
    int (*fn)(uint8_t* data, int len);
    void* param;
} UsbInfoCb_t;

/* Connects (waiting for the daemon as long as it takes) and starts the
 * receiver. Once per process: a later call returns 0 at once. 0, -1 when
 * the lock cannot be set up, -2 when the receiver cannot be started. When
 * the daemon goes away the receiver closes the connection and connects
 * again, twice a second, until a daemon answers; that daemon is then given
 * the names (up to 8), the data type and the route set last. */
int UsbGunInit(UsbInfoCb_t cb);

/* The three senders: 0 when sent, also 0 before UsbGunInit connected; -1
 * out of memory; -2 short write, or the daemon is gone (until the receiver
 * has connected again). They never raise SIGPIPE. */
/* bOn 1: the devices whose name begins with name are scanners; 0: they are
 * ordinary input devices again. name: at most 255 characters are sent. */
int UsbGunConfigSet(const char* name, int bOn);
/* The data type announced to the remote screen. */
int UsbGunDataTypeSet(int DatType);
/* eModeFocus or eModeFixed, and the fixed screen. */
int UsbGunSetRouteInfo(int nRouteMode, int nFixedScreen);

/* Takes up to len (at most 32768) bytes of scans; returns the count, 0 when
 * none is waiting, -1 for a null buffer or a bad len. */
int UsbGunRead(uint8_t* dat, int len);

/* Copies the last inventory received; 0. */
int UsbDevInfoGet(UsbDevInfo_t* list);

#ifdef __cplusplus
}
#endif
#undef USBGUN_STATIC_ASSERT

#endif /* USBGUN_C_H */
