// The hot path from device to display client: batches of 16 kernel records
// (mouse motion and its reports) read from a node stand-in by EvdevReadInput,
// routed by the event pipeline and written to a display client's socket,
// beside a baseline that only reads the same batch (one read) and sends each
// record (one send each), without routing. Reports events per second, the
// time per event, the pipeline's throughput as a share of the baseline's,
// and heap allocations per event (operator new and the C allocator), which
// must stay at zero.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/input.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <string>

#include "common/evdev_msg.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

// Allocation counting: the replaceable operator new, and the C allocator
// through the linker's --wrap (see bench/CMakeLists.txt). GCC takes the
// free() in the replacement delete for a mismatch with new; here both sides
// are ours.
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

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t n, std::size_t size);
void* __real_realloc(void* p, std::size_t size);
void* __wrap_malloc(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __real_malloc(size);
}
void* __wrap_calloc(std::size_t n, std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __real_realloc(p, size);
}
}

namespace {

constexpr std::size_t BATCH = 16;
using batch_t = std::array<::input_event, BATCH>;

// Five motion reports and a sixth X move: every record reaches the client.
batch_t motion_batch()
{
    batch_t b{};
    for (std::size_t i = 0; i < BATCH; ++i) {
        const std::size_t k = i % 3;
        b[i].type = k == 2 ? EV_SYN : EV_REL;
        b[i].code = k == 0 ? REL_X : (k == 1 ? REL_Y : SYN_REPORT);
        b[i].value = k == 2 ? 0 : ((i / 3) % 2 == 0 ? 3 : -3);
    }
    return b;
}

// A mouse on the main screen of a 1920 x 1080 panel in clone mode, its node
// a socket pair, the main client's connection another.
class Bed {
public:
    Bed()
    {
        set_log_level(LEVEL_ERROR);
        screen_model_reset();
        pipeline_reset();
        input_init();
        output_info_init();
        ok_ = socketpair(AF_UNIX, SOCK_STREAM, 0, node_) == 0 && socketpair(AF_UNIX, SOCK_STREAM, 0, client_) == 0;
        if (!ok_)
            return;
        fcntl(node_[0], F_SETFL, O_NONBLOCK);
        fcntl(client_[1], F_SETFL, O_NONBLOCK);
        gs_clients[MAIN_SCREEN].store(client_[0]);
        dev_.name = name_.data();
        dev_.type = INPUT_TYPE_MOUSE;
        dev_.seat = 2;
        dev_.fd = node_[0];
    }
    ~Bed()
    {
        gs_clients[MAIN_SCREEN].store(0);
        for (int fd : {node_[0], node_[1], client_[0], client_[1]})
            close(fd);
    }
    Bed(const Bed&) = delete;
    Bed& operator=(const Bed&) = delete;

    bool ok() const { return ok_; }
    // Outside the measurement: the kernel's side of the node, and the client
    // reading what it got.
    bool feed(const batch_t& b) const { return write(node_[1], b.data(), sizeof b) == static_cast<ssize_t>(sizeof b); }
    void drain() const
    {
        std::array<char, 4096> buf;
        while (read(client_[1], buf.data(), buf.size()) > 0) {
        }
    }
    _InputDev& dev() { return dev_; }
    int node() const { return node_[0]; }
    int client() const { return client_[0]; }

private:
    bool ok_ = false;
    int node_[2] = {-1, -1};
    int client_[2] = {-1, -1};
    std::array<char, 16> name_{"touchscreen_sub"};
    _InputDev dev_;
};

// The measured bodies, kept out of line so that callgrind can collect them
// alone (--toggle-collect).
__attribute__((noinline)) void pipeline_batch(_InputDev& dev)
{
    EvdevReadInput(&dev);
}

__attribute__((noinline)) void baseline_batch(int node, int client)
{
    batch_t in;
    const ssize_t n = read(node, in.data(), sizeof in);
    for (ssize_t i = 0; i < n / static_cast<ssize_t>(sizeof(::input_event)); ++i) {
        const tactord::input_event out{static_cast<int32_t>(in[i].input_event_sec),
                                       static_cast<int32_t>(in[i].input_event_usec), in[i].type, in[i].code,
                                       in[i].value};
        send(client, &out, sizeof out, MSG_NOSIGNAL);
    }
}

// One bed for every run: the screen model is set up once.
Bed& shared_bed()
{
    static Bed bed;
    return bed;
}

template <bool Pipeline>
void run(benchmark::State& state)
{
    Bed& bed = shared_bed();
    if (!bed.ok()) {
        state.SkipWithError("socketpair");
        return;
    }
    const batch_t batch = motion_batch();
    long allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        bed.drain();
        if (!bed.feed(batch)) {
            state.SkipWithError("write");
            break;
        }
        const long before = g_allocations.load();
        state.ResumeTiming();
        if constexpr (Pipeline)
            pipeline_batch(bed.dev());
        else
            baseline_batch(bed.node(), bed.client());
        allocations += g_allocations.load() - before;
    }
    const auto events = static_cast<double>(state.iterations() * BATCH);
    state.counters["allocs_per_event"] = benchmark::Counter(static_cast<double>(allocations) / events);
    state.counters["time_per_event"] =
        benchmark::Counter(BATCH, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetItemsProcessed(state.iterations() * static_cast<long>(BATCH));
}

void BM_Baseline(benchmark::State& state)
{
    run<false>(state);
}
void BM_Pipeline(benchmark::State& state)
{
    run<true>(state);
}
BENCHMARK(BM_Baseline);
BENCHMARK(BM_Pipeline);
// Fixed counts for instruction counting under callgrind.
BENCHMARK(BM_Baseline)->Iterations(2000);
BENCHMARK(BM_Pipeline)->Iterations(2000);

// The console report, plus the pipeline's throughput as a share of the
// baseline's.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            const auto it = r.counters.find("items_per_second");
            if (it != r.counters.end())
                rate_[r.benchmark_name()] = it->second.value;
        }
    }
    void Finalize() override
    {
        ConsoleReporter::Finalize();
        // With repetitions, the medians.
        const std::string suffix = rate_.count("BM_Baseline_median") != 0 ? "_median" : "";
        const double base = rate_["BM_Baseline" + suffix];
        if (base > 0)
            std::printf("pipeline / baseline throughput: %.3f\n", rate_["BM_Pipeline" + suffix] / base);
    }

private:
    std::map<std::string, double> rate_;
};

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
