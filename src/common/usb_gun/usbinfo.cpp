#include "common/usb_gun/usbinfo.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/root_path.h"
#include "common/usb_gun/usbinfo_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/worker_thread.h"

UsbDevCtrl_t usbdev_ctrl;

namespace {

constexpr int USB_INFO_SIZE = static_cast<int>(sizeof(UsbDevInfo_t));

// Bounded search of what in [from, end): the position found or null.
const char* find_in(const char* from, const char* end, std::string_view what)
{
    const std::string_view hay(from, static_cast<std::size_t>(end - from));
    const std::size_t at = hay.find(what);
    return at == std::string_view::npos ? nullptr : from + at;
}

// The number written at from (digits of the base only); 0 when there is none
// or it does not fit.
template <typename T>
T number_at(const char* from, const char* end, int base)
{
    T value = 0;
    if (std::from_chars(from, end, value, base).ec != std::errc{})
        value = 0;
    return value;
}

// Copies [from, to) into a NUL-filled field of 256, 255 characters at most.
void copy_field(char (&field)[USBDEV_NAME_LEN], const char* from, const char* to)
{
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(to - from), USBDEV_NAME_LEN - 1);
    std::memcpy(field, from, n);
}

// Copies what follows key in [from, end), up to stop, into field: the
// position just after key, or null when key or stop is missing.
const char* copy_keyed(const char* from, const char* end, std::string_view key, std::string_view stop,
                       char (&field)[USBDEV_NAME_LEN])
{
    const char* at = find_in(from, end, key);
    if (at == nullptr)
        return nullptr;
    at += key.size();
    const char* to = find_in(at, end, stop);
    if (to == nullptr)
        return nullptr;
    copy_field(field, at, to);
    return at;
}

}  // namespace

void usbinfo_parse(const char* text, std::size_t len, UsbDevInfo_t* list)
{
    const char* const end = text + len;
    const char* cur = text;
    constexpr std::string_view vendor_key = "Vendor=", product_key = "Product=", name_key = "Name=\"",
                               phys_key = "Phys=", event_key = "event";
    // The list has room for 32 entries; the listing is read no further.
    while (list->usbdev_total_count < USBDEV_MAX_COUNT) {
        UsbDev_Desc_t entry{};
        const char* vendor = find_in(cur, end, vendor_key);
        if (vendor == nullptr)
            break;
        entry.vendor = number_at<uint32_t>(vendor + vendor_key.size(), end, 16);
        const char* product = find_in(vendor, end, product_key);
        if (product == nullptr)
            break;
        entry.product = number_at<uint32_t>(product + product_key.size(), end, 16);
        const char* name = copy_keyed(product, end, name_key, "\"", entry.devname);
        if (name == nullptr)
            break;
        const char* phys = copy_keyed(name, end, phys_key, "\n", entry.physname);
        if (phys == nullptr)
            break;
        // An entry without an event handler takes the next entry's number.
        const char* event = find_in(phys, end, event_key);
        if (event == nullptr)
            break;
        cur = event + event_key.size();
        entry.event_index = number_at<int32_t>(cur, end, 10);
        if (std::strstr(entry.physname, "usb") != nullptr)
            list->usb_desc[list->usbdev_total_count++] = entry;
    }
}

int UsbDevGetInfo(UsbDevInfo_t* list)
{
    if (list == nullptr)
        return -1;
    *list = {};
    root_path_buf proc, copy;
    const char* copy_path = resolve_path(USB_INFO_COPY, copy);
    char command[256];
    std::snprintf(command, sizeof command, "cat %s > %s", resolve_path(USB_PROC_DEVICES, proc), copy_path);
    std::system(command);

    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(copy_path, "rb"), std::fclose);
    if (file == nullptr) {
        USBLOG("Open /tmp/usbinfo failure.\r\n");
        return -1;
    }
    struct stat st{};
    const long size = fstat(fileno(file.get()), &st) == 0 ? static_cast<long>(st.st_size) : 0;
    std::unique_ptr<char[]> bytes(new (std::nothrow) char[static_cast<std::size_t>(size)]());
    if (bytes == nullptr) {
        USBLOG("Malloc %d nbytes is failure.\r\n", static_cast<int>(size));
        return -2;
    }
    const std::size_t got = std::fread(bytes.get(), 1, static_cast<std::size_t>(size), file.get());
    usbinfo_parse(bytes.get(), got, list);
    return 0;
}

int UsbDevShowInfo(UsbDevInfo_t list)
{
    USBLOG("Show All %d Usb devices Info.\r\n", list.usbdev_total_count);
    const int n = std::clamp(list.usbdev_total_count, 0, USBDEV_MAX_COUNT);
    for (int i = 0; i < n; ++i) {
        const UsbDev_Desc_t& d = list.usb_desc[i];
        USBLOG("[%d] Vendor=%x Product=%x event%d ", i, d.vendor, d.product, d.event_index);
        USBLOG("Name:%.*s\r\n", USBDEV_NAME_LEN, d.devname);
    }
    return 0;
}

int UsbDevSerachIndex(const char* name, KbScanSupportInfo_t* out)
{
    if (name == nullptr || out == nullptr || out->count < 0)
        return -1;
    std::lock_guard<std::mutex> guard(usbdev_ctrl.mutex_dev);
    const UsbDevInfo_t& info = usbdev_ctrl.usbinfo;
    const std::size_t len = std::strlen(name);
    const int n = std::clamp(info.usbdev_total_count, 0, USBDEV_MAX_COUNT);
    for (int i = 0; i < n; ++i) {
        if (std::strncmp(info.usb_desc[i].devname, name, len) != 0)
            continue;
        if (out->count >= KB_SCAN_MAX_EVT)
            return 0;
        out->h_evt[out->count++] = info.usb_desc[i].event_index;
    }
    return out->count != 0 ? 0 : -2;
}

int AddupEventTotal(const char* dir)
{
    std::unique_ptr<DIR, int (*)(DIR*)> d(dir != nullptr ? opendir(dir) : nullptr, closedir);
    if (d == nullptr)
        return 0;
    int total = 0;
    while (const dirent* e = readdir(d.get())) {
        // DT_CHR, DT_BLK and DT_LNK all have this bit.
        if (std::strncmp(e->d_name, "event", 5) == 0 && (e->d_type & 2) != 0)
            ++total;
    }
    return total;
}

int usbinfo_watch_pass(int* old)
{
    int cur = AddupEventTotal("/dev");
    if (cur <= 0)
        cur = AddupEventTotal("/dev/input");
    if (cur == *old)
        return 0;
    USBLOG("Usb dev has plugin or plugout event, current %d devices\r\n", cur);
    std::unique_lock<std::mutex> lock(usbdev_ctrl.mutex_dev);
    UsbDevInfo_t& info = usbdev_ctrl.usbinfo;
    if (UsbDevGetInfo(&info) != 0) {
        lock.unlock();
        USBLOG("GetUsbInfo is failure.\r\n");
        return -1;
    }
    UsbDevShowInfo(info);
    if (usbdev_ctrl.cb.fn != nullptr)
        usbdev_ctrl.cb.fn(reinterpret_cast<uint8_t*>(&info), USB_INFO_SIZE);
    *old = cur;
    return 1;
}

namespace {

void* DetectUsbDevPlugThread(void*)
{
    int old = 0;
    for (;;) {
        // A list that could not be taken is tried again at once.
        if (usbinfo_watch_pass(&old) >= 0)
            sleep(1);
    }
    return nullptr;
}

}  // namespace

int UsbDevInfoInit(UsbInfoCb_t cb)
{
    {
        std::lock_guard<std::mutex> guard(usbdev_ctrl.mutex_dev);
        usbdev_ctrl.usbinfo = {};
        usbdev_ctrl.cb = cb;
    }
    // mutex_dev is a std::mutex, whose set-up cannot fail.
    const int rc = start_worker_thread(DetectUsbDevPlugThread, nullptr, &usbdev_ctrl.thread);
    if (rc != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(rc), rc);
        return -2;
    }
    USBLOG("Usb DevInfo Initation success...\r\n");
    return 0;
}
