// The daemon frame's per-event and per-pass costs: the monitor-list walk that
// every main-loop pass makes, a filtered log call (the common case on the
// event path), and the seat lookup made for every device that appears.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>

#include "common/log.h"
#include "common/multi_config.h"
#include "msg_handle.h"

namespace {

int count_handler(void* arg)
{
    ++*static_cast<long*>(arg);
    return 0;
}

void BM_DispatchFullList(benchmark::State& state)
{
    long calls = 0;
    for (int fd = 1; fd <= EVENT_LIST_MAX; ++fd)
        add_monitor_handle(fd + 100, count_handler, &calls);
    fd_set ready;
    int max_fd = 0;
    fill_monitor_set(&ready, &max_fd);
    for (auto _ : state)
        dispatch_monitor_handles(&ready);
    benchmark::DoNotOptimize(calls);
    for (int fd = 1; fd <= EVENT_LIST_MAX; ++fd)
        remove_monitor_handle(fd + 100);
}
BENCHMARK(BM_DispatchFullList);

void BM_FilteredLogCall(benchmark::State& state)
{
    set_log_level(LEVEL_ERROR);
    for (auto _ : state)
        benchmark::DoNotOptimize(TLOG(LEVEL_DEBUG, "event %d %d %d\n", 1, 2, 3));
}
BENCHMARK(BM_FilteredLogCall);

void BM_SeatLookup(benchmark::State& state)
{
    char path[] = "/tmp/tactord-bench-port.conf.XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        state.SkipWithError("mkstemp");
        return;
    }
    FILE* f = fdopen(fd, "w");
    std::fputs("StartSection \"Input\"\n", f);
    for (int i = 1; i <= DEVICE_SEAT_MAX; ++i)
        std::fprintf(f, "usb-musb-hdrc.1-1.%d %d\n", i, i);
    std::fputs("EndSection\n", f);
    std::fclose(f);
    config_init(path);
    unlink(path);
    for (auto _ : state)
        benchmark::DoNotOptimize(get_device_seat("usb-musb-hdrc.1-1.15/input0"));
}
BENCHMARK(BM_SeatLookup);

}  // namespace
