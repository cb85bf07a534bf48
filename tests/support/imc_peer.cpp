#include "support/imc_peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "common/imc_protocol/imcprotocol_internal.h"
#include "common/imc_protocol/platform_internal.h"
#include "common/send_log_internal.h"

namespace testsupport {
namespace {

std::mutex g_log_lock;  // guards g_log
std::vector<std::string> g_log;

ImcPeer& peer(void* private_data)
{
    return *static_cast<ImcPeer*>(private_data);
}

int write_link(void* private_data, const uint8_t* data, uint32_t len)
{
    ImcPeer& p = peer(private_data);
    return static_cast<int>(write(p.fd, data, p.short_write > 0 ? std::min(len, p.short_write) : len));
}

int on_event(void* private_data, const uint8_t* payload, uint16_t len)
{
    peer(private_data).events.emplace_back(payload, payload + len);
    return 0;
}

void on_request(IMC_Transaction_s* t, void* private_data, const uint8_t* payload, uint16_t len)
{
    ImcPeer& p = peer(private_data);
    p.requests.emplace_back(payload, payload + len);
    p.last_request = t;
    const uint8_t answer[] = {len > 0 ? payload[0] : uint8_t{0}, 0xAA};
    if (p.answer_requests)
        IMC_Protocol_SendReply(t, answer, sizeof(answer));
}

void on_reply(void* private_data, const uint8_t* payload, uint16_t len)
{
    peer(private_data).replies.emplace_back(payload, payload + len);
}

}  // namespace

ImcWorld::ImcWorld(uint64_t start_ms)
{
    now_ms = start_ms;
    noreply_calls = 0;
    clear_log();
    IMC_Platform_Set_Clock([](uint64_t* now) {
        *now = now_ms.load();
        return 0;
    });
    send_log_set_sink([](int, const char* text) {
        std::lock_guard<std::mutex> guard(g_log_lock);
        g_log.emplace_back(text);
    });
}

ImcWorld::~ImcWorld()
{
    send_log_set_sink(nullptr);
    IMC_Platform_Set_Clock(nullptr);
}

int ImcWorld::logged(const std::string& part)
{
    std::lock_guard<std::mutex> guard(g_log_lock);
    return static_cast<int>(
        std::count_if(g_log.begin(), g_log.end(), [&](const std::string& l) { return l.find(part) != l.npos; }));
}

void ImcWorld::clear_log()
{
    std::lock_guard<std::mutex> guard(g_log_lock);
    g_log.clear();
}

ImcPeer::ImcPeer(const IMC_Config_s& config, int fd_) : fd(fd_)
{
    const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
    handle = Stack_Init(write_link, on_event, on_request, &config, &ops);
    handle->private_data = this;
    IMC_Link_Reader_Init(&reader);
}

ImcPeer::~ImcPeer()
{
    Stack_Release(handle);
    close(fd);
}

Bytes ImcPeer::take()
{
    Bytes got(65536);
    const ssize_t n = recv(fd, got.data(), got.size(), MSG_DONTWAIT);
    got.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return got;
}

int ImcPeer::feed(const Bytes& bytes, size_t piece)
{
    int messages = 0;
    for (size_t at = 0; at < bytes.size(); at += piece) {
        const auto n = static_cast<uint32_t>(std::min(piece, bytes.size() - at));
        messages += IMC_Link_Reader_Feed(&reader, handle, bytes.data() + at, n);
    }
    return messages;
}

int ImcPeer::send_request(const Bytes& data)
{
    return IMC_Protocol_SendRequest(handle, data.data(), static_cast<uint32_t>(data.size()), on_reply,
                                    [] { ++ImcWorld::noreply_calls; });
}

int ImcPeer::transactions_in_use() const
{
    const IMC_Stack_s& s = *handle->stack_addr;
    return static_cast<int>(std::count_if(s.transactionPtr, s.transactionPtr + s.transaction_num,
                                          [](const IMC_Transaction_s& t) { return t.in_use; }));
}

ImcLink::ImcLink(const IMC_Config_s& config_a, const IMC_Config_s& config_b)
{
    int sv[2] = {-1, -1};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv);
    a = std::make_unique<ImcPeer>(config_a, sv[0]);
    b = std::make_unique<ImcPeer>(config_b, sv[1]);
}

}  // namespace testsupport
