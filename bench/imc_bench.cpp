// The IMC link's per-frame costs on the receive and send paths: framing a
// message, decoding a frame, and a whole event from the line to its handler.
#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "common/imc_protocol/fcs.h"
#include "common/imc_protocol/imc_linux.h"

namespace {

// A message of n bytes in which every seventh byte needs escaping.
std::vector<uint8_t> message(size_t n)
{
    std::vector<uint8_t> m(n);
    for (size_t i = 0; i < n; ++i)
        m[i] = i % 7 == 0 ? 0x7E : static_cast<uint8_t>(i);
    m[0] = 0x01;  // version
    m[1] = 0x00;  // event
    m[2] = m[3] = 0;
    m[4] = 0;
    m[5] = static_cast<uint8_t>(n - 6);
    return m;
}

std::vector<uint8_t> frame_of(const std::vector<uint8_t>& m)
{
    std::vector<uint8_t> f(2 * m.size() + 16);
    f.resize(IMC_Encode_Frame(m.size(), m.data(), f.data(), f.size()));
    return f;
}

void BM_EncodeFrame(benchmark::State& state)
{
    const auto m = message(static_cast<size_t>(state.range(0)));
    std::vector<uint8_t> out(2 * m.size() + 16);
    for (auto _ : state)
        benchmark::DoNotOptimize(IMC_Encode_Frame(m.size(), m.data(), out.data(), out.size()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * m.size()));
}
BENCHMARK(BM_EncodeFrame)->Arg(16)->Arg(200);

void BM_DecodeFrame(benchmark::State& state)
{
    const auto f = frame_of(message(static_cast<size_t>(state.range(0))));
    std::array<uint8_t, 256> out{};
    status_s st{};
    for (auto _ : state) {
        IMC_Decode_Reset(&st, out.data(), out.size());
        benchmark::DoNotOptimize(IMC_Decode_Frame(&st, static_cast<int32_t>(f.size()), f.data(), 200));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.size()));
}
BENCHMARK(BM_DecodeFrame)->Arg(16)->Arg(200);

int count_event(void* count, const uint8_t*, uint16_t)
{
    ++*static_cast<long*>(count);
    return 0;
}

void BM_EventFromTheLine(benchmark::State& state)
{
    IMC_Linux_Locks locks;
    const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
    IMC_Stack_Handle_s* h = Stack_Init(nullptr, count_event, nullptr, &IMC_FRONT_BOARD_CONFIG, &ops);
    long events = 0;
    h->private_data = &events;
    IMC_Link_Reader reader;
    IMC_Link_Reader_Init(&reader);
    const auto f = frame_of(message(16));
    for (auto _ : state)
        IMC_Link_Reader_Feed(&reader, h, f.data(), static_cast<uint32_t>(f.size()));
    if (events != static_cast<long>(state.iterations()))
        state.SkipWithError("events lost");
    Stack_Release(h);
}
BENCHMARK(BM_EventFromTheLine);

}  // namespace
