#include "arm/input_manager.h"

#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "arm/IndpClient.h"
#include "arm/hot_plug.h"
#include "board/common/board.h"
#include "common/OrvelClient.h"
#include "common/client_send.h"
#include "common/communicate.h"
#include "common/cursor_timer.h"
#include "common/instance_lock.h"
#include "common/keyaudio/key_voice.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/multi_config.h"
#include "common/screen_manager.h"
#include "common/service_notify.h"
#include "common/system_msg.h"
#include "common/system_msg_internal.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "common/worker_thread.h"
#include "func/touchscreen/touchscreen_lock_ctl.h"
#include "msg_handle.h"
#include "vr_memmanager.h"
#include "vr_os.h"

std::atomic<unsigned int> nWatdogReset{0};

const char* tactordVersion()
{
    return TACTORD_VERSION;
}

void print_my_version()
{
    TLOG(LEVEL_ERROR, "\n");
    TLOG(LEVEL_ERROR, "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@\n");
    TLOG(LEVEL_ERROR, "@                                                           @\n");
    TLOG(LEVEL_ERROR, "@                  Tactord - %s                  @\n", tactordVersion());
    TLOG(LEVEL_ERROR, "@                                                           @\n");
    TLOG(LEVEL_ERROR, "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@\n");
    TLOG(LEVEL_ERROR, "\n");
    TLOG(LEVEL_ERROR, "Build time %s %s\n", __DATE__, __TIME__);
}

void signal_handler(int sig)
{
    // Only logged: the interrupted call then fails (a broken socket write
    // returns EPIPE) instead of the process being killed. A signal that lands
    // while this thread is inside the logger (a SIGWINCH in the middle of a
    // line, or the SIGPIPE of writing that line to a closed pipe) drops its
    // own line: logging it would take the logger's lock a second time.
    if (log_write_active())
        return;
    const int saved_errno = errno;
    TLOG(LEVEL_ERROR, "catch a signal: %d", sig);
    errno = saved_errno;
}

void signal_initcapture()
{
    for (int sig : CAUGHT_SIGNALS)
        signal(sig, signal_handler);
}

tactord_options parse_options(int argc, char** argv, FILE* warnings)
{
    tactord_options opts;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0) {
            opts.help = true;
            continue;
        }
        if (std::strcmp(arg, "--version") == 0) {
            opts.version = true;
            continue;
        }
        const bool known = std::strcmp(arg, "-d") == 0 || std::strcmp(arg, "-p") == 0 ||
                           std::strcmp(arg, "-t") == 0 || std::strcmp(arg, "-i") == 0;
        if (!known) {
            // Still skipped, so that a command line written for another
            // release starts the daemon, but no longer silently.
            std::fprintf(warnings, "tactord: ignoring unknown option '%s' (tactord --help lists the options)\n", arg);
            continue;
        }
        // An option given last has no value; it is ignored instead of reading
        // past the argument list.
        if (i + 1 >= argc) {
            std::fprintf(warnings, "tactord: ignoring option %s: it needs a value\n", arg);
            break;
        }
        const int value = static_cast<int>(std::strtol(argv[++i], nullptr, 10));
        switch (arg[1]) {
        case 'd': set_log_level(value); break;
        case 'p': set_log_to_stdout(value); break;
        case 't': gs_ipcType = value; break;
        case 'i': opts.init_ipc = value; break;
        default: break;
        }
    }
    return opts;
}

void print_usage(FILE* out)
{
    std::fprintf(out,
                 "Usage: tactord [-d LEVEL] [-p DEST] [-t TYPE] [-i 0|1]\n"
                 "Input-management daemon: reads the input devices and delivers their events to the\n"
                 "display clients of the control socket %s.\n"
                 "\n"
                 "  -d LEVEL   log threshold: 0 info, 1 debug, 2 warn, 3 error (default)\n"
                 "  -p DEST    log to 0 standard output, 1 /var/log/tactord.log (needs /var/log),\n"
                 "             2 syslog (default)\n"
                 "  -t TYPE    events to the remote screen: 0 mouse records (default), else raw events\n"
                 "  -i 0|1     0: do not start the remote-screen clients (default 1)\n"
                 "  -h, --help this text\n"
                 "  --version  print the version\n"
                 "\n"
                 "port.conf is read from the working directory. One daemon runs per root (lock %s).\n"
                 "TACTORD_ROOT=DIR puts the daemon's sockets, logs and lock under DIR. Under a service\n"
                 "manager that sets NOTIFY_SOCKET the daemon reports READY=1 once the control socket\n"
                 "listens, and WATCHDOG=1 when WATCHDOG_USEC asks for it.\n",
                 SYSTEM_MSG_SOCKET, INSTANCE_LOCK_PATH);
}

void main_loop_pass(int* max_fd)
{
    static fd_set read_set;
    nWatdogReset.fetch_add(1, std::memory_order_relaxed);

    LockIpcSocket();
    int due_ms = -1;
    {
        // Decisions that fall due while nothing is readable: clients whose
        // socket stayed full, records that never came whole, a listener
        // resting for want of descriptors. The wait below ends in time for
        // the next of them. Dropping a client may tell the others of a
        // cursor that moved: those sends have a bound of their own.
        IoWaitLimit limit(HOUSEKEEPING_WAIT_BOUND_MS);
        due_ms = client_send_housekeeping(drop_client_connection);
        const int service_due_ms = system_service_housekeeping();
        if (service_due_ms >= 0 && (due_ms < 0 || service_due_ms < due_ms))
            due_ms = service_due_ms;
    }
    fill_monitor_set(&read_set, max_fd);
    UnlockIpcSocket();

    timeval tv{1, 0};
    if (due_ms >= 0 && due_ms < 1000)
        tv = {0, static_cast<suseconds_t>(due_ms) * 1000 + 1000};
    const int ready = select(*max_fd + 1, &read_set, nullptr, nullptr, &tv);
    if (ready == -1) {
        if (errno != EINTR) {
            TLOG(LEVEL_ERROR, "select error,errno is %d\n", errno);
            usleep(100000);
        }
        return;
    }
    if (ready == 0)
        return;

    LockIpcSocket();
    // However the peers behave, the waits of one dispatch (a client's full
    // socket, a slow read) end within one bound: the watchdog sees a pass
    // at least every MAIN_LOOP_WAIT_BOUND_MS or so, and every other client is
    // served as often.
    {
        IoWaitLimit limit(MAIN_LOOP_WAIT_BOUND_MS);
        dispatch_monitor_handles(&read_set);
    }
    UnlockIpcSocket();
}

namespace {

// One daemon per root, decided before the first log line: in file mode that
// line rotates the log, which belongs to the daemon already running.
void claim_instance()
{
    pid_t holder = 0;
    const int taken = take_instance_lock(&holder);
    if (taken == 1) {
        std::fprintf(stderr, "tactord is already running (pid %d)\n", static_cast<int>(holder));
        std::exit(1);
    }
    // The daemon owns every input device: where the lock file cannot be
    // made (a read-only /var) it still comes up, unguarded, and says so.
    if (taken < 0)
        std::fprintf(stderr, "tactord: cannot take the lock %s (%s): a second instance would not be refused\n",
                     INSTANCE_LOCK_PATH, std::strerror(errno));
}

}  // namespace

void input_manager_main(int argc, char** argv)
{
    // A supervisor reading our standard output gets every line as it is
    // written, also through a pipe or into a file.
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    const tactord_options opts = parse_options(argc, argv);
    if (opts.help || opts.version) {
        if (opts.help)
            print_usage(stdout);
        else
            std::printf("tactord %s\n", tactordVersion());
        std::exit(0);
    }
    claim_instance();
    print_my_version();
    signal_initcapture();
    // Every thread started from here on (the adapter's tasks included)
    // inherits the caught signals blocked; the main thread takes them again
    // when it enters its loop, so only it ever runs the handler.
    mask_caught_signals(true);
    config_init("port.conf");
    output_info_init();
    input_init();
    touchscreeninit();
    VR_SysInit();
    InitDriverAdapter(5);
    if (opts.init_ipc != 0) {
        initIpcClient();
        InitArmIndpScreenClient();
    }
    const int control = start_system_service();
    start_hotplug_service();
    init_cursor_timer();
    UsbScanGunInit();
    Key_Audio_Init();
    TLOG(LEVEL_DEBUG, "nice is %d\n", nice(-20));
    nWatdogReset.store(0, std::memory_order_relaxed);
    Init_Watch(1, &nWatdogReset, 30);
    // Units ordered after the daemon (the calibration restore, display
    // clients) start once it is ready: the control socket listens and the
    // loop below serves it. Without the socket no client can reach the
    // daemon, so it does not claim readiness and the manager's start
    // time-out restarts it.
    if (control == 0 && service_notify("READY=1") < 0)
        TLOG(LEVEL_ERROR, "cannot notify the service manager at %s\n", std::getenv("NOTIFY_SOCKET"));

    mask_caught_signals(false);
    int max_fd = 0;
    for (;;)
        main_loop_pass(&max_fd);
}

// Memory-manager hooks asked for by the OS layer.
void GetUserDefinedMemManagerConfig(UserDefinedMemManagerConfig* cfg)
{
    if (cfg == nullptr)
        return;
    cfg->m_initMallocFuncPtr = nullptr;
    cfg->m_memManageAlgorithm = MemManageAlgorithm_Buddy;
    cfg->m_initializememory = 0;
    cfg->m_uninitializememory = 0;
    cfg->m_record_alloc_memory_info = 1;
    cfg->m_reportMemErrorFuncPtr = nullptr;
    cfg->m_heapSize = 0x2000000;
    // m_maxHoles and m_fragmentMinSize stay as the caller set them.
}

uint32_t GetHeapSize()
{
    // Deliberately not m_heapSize: the layer asks two different questions.
    return 52428800;
}

void DumpCorruptedMem(char*) {}
