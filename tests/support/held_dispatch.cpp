#include "support/held_dispatch.h"

#include <sys/select.h>
#include <unistd.h>

#include "common/inputevent_handle_internal.h"
#include "msg_handle.h"
#include "msg_handle_internal.h"

namespace testsupport {
namespace {
HeldDispatch* current = nullptr;
}  // namespace

HeldDispatch::HeldDispatch(int fd, std::function<void()> touch) : touch_(std::move(touch))
{
    current = this;
    process_evdev_observer = [](_InputDev*, const tactord::input_event*, evdev_event_path) { hold(); };
    loop_ = std::thread([fd] {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        dispatch_monitor_handles(&set);
    });
}

HeldDispatch::~HeldDispatch()
{
    if (stage_.load() < 2)
        go();
    loop_.join();
    process_evdev_observer = nullptr;
    current = nullptr;
}

void HeldDispatch::hold()
{
    HeldDispatch* self = current;
    if (self == nullptr || self->stage_.load() != 0)
        return;  // only the first event is held
    self->stage_.store(1);
    self->stage_.notify_all();
    self->stage_.wait(1);
    usleep(20000);
    self->touch_();
    self->finished_.store(true);
}

int serve_ready(int timeout_ms)
{
    fd_set set;
    int max_fd = 0;
    fill_monitor_set(&set, &max_fd);
    timeval tv{timeout_ms / 1000, timeout_ms % 1000 * 1000};
    const int ready = select(max_fd + 1, &set, nullptr, nullptr, &tv);
    if (ready > 0)
        dispatch_monitor_handles(&set);
    return ready;
}

void HeldDispatch::go()
{
    stage_.wait(0);
    stage_.store(2);
    stage_.notify_all();
}

}  // namespace testsupport
