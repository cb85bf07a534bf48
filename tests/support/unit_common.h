// The prelude of every unit test, included after the module's own header: GoogleTest, the system
// and standard headers, the daemon headers many tests share and the shared helpers (whose own
// standard headers are not repeated here).
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <tuple>

#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/cursor_timer_internal.h"
#include "common/inputdevice_manager.h"
#include "common/inputdevice_manager_internal.h"
#include "common/inputevent_handle.h"
#include "common/inputevent_handle_internal.h"
#include "common/log.h"
#include "common/log_internal.h"
#include "common/multi_config.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"
#include "common/send_event.h"
#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usblog.h"
#include "msg_handle.h"
#include "msg_handle_internal.h"
#include "support/held_dispatch.h"
#include "support/log_capture.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"
#include "support/screen_clients.h"

// Unit tests use the shared helpers and time literals unqualified.
using namespace testsupport;
using namespace std::chrono_literals;
