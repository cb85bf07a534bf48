#include "arm/knob_manager.h"

#include <sys/time.h>
#include <unistd.h>

#include <array>

#include "arm/knob_manager_internal.h"
#include "common/communicate.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"
#include "common/send_event.h"
#include "msg_handle.h"

std::atomic<int> g_knob_fd{0};
std::atomic<int> knob_is_exist{0};
KnobPartial knob_partial;

namespace {

constexpr int KNOB_RECV_BUF = 120;
constexpr int KNOB_PKG_SIZE = 4;

// The focused client of the single-screen layout: 0, 1 or 2, else 3 (which
// the event output refuses).
int knob_target_screen()
{
    for (int c = 0; c < SCREEN_COUNT; ++c) {
        if (screen_info.client[c].focus == 1)
            return c;
    }
    return SCREEN_COUNT;
}

void send_key(int screen, uint16_t code, int32_t value)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    tactord::input_event ev{static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec), 1, code, value};
    send_event(screen, &ev);
}

KnobRecvData package_at(const uint8_t* bytes)
{
    KnobRecvData pkg{};
    recv_data_to_knob(&pkg, bytes, 0, KNOB_PKG_SIZE);
    return pkg;
}

void handle_if_checked(const KnobRecvData& pkg)
{
    if (check_knob_pkg(&pkg))
        handle_knob_msg(&pkg, 0);
}

}  // namespace

void recv_data_to_knob(KnobRecvData* pkg, const uint8_t* bytes, int start, int count)
{
    if (pkg == nullptr || bytes == nullptr)
        return;
    if (count > KNOB_PKG_SIZE) {
        TLOG(LEVEL_ERROR, "copySize too Large!\n");
        return;
    }
    if (start < 0 || start > 3 || count <= 0)
        return;
    uint8_t* fields[KNOB_PKG_SIZE] = {&pkg->head, &pkg->info, &pkg->check, &pkg->tail};
    for (int i = 0; i < count; ++i) {
        if (start + i > 3) {
            TLOG(LEVEL_ERROR, "index Error!\n");
            return;
        }
        *fields[start + i] = bytes[i];
    }
}

bool check_knob_pkg(const KnobRecvData* pkg)
{
    return pkg != nullptr && pkg->check == static_cast<uint8_t>(pkg->tail + pkg->head + pkg->info);
}

void handle_knob_msg(const KnobRecvData* pkg, int repeat)
{
    if (pkg == nullptr)
        return;
    const int screen = knob_target_screen();
    const int32_t press = repeat != 0 ? 6 : 1;
    switch (pkg->info) {
    case KNOB_RIGHT:
        send_key(screen, KNOB_KEY_RIGHT, press);
        TLOG(LEVEL_ERROR, "Knob Recv To Right Info %d!\n", pkg->info);
        break;
    case KNOB_LEFT:
        send_key(screen, KNOB_KEY_LEFT, press);
        TLOG(LEVEL_ERROR, "Knob Recv To Left Info %d!\n", pkg->info);
        break;
    case KNOB_PRESS:
        send_key(screen, KNOB_KEY_ENTER, press);
        usleep(1000);
        send_key(screen, KNOB_KEY_ENTER, 0);
        TLOG(LEVEL_ERROR, "Knob Recv Press And Up Info!\n");
        break;
    case KNOB_HEARTBEAT:
        TLOG(LEVEL_ERROR, "Knob heart beat %d!\n", KNOB_HEARTBEAT);
        break;
    default:
        TLOG(LEVEL_ERROR, "Key Type Error!\n");
        break;
    }
}

int handle_knob_data(void*)
{
    // Cleared, so that a package completed from a failed read is completed
    // with zeros and a short read never exposes old bytes.
    std::array<uint8_t, KNOB_RECV_BUF> buf{};
    const int fd = g_knob_fd.load();
    const int n = recv_data(fd, buf.data(), KNOB_RECV_BUF);
    if (n == 0) {
        // A close discards a partial package: the next connection's first
        // bytes start a package of their own, they never complete this one.
        knob_partial = {};
        close_connect(fd);
        remove_monitor_handle(fd);
        g_knob_fd.store(0);
        knob_is_exist.store(0);
        return 0;
    }
    // A failed read is not an end: no new bytes, but a held package is
    // still completed from the cleared buffer, checked and dropped.
    const int got = n > 0 ? n : 0;

    int pos = 0;
    if (knob_partial.held) {
        const int k = knob_partial.count;
        std::array<uint8_t, KNOB_PKG_SIZE> whole{};
        for (int i = 0; i < k; ++i)
            whole[i] = knob_partial.bytes[i];
        for (int i = k; i < KNOB_PKG_SIZE; ++i)
            whole[i] = buf[i - k];
        handle_if_checked(package_at(whole.data()));
        knob_partial = {};
        pos = KNOB_PKG_SIZE - k;
    }

    while (pos < got) {
        if (buf[pos] != KNOB_HEAD) {
            ++pos;
            continue;
        }
        if (got - pos < KNOB_PKG_SIZE) {
            knob_partial.count = got - pos;
            for (int i = 0; i < knob_partial.count; ++i)
                knob_partial.bytes[i] = buf[pos + i];
            knob_partial.held = true;
            break;
        }
        const KnobRecvData pkg = package_at(&buf[pos]);
        if (check_knob_pkg(&pkg)) {
            handle_knob_msg(&pkg, 0);
            pos += KNOB_PKG_SIZE;
        } else {
            ++pos;
        }
    }
    return 0;
}
