// Arbitrary bytes, cut into pieces, through the IMC frame decoder into a live
// stack. The first three bytes choose the cutting, the decoder's max_len and
// output room, and the stack's configuration.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/imc_protocol/fcs.h"
#include "common/imc_protocol/imc_linux.h"
#include "common/imc_protocol/imc_linux_internal.h"
#include "common/imc_protocol/imcprotocol.h"
#include "common/imc_protocol/platform_internal.h"
#include "common/send_log_internal.h"

namespace {

uint64_t g_now = 0;

int fake_clock(uint64_t* now)
{
    *now = g_now;
    return 0;
}

int sink_write(void*, const uint8_t*, uint32_t len)
{
    return static_cast<int>(len);
}

int on_event(void* private_data, const uint8_t* payload, uint16_t len)
{
    // Answer some events with an event of the same payload.
    if (len > 0 && (payload[0] & 1) != 0)
        IMC_Protocol_SendEvent(static_cast<IMC_Stack_Handle_s*>(private_data), len, payload);
    return 0;
}

void on_request(IMC_Transaction_s* t, void*, const uint8_t* payload, uint16_t len)
{
    // Even commands are answered at once with the request's own payload.
    if (len == 0 || (payload[0] & 1) == 0)
        IMC_Protocol_SendReply(t, payload, len);
}

void on_reply(void*, const uint8_t*, uint16_t) {}
void on_noreply() {}

constexpr std::array<int32_t, 6> MAX_LENS = {200, 0, 7, 0x7FFF, -1, 0x7FFFFFFF};
constexpr std::array<uint32_t, 4> ROOMS = {203, 3, 16, 0x7FFF + 3};

IMC_Config_s config_for(uint8_t choice)
{
    IMC_Config_s c = IMC_FRONT_BOARD_CONFIG;
    switch (choice % 3) {
    case 1:  // scarce: one transaction, two blocks
        c.max_transaction_num = 1;
        c.mem_block_num = 2;
        break;
    case 2:  // blocks longer than a package, short retries
        c.mem_block_size = 300;
        c.retry_time = 1;
        c.max_retry_count = 2;
        break;
    default:
        break;
    }
    return c;
}

class cutter {
public:
    explicit cutter(uint8_t seed) : state_(seed * 2654435761u + 1), max_(1u + seed % 64u) {}
    uint32_t next()
    {
        state_ = state_ * 1103515245u + 12345u;
        return 1 + (state_ >> 16) % max_;
    }

private:
    uint32_t state_;
    uint32_t max_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = [] {
        IMC_Platform_Set_Clock(fake_clock);
        send_log_set_sink([](int, const char*) {});
        return true;
    }();
    (void)ready;
    if (size < 3)
        return 0;
    const int32_t max_len = MAX_LENS[data[1] % MAX_LENS.size()];
    const uint32_t room = ROOMS[data[2] % ROOMS.size()];
    const IMC_Config_s config = config_for(data[2] / 4);
    data += 3;
    size -= 3;

    IMC_Linux_Locks locks;
    const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
    IMC_Stack_Handle_s* h = Stack_Init(sink_write, on_event, on_request, &config, &ops);
    if (h == nullptr)
        return 0;
    h->private_data = h;
    g_now = 1000;
    // Two requests of our own, sequences 1 and 2, for replies to match.
    const std::array<uint8_t, 2> request = {0x10, 0x7E};
    IMC_Protocol_SendRequest(h, request.data(), request.size(), on_reply, on_noreply);
    IMC_Protocol_SendRequest(h, request.data(), 1, on_reply, on_noreply);

    // The link reader's loop with the chosen limits, over an exact-size
    // buffer, with a tick after every piece.
    const auto out = std::make_unique<uint8_t[]>(room);
    status_s st{};
    IMC_Decode_Reset(&st, out.get(), room);
    cutter cut(data[-3]);
    for (size_t at = 0; at < size;) {
        const auto piece = static_cast<uint32_t>(std::min<size_t>(cut.next(), size - at));
        IMC_Link_Feed(&st, out.get(), room, max_len, h, data + at, piece);
        at += piece;
        g_now += 1 + piece % 97;
        IMC_Protocol_TimeTick(h);
    }
    g_now += 10000;
    IMC_Protocol_TimeTick(h);
    Stack_Release(h);
    return 0;
}
