// Fault drills against the real daemon: misbehaving control clients, input
// nodes that vanish while they are read and two hundred plug cycles, the
// scanner and key-sound clients going and coming, a log on a full file
// system, and a stalled main loop ended by the watchdog. Each drill states
// what the daemon promises and checks that, with nothing lost that may not
// be lost.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/keyaudio/key_voice.h"
#include "common/usb_gun/usbgun_records.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/evdev_testbed.h"
#include "sim/devices.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::DisplayClient;
using emul::ev;
using testharness::kServeBound;
using testharness::kTapEvents;
using testharness::make_msg;
using testsupport::eventually;
namespace dev = emul::devices;

constexpr int MAIN_PANEL = 0;  // seat 5, screen 0
constexpr int SUB_PANEL = 1;   // seat 3, screen 1

// The reference seats, and seat 3 on the sub screen: a touchscreen there
// feeds the sub screen's client in the extended mode.
const char* const kPortConf =
    "StartSection \"Terminal\"\n    Screen 0\n    InputDevice 5\n    InputDevice 1\nEndSection\n"
    "StartSection \"Terminal\"\n    Screen 1\n    InputDevice 2\n    InputDevice 3\nEndSection\n"
    "StartSection \"Mode\"\n    ScreenNum 2\nEndSection\n"
    "StartSection \"Input\"\n    usb-musb-hdrc.1-1.1 1\n    usb-musb-hdrc.1-1.2 2\n    usb-musb-hdrc.1-1.3 3\n"
    "    usb-musb-hdrc.0-1 5\nEndSection\n";

// A daemon with the two panels, in the extended mode, logging to standard
// output unless a drill starts it otherwise.
class FaultDrills : public ::testing::Test {
protected:
    void start(const std::vector<std::string>& args = emul::kStdoutLogArgs)
    {
        ASSERT_TRUE(bed_.add(MAIN_PANEL, dev::multi_touch_screen()));
        ASSERT_TRUE(bed_.add(SUB_PANEL, dev::multi_touch_screen().on("usb-musb-hdrc.1-1.3/input0")));
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"), args);
        ASSERT_TRUE(daemon_->started());
        // Both panels registered before a drill counts descriptors (a daemon
        // logging elsewhere is seen only through its sockets).
        if (args == emul::kStdoutLogArgs) {
            for (const char* line : {"add screen id:0, seat 5 to touchscreen...\n", "add screen id:1, seat 3 to touchscreen...\n"})
                ASSERT_TRUE(daemon_->wait_for(line)) << line;
        }
        // Kept open: a connection closing now would still be counted by a
        // drill that counts descriptors.
        ctl_ = std::make_unique<DisplayClient>(root_.path());
        SystemMsg extended = make_msg(TYPE_MODE_SET);
        extended.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}};
        ASSERT_TRUE(ctl_->send(extended));
        ASSERT_TRUE(testharness::round_trip(*ctl_, 1, 10s));
    }
    void TearDown() override
    {
        if (HasFailure() && daemon_) {
            const std::string out = daemon_->output();
            std::fprintf(stderr, "%s", out.substr(out.size() > 6000 ? out.size() - 6000 : 0).c_str());
        }
    }
    pid_t pid() const { return daemon_->pid(); }
    // The main screen's client gets a tap on the main panel, whole.
    void main_is_served(DisplayClient& main)
    {
        ASSERT_TRUE(testharness::play_tap(bed_, MAIN_PANEL));
        EXPECT_EQ(testharness::receive(main, kTapEvents.size()), kTapEvents);
    }
    // The bad clients are gone: the daemon holds the descriptors it held
    // before, and a new client takes the sub screen (its old registration,
    // if any, was released) and gets a tap on the sub panel, whole.
    void recovered(int fds_before, const std::string& were = "")
    {
        EXPECT_TRUE(eventually([&] { return testharness::open_fds(pid()) == fds_before; }, kServeBound))
            << testharness::open_fds(pid()) << " descriptors, " << fds_before << " before:\n"
            << testharness::fd_targets(pid()) << "were:\n" << were;
        const std::size_t mark = daemon_->mark();
        DisplayClient sub(root_.path());
        ASSERT_TRUE(sub.register_for(SUB_SCREEN));
        ASSERT_TRUE(testharness::round_trip(sub, 2));
        ASSERT_TRUE(testharness::play_tap(bed_, SUB_PANEL));
        EXPECT_EQ(testharness::receive(sub, kTapEvents.size()), kTapEvents);
        EXPECT_EQ(daemon_->output().find("has been init", mark), std::string::npos);
        EXPECT_TRUE(daemon_->alive());
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"), kPortConf);
    emul::EvdevTestbed bed_;
    emul::DevModCfgEmulator driver_{bed_.testbed()};
    std::unique_ptr<emul::DaemonProcess> daemon_;
    std::unique_ptr<DisplayClient> ctl_;
};

// ---------------------------------------------------------------------------
// Control clients. The loop reads one record per readiness of a connection
// and waits a bounded time for the rest of it; a reply to a client that does
// not read gives up after a bounded time. So whatever one client does, the
// other clients and the devices are served within those bounds, and when the
// bad client goes its descriptor and its screen go with it.

struct ClientDrill {
    const char* name;
    // Misbehaves while the probe runs; checks main_is_served() in the middle
    // and what the bad client itself is owed; the bad client is gone at the
    // end.
    std::function<void(FaultDrills&, DisplayClient& main)> run;
};

class ControlClientDrill : public FaultDrills, public ::testing::WithParamInterface<ClientDrill> {
public:
    // The drills reach the fixture's helpers through this.
    void served(DisplayClient& main) { main_is_served(main); }
    DisplayClient connect() { return DisplayClient(root_.path()); }
    emul::EvdevTestbed& bed() { return bed_; }
    emul::DaemonProcess& daemon() { return *daemon_; }
    const std::string& root() const { return root_.path(); }
};

// Records tagged 0..n-1 in scr_index, whose replies are checked in order.
std::vector<SystemMsg> tagged(int n)
{
    std::vector<SystemMsg> out;
    for (int i = 0; i < n; ++i)
        out.push_back(make_msg(TYPE_MODE_GET, i));
    return out;
}

void expect_replies_in_order(DisplayClient& c, int n)
{
    for (int i = 0; i < n; ++i) {
        const auto r = c.read_reply(kServeBound);
        ASSERT_TRUE(r.has_value()) << "reply " << i;
        ASSERT_EQ(r->scr_index, i);
    }
}

const ClientDrill kClientDrills[] = {
    {"ClosesMidRecord",
     [](FaultDrills& f, DisplayClient& main) {
         auto& d = static_cast<ControlClientDrill&>(f);
         DisplayClient bad(d.root());
         ASSERT_TRUE(bad.register_for(SUB_SCREEN));
         ASSERT_TRUE(testharness::round_trip(bad, 3));
         const SystemMsg half = make_msg(TYPE_MODE_GET, 4);
         ASSERT_TRUE(bad.send_raw(&half, 30));
         bad.close_now();
         d.served(main);
     }},
    {"WritesOneBytePerMillisecond",
     [](FaultDrills& f, DisplayClient& main) {
         // 64 ms per record, inside the window of 10 reading passes 10 ms
         // apart: every record is answered, in order. (The pace is kept on
         // average; should the writer be held up past the window on a busy
         // machine, the record is dropped with its connection, as the
         // daemon promises, and nothing after it is answered.)
         auto& d = static_cast<ControlClientDrill&>(f);
         DisplayClient slow(d.root());
         constexpr int kRecords = 16;
         const auto records = tagged(kRecords);
         std::thread writer([&] {
             const auto* p = reinterpret_cast<const uint8_t*>(records.data());
             const std::size_t total = records.size() * sizeof(SystemMsg);
             const auto start = std::chrono::steady_clock::now();
             for (std::size_t sent = 0; sent < total;) {
                 const auto due = static_cast<std::size_t>(
                     std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                         .count());
                 const std::size_t n = std::min(std::max<std::size_t>(due, sent + 1), total) - sent;
                 if (!slow.send_raw(p + sent, n))
                     return;
                 sent += n;
                 std::this_thread::sleep_for(1ms);
             }
         });
         d.served(main);
         writer.join();
         int answered = 0;
         for (; answered < kRecords; ++answered) {
             const auto r = slow.read_reply(kServeBound);
             if (!r)
                 break;
             ASSERT_EQ(r->scr_index, answered);
         }
         if (answered < kRecords) {
             EXPECT_TRUE(slow.closed_by_peer(kServeBound)) << answered << " answered";
             EXPECT_TRUE(d.daemon().wait_for("recv_need_len_data failed needlen =64"));
         }
     }},
    {"FloodsRecords",
     [](FaultDrills& f, DisplayClient& main) {
         // One record per pass: every record is answered, in order, while
         // the others are served between them.
         auto& d = static_cast<ControlClientDrill&>(f);
         DisplayClient flood(d.root());
         constexpr int kRecords = 3000;
         const auto records = tagged(kRecords);
         std::thread writer([&] { flood.send_raw(records.data(), records.size() * sizeof(SystemMsg)); });
         std::thread reader([&] { expect_replies_in_order(flood, kRecords); });
         d.served(main);
         writer.join();
         reader.join();
     }},
    {"FortyClientsAtOnce",
     [](FaultDrills& f, DisplayClient& main) {
         // The monitor list holds 32 entries; the listening socket, the two
         // panels, the fixture's control client, the main client and the
         // probe take 6. Of 40 clients 26 are served and the other 14 are
         // closed at once, not left hanging.
         auto& d = static_cast<ControlClientDrill&>(f);
         std::vector<std::unique_ptr<DisplayClient>> crowd;
         for (int i = 0; i < 40; ++i)
             crowd.push_back(std::make_unique<DisplayClient>(d.root()));
         int served = 0, closed = 0;
         for (auto& c : crowd) {
             if (testharness::round_trip(*c, 5))
                 ++served;
             else if (c->closed_by_peer(kServeBound))
                 ++closed;
         }
         EXPECT_EQ(served, 26);
         EXPECT_EQ(closed, 14);
         d.served(main);
     }},
    {"RegistersAndNeverReads",
     [](FaultDrills& f, DisplayClient& main) {
         // Its socket fills. The first record that finds it full waits the
         // bounded time; after that its records are dropped at once while
         // input keeps flowing, the main screen's events still arrive whole,
         // and two seconds on it is disconnected with its screen released.
         auto& d = static_cast<ControlClientDrill&>(f);
         DisplayClient deaf(d.root());
         ASSERT_TRUE(deaf.register_for(SUB_SCREEN));
         ASSERT_TRUE(testharness::round_trip(deaf, 6));
         const std::size_t mark = d.daemon().mark();
         for (int tap = 0; tap < 2000 && d.daemon().output().find("does not read", mark) == std::string::npos; ++tap)
             ASSERT_TRUE(testharness::play_tap(d.bed(), SUB_PANEL));
         ASSERT_TRUE(d.daemon().wait_for("does not read: its records are dropped", mark));
         const auto stalled = std::chrono::steady_clock::now();
         while (d.daemon().output().find("has not read for", mark) == std::string::npos &&
                std::chrono::steady_clock::now() - stalled < 3 * kServeBound) {
             ASSERT_TRUE(testharness::play_tap(d.bed(), SUB_PANEL));
             d.served(main);
         }
         EXPECT_TRUE(d.daemon().wait_for("has not read for", mark));
         // Not on the target: the emulated daemon drains the node so slowly
         // that the taps' writes block and the first drop is seen ~0.7 s late.
         if (!emul::daemon_is_target()) {
             EXPECT_GE(std::chrono::steady_clock::now() - stalled, 1500ms);
         }
         EXPECT_TRUE(deaf.closed_by_peer(kServeBound));
         EXPECT_TRUE(d.daemon().alive());
     }},
};

TEST_P(ControlClientDrill, OtherClientsAndDevicesAreServedAndTheDaemonRecovers)
{
    start();
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    ASSERT_TRUE(testharness::round_trip(main, 7));
    // Counted once the hot-plug thread has closed the attribute files of
    // its last pass.
    ASSERT_TRUE(eventually([&] { return testharness::fd_targets(pid()).find("/sys/") == std::string::npos; }));
    const int fds_before = testharness::open_fds(pid());
    const std::string were = testharness::fd_targets(pid());
    testharness::ServingProbe probe(root_.path());
    GetParam().run(*this, main);
    EXPECT_EQ(probe.stop(), 0) << "round trips beyond " << kServeBound.count() << " ms, of " << probe.rounds();
    recovered(fds_before, were);
}

INSTANTIATE_TEST_SUITE_P(FaultDrills, ControlClientDrill, ::testing::ValuesIn(kClientDrills),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(FaultDrills, AConnectionHoldingTwoScreensReleasesBothWhenItCloses)
{
    start();
    ASSERT_TRUE(eventually([&] { return testharness::fd_targets(pid()).find("/sys/") == std::string::npos; }));
    const int fds_before = testharness::open_fds(pid());
    {
        DisplayClient both(root_.path());
        ASSERT_TRUE(both.register_for(MAIN_SCREEN));
        ASSERT_TRUE(both.register_for(SUB_SCREEN));
        ASSERT_TRUE(testharness::round_trip(both, 8));
    }
    // The next connection is given the closed one's descriptor number and
    // registers for nothing: no screen's records may reach it.
    DisplayClient next(root_.path());
    ASSERT_TRUE(testharness::round_trip(next, 9));
    ASSERT_TRUE(testharness::play_tap(bed_, SUB_PANEL));
    EXPECT_EQ(next.pending(500ms), 0U);
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    ASSERT_TRUE(testharness::round_trip(main, 10));
    main_is_served(main);
    next.close_now();
    recovered(fds_before + 1);  // + the main client
}

// ---------------------------------------------------------------------------
// Input nodes. A node that vanishes is dropped with everything the daemon
// held for it: its record, its monitor entry and its descriptor. Events
// still streaming in when it goes are read or dropped with it.

// The emulation cannot add a node number twice: a node is unplugged and
// plugged again by moving its device file out of the testbed's /dev and
// back. The hot-plug monitor only asks whether the node is there.
class NodeSwitch {
public:
    explicit NodeSwitch(UMockdevTestbed* bed)
    {
        gchar* root = umockdev_testbed_get_root_dir(bed);
        dev_ = std::string(root) + "/dev/";
        g_free(root);
    }
    bool set(int node, bool plugged) const
    {
        const std::string name = dev_ + "event" + std::to_string(node);
        const std::string away = dev_ + ".away-event" + std::to_string(node);
        return plugged ? std::rename(away.c_str(), name.c_str()) == 0 : std::rename(name.c_str(), away.c_str()) == 0;
    }
private:
    std::string dev_;
};

TEST_F(FaultDrills, NodesVanishingMidReadAndTwoHundredPlugCyclesLeaveNoDescriptorOrMemoryBehind)
{
    start();
    // Keyboards behind a hub on seat 1 go one by one when unplugged. No
    // client reads the screens, so the events cost the loop nothing but the
    // work.
    constexpr int kFirst = 2, kNodes = 8, kRounds = 25;  // 200 cycles
    const NodeSwitch nodes(bed_.testbed());
    for (int n = kFirst; n < kFirst + kNodes; ++n) {
        ASSERT_TRUE(bed_.add(n, dev::full_keyboard().on("usb-musb-hdrc.1-1.1." + std::to_string(n) + "/input0")));
        ASSERT_TRUE(nodes.set(n, false));
    }
    std::vector<tactord::input_event> burst;
    for (int i = 0; i < 5; ++i)
        burst.insert(burst.end(), {ev(EV_KEY, KEY_A, 1), ev(EV_KEY, KEY_A, 0)});
    int fds_before = -1;
    long rss_before = -1;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        if (round == 1) {
            // After a first round, which allocates what the daemon keeps for
            // good (the pipeline's per-device tables, the logger's stream).
            fds_before = testharness::open_fds(pid());
            rss_before = testharness::rss_kib(pid());
        }
        for (int n = kFirst; n < kFirst + kNodes; ++n)
            ASSERT_TRUE(nodes.set(n, true));
        // Registered: a keyboard is opened and its Caps Lock LED cleared
        // (before that, a node that vanishes is one that was never read).
        for (int n = kFirst; n < kFirst + kNodes; ++n)
            ASSERT_FALSE(bed_.written(n, kServeBound).empty()) << n;
        // Events stream in; the nodes vanish while the loop reads them.
        for (int i = 0; i < 3; ++i)
            for (int n = kFirst; n < kFirst + kNodes; ++n)
                bed_.play(n, burst);
        const std::size_t mark = daemon_->mark();
        for (int n = kFirst; n < kFirst + kNodes; ++n)
            ASSERT_TRUE(nodes.set(n, false));
        for (int n = kFirst; n < kFirst + kNodes; ++n)
            ASSERT_TRUE(daemon_->wait_for("/dev/event" + std::to_string(n) + " fail to connect!\n", mark));
    }
    const int fds_after = testharness::open_fds(pid());
    const long rss_after = testharness::rss_kib(pid());
    std::printf("daemon descriptors %d -> %d, VmRSS %ld -> %ld KiB over %d plug cycles\n", fds_before, fds_after,
                rss_before, rss_after, kRounds * kNodes);
    EXPECT_EQ(fds_after, fds_before);
    // The daemon allocates nothing per cycle that it keeps; what moves is
    // the allocator's and the log pipe's slack. Under AddressSanitizer freed
    // memory is held in quarantine for a while, and under ThreadSanitizer
    // its shadow and its record of each thread's history grow; RSS shows
    // both.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr long kRssSlackKib = 8192;
#else
    constexpr long kRssSlackKib = 512;
#endif
    EXPECT_LE(rss_after, rss_before + kRssSlackKib);
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    ASSERT_TRUE(testharness::round_trip(main, 8));
    main_is_served(main);
}

// ---------------------------------------------------------------------------
// The scanner and key-sound sockets serve their newest client. One that
// goes is not noticed: what is written to it is lost, and only to it; a new
// client replaces it and gets everything from then on. The daemon meanwhile
// serves its display clients. (Two live clients, one replacing the other,
// are tested on the services themselves: usbgun_s_test.cpp and
// key_sound_test.cpp.)

int connect_unix(const std::string& path)
{
    for (int tries = 0; tries < 500; ++tries) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0)
            return fd;
        close(fd);
        std::this_thread::sleep_for(20ms);
    }
    return -1;
}

// Exactly n bytes from fd within kServeBound, or fewer.
testsupport::Bytes read_exactly(int fd, std::size_t n)
{
    testsupport::Bytes out(n);
    timeval tv{static_cast<time_t>(kServeBound.count() / 1000), 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    const ssize_t got = recv(fd, out.data(), n, MSG_WAITALL);
    out.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return out;
}

TEST_F(FaultDrills, AScannerClientThatGoesIsReplacedByTheNext)
{
    // The inventory goes to the client whenever the number of event nodes
    // changes: a head (flag, function 0, 16772) and the list.
    testsupport::write_file(root_.at("/proc/bus/input/devices"),
                            testsupport::listed_device(1, 2, "Test Multi Touch", "usb-musb-hdrc.0-1/input0", "event0"));
    start();
    const std::string log = root_.at("/tmp/scan-server.txt");
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    const auto inventory_head = testsupport::words({0xAA77BBAA, 0, 16772});
    const auto next_inventory = [](int fd) {
        const auto rec = read_exactly(fd, 12 + 16772);
        return rec.size() == 12 + 16772 ? testsupport::Bytes(rec.begin(), rec.begin() + 12) : testsupport::Bytes{};
    };
    const int first = connect_unix(root_.at(SCANNER_SOCKET_PATH));
    ASSERT_GE(first, 0);
    EXPECT_EQ(next_inventory(first), inventory_head);
    close(first);

    ASSERT_TRUE(bed_.add(4, dev::full_keyboard()));
    ASSERT_TRUE(testsupport::wait_for_file_text(log, "Unix_socket write is failure.\r\n"));
    main_is_served(main);

    const int second = connect_unix(root_.at(SCANNER_SOCKET_PATH));
    ASSERT_GE(second, 0);
    ASSERT_TRUE(testsupport::wait_for_file_text(log, "Usb scan unix client connected...\r\n", 2));
    ASSERT_TRUE(bed_.add(5, dev::full_keyboard().on("usb-musb-hdrc.1-1.1.5/input0")));
    EXPECT_EQ(next_inventory(second), inventory_head);
    close(second);
    main_is_served(main);
    EXPECT_TRUE(daemon_->alive());
}

TEST_F(FaultDrills, AKeySoundClientThatGoesIsReplacedByTheNext)
{
    start();
    driver_.set_volume(3);
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    const std::string log = root_.at("/tmp/audio-server.txt");
    const auto click = testsupport::words({0xAABBCCFF, 20, 3, 0, 0xef0419bf});  // volume 3, touchscreen 0
    const int first = connect_unix(root_.at(KEY_AUDIO_SOCKET_PATH));
    ASSERT_GE(first, 0);
    ASSERT_TRUE(testsupport::wait_for_file_text(log, "Key Audio Socket server initation success...\r\n"));
    main_is_served(main);
    EXPECT_EQ(read_exactly(first, 20), click);
    close(first);

    // Its click is lost with it (the write fails with a broken pipe, which
    // the daemon catches); the touch itself is not.
    const std::size_t mark = daemon_->mark();
    main_is_served(main);
    EXPECT_TRUE(daemon_->wait_for("catch a signal: 13", mark));

    const int second = connect_unix(root_.at(KEY_AUDIO_SOCKET_PATH));
    ASSERT_GE(second, 0);
    ASSERT_TRUE(testsupport::wait_for_file_text(log, "key audio unix client connected...\r\n"));
    for (int i = 0; i < 3; ++i) {
        main_is_served(main);
        EXPECT_EQ(read_exactly(second, 20), click) << i;
    }
    close(second);
    EXPECT_TRUE(daemon_->alive());
}

// ---------------------------------------------------------------------------
// The log file on a full file system: writes to it fail and are ignored (the
// logger reports only a failed open); the daemon runs and serves on.

TEST_F(FaultDrills, ALogFileOnAFullFileSystemDoesNotStopTheDaemon)
{
    // A private mount namespace for this thread and the daemon it starts,
    // with a small tmpfs on the log directory, filled up.
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no private mount namespace (" << std::strerror(errno) << ")";
    const std::string logdir = root_.at("/var/log");
    ASSERT_EQ(mount("tmpfs", logdir.c_str(), "tmpfs", 0, "size=64k"), 0) << std::strerror(errno);
    struct Unmount {
        std::string dir;
        ~Unmount() { umount2(dir.c_str(), MNT_DETACH); }
    } unmount{logdir};
    {
        const int fd = open((logdir + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        const std::vector<char> block(4096, 'x');
        while (write(fd, block.data(), block.size()) > 0) {
        }
        close(fd);
    }
    start({"-p", "1", "-d", "0", "-i", "0"});
    DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    ASSERT_TRUE(testharness::round_trip(main, 9));
    testharness::ServingProbe probe(root_.path());
    // Every event is logged at debug level: hundreds of lines that do not fit.
    for (int i = 0; i < 50; ++i)
        main_is_served(main);
    EXPECT_EQ(probe.stop(), 0);
    std::error_code ec;
    EXPECT_EQ(std::filesystem::file_size(logdir + "/tactord.log", ec), 0U) << "no line fits";
    EXPECT_TRUE(daemon_->alive());
    daemon_.reset();  // before the file system goes
}

// ---------------------------------------------------------------------------
// A stalled main loop: the watchdog ends the process with SIGABRT once the
// loop has made no pass for more than 30 seconds, for a supervisor to start
// it again (packaging/tactord.service, packaging/inittab). The 30 s are the
// daemon's fixed limit, so this drill takes about 31 s.
//
// The stall comes from outside: the log file is a FIFO whose reader stops
// reading. The logger writes under its lock, so once the pipe is full the
// thread writing blocks with the lock held, and the main loop blocks at its
// next log line. ("mv" cannot rotate the FIFO away: a directory stands in
// the way inside the ".old" directory.)

TEST_F(FaultDrills, AStalledMainLoopIsAbortedByTheWatchdog)
{
    const std::string log = root_.at("/var/log/tactord.log");
    std::filesystem::create_directories(root_.at("/var/log/tactord.log.old/tactord.log/keep"));
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    // The reader is there from the start (the daemon's open waits for one)
    // and drains the pipe until the loop runs, its watchdog with it.
    const int reader = open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    std::atomic<bool> draining{true};
    std::thread drain([&] {
        char buf[4096];
        while (draining.load())
            if (read(reader, buf, sizeof buf) <= 0)
                std::this_thread::sleep_for(10ms);
    });
    start({"-p", "1", "-d", "0", "-i", "0"});
    draining.store(false);
    drain.join();
    DisplayClient ctl(root_.path());
    ASSERT_TRUE(testharness::round_trip(ctl, 0));
    // Each record logs a line; the pipe and the stream's buffer fill, and a
    // record goes unanswered.
    bool stalled = false;
    for (int i = 1; i < 5000 && !stalled; ++i)
        stalled = !testharness::round_trip(ctl, i, 2s);
    ASSERT_TRUE(stalled);
    EXPECT_FALSE(testharness::wait_end(pid(), 0ms).has_value()) << "ended before the watchdog's limit";
    const auto end = testharness::wait_end(pid(), 60s);
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(*end, SIGABRT);
    close(reader);
}

}  // namespace
