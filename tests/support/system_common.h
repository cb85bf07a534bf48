// What every system test includes: GoogleTest and GoogleMock, the system and standard headers they use,
// the harness (daemon process, emulated devices, display clients, drills) and the shared helpers.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/OrvelClient.h"
#include "common/keyaudio/key_voice.h"
#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_c.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"
#include "support/shell.h"

using namespace std::chrono_literals;

// The system tests also run against the target build's daemon under qemu-arm ($TACTORD_DAEMON, ctest label
// target); a case that cannot serve the target skips there, saying why in one line.
#define TACTORD_HOST_ONLY(reason) \
    do { if (emul::daemon_is_target()) GTEST_SKIP() << "not run against the target: " reason; } while (0)
