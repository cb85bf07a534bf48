// Records of the scanner socket, shared by the service and the client
// library: every record is a 12-byte head and a payload, all words
// little-endian, no padding. The records a client program sees are in the
// client library's C header.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/usb_gun/crc32.h"
#include "common/usb_gun/usbgun_c.h"

static_assert(std::endian::native == std::endian::little, "the records are written in host order");

inline constexpr const char* SCANNER_SOCKET_PATH = "/tmp/UNIX2.domain.scanner";
inline constexpr uint32_t UNX_HEAD_FLAG = 0xAA77BBAA;  // AA BB 77 AA on the wire
// Receive buffers of both ends.
inline constexpr std::size_t UNX_BUF_SIZE = 32768;

// Kind of a socket record.
enum Fun_Index_t : uint32_t {
    UsbDevInfoGetFun = 0,       // service to client: UsbDevInfo_t
    UsbGunReadFun = 1,          // service to client: UsbGunDatHead_t + scan bytes
    UsbGunNameSetFun = 2,       // client to service: ScanGunConfigName_t
    UsbGunDataTypeSetFun = 3,   // client to service: int32 data type
    UsbGunRouteInfoSetFun = 4,  // client to service: ScanGunRouteInfo_t
};

struct Unx_Head_t {
    uint32_t flag;        // UNX_HEAD_FLAG
    uint32_t func_index;  // Fun_Index_t
    uint32_t length;      // payload bytes after the head
};
static_assert(sizeof(Unx_Head_t) == 12);
static_assert(offsetof(Unx_Head_t, func_index) == 4 && offsetof(Unx_Head_t, length) == 8);

// Declares the devices whose name begins with `name` scanners (index 1,
// "bOn") or ordinary input devices again (0).
struct ScanGunConfigName_t {
    int32_t index;
    char name[USBDEV_NAME_LEN];  // NUL-terminated
};
static_assert(sizeof(ScanGunConfigName_t) == 260);
static_assert(offsetof(ScanGunConfigName_t, name) == 4);

struct ScanGunRouteInfo_t {
    int32_t nRouteMode;      // eModeFocus, eModeFixed
    int32_t nFixedScreenID;  // eScreenMain, eScreenSecondray, eScreenOrvel
};
static_assert(sizeof(ScanGunRouteInfo_t) == 8);
static_assert(offsetof(ScanGunRouteInfo_t, nFixedScreenID) == 4);

struct ScanGunConf_t {
    int32_t datType;  // the data type the client set last
    ScanGunConfigName_t confName;
};

// Callbacks: param is stored but never passed.
struct UsbConfCb_t {
    int (*fn)(int func_index);
    void* param;
};
struct UsbScanGunCb_t {
    int (*fn)(uint8_t* data, int len);
    void* param;
};

inline constexpr std::size_t UNX_HEAD_SIZE = sizeof(Unx_Head_t);
inline constexpr std::size_t SCAN_HEAD_SIZE = sizeof(UsbGunDatHead_t);

// First position p below end where the four bytes at p are the head flag, -1
// when there is none. The caller keeps p + 4 within its buffer.
inline int find_unx_flag(const uint8_t* buf, int end)
{
    for (int p = 0; p < end; ++p) {
        uint32_t word;
        std::memcpy(&word, buf + p, sizeof word);
        if (word == UNX_HEAD_FLAG)
            return p;
    }
    return -1;
}

inline Unx_Head_t read_unx_head(const uint8_t* at)
{
    Unx_Head_t head;
    std::memcpy(&head, at, sizeof head);
    return head;
}

// After the record whose head says `length` was taken from a buffer holding
// total bytes: moves what follows that length counted from the buffer's
// start (not from where the record began, as both ends always have) to the
// front, and returns how many bytes are kept.
inline int keep_after_record(uint8_t* buf, int total, uint32_t length)
{
    const uint32_t after_head = static_cast<uint32_t>(total) - UNX_HEAD_SIZE;
    if (after_head <= length)
        return 0;
    const uint32_t left = after_head - length;
    std::memmove(buf, buf + UNX_HEAD_SIZE + length, left);
    return static_cast<int>(left);
}

// Writes a head and payload into out (UNX_HEAD_SIZE + len bytes); returns the
// record's size.
inline std::size_t put_unx_record(uint8_t* out, uint32_t func_index, const void* payload, uint32_t len)
{
    const Unx_Head_t head{UNX_HEAD_FLAG, func_index, len};
    std::memcpy(out, &head, sizeof head);
    if (len != 0)
        std::memcpy(out + sizeof head, payload, len);
    return sizeof head + len;
}

// The head of a scan of len bytes for slot and datatype, both CRCs filled in
// (the head's own over its first 20 bytes).
inline UsbGunDatHead_t make_scan_head(int32_t slot, int32_t datatype, const uint8_t* data, uint32_t len)
{
    UsbGunDatHead_t head{USBGUN_DAT_FLAG, slot, datatype, len, calculate_CRC32(data, len), 0};
    head.head_crc32_check = calculate_CRC32(&head, offsetof(UsbGunDatHead_t, head_crc32_check));
    return head;
}
