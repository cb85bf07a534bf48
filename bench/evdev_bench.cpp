// The device-read end of the hot path: a batch of kernel records read from a
// node, converted to the daemon's record and handed to the pipeline entry.
// Reports heap allocations per batch, which must stay at zero.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

#include "common/evdev_msg.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

// Replacement allocation functions that count. GCC takes the free() in the
// replacement delete for a mismatch with new; here both sides are ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size != 0 ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
#pragma GCC diagnostic pop

namespace {

void BM_ReadBatchOfSixteen(benchmark::State& state)
{
    set_log_level(LEVEL_ERROR);
    int fds[2];
    if (pipe2(fds, O_NONBLOCK) != 0) {
        state.SkipWithError("pipe");
        return;
    }
    std::array<::input_event, 16> batch{};
    for (std::size_t i = 0; i < batch.size(); ++i) {
        batch[i].type = EV_ABS;
        batch[i].code = i % 2 == 0 ? ABS_X : ABS_Y;
        batch[i].value = static_cast<int>(i);
    }
    batch.back() = {};  // SYN_REPORT

    _InputDev dev;
    dev.fd = fds[0];
    dev.type = INPUT_TYPE_TOUCHSCREEN;
    dev.seat = 5;
    long allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        if (write(fds[1], batch.data(), sizeof batch) != static_cast<ssize_t>(sizeof batch)) {
            state.SkipWithError("write");
            break;
        }
        const long before = g_allocations.load();
        state.ResumeTiming();
        EvdevReadInput(&dev);
        allocations += g_allocations.load() - before;
    }
    state.counters["allocs_per_batch"] = benchmark::Counter(static_cast<double>(allocations),
                                                            benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(state.iterations() * static_cast<long>(batch.size()));
    close(fds[0]);
    close(fds[1]);
}
BENCHMARK(BM_ReadBatchOfSixteen);

}  // namespace
