#include "common/imc_protocol/imc_linux.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <set>

#include "common/imc_protocol/platform_internal.h"
#include "support/imc_peer.h"

namespace {

using testsupport::Bytes;
using testsupport::ImcLink;
using testsupport::ImcWorld;

// An allocator that fails its n-th call and knows what is still allocated.
int g_calls = 0;
int g_fail_at = -1;
std::set<void*> g_live;

void* counting_calloc(std::size_t count, std::size_t size)
{
    if (g_calls++ == g_fail_at)
        return nullptr;
    void* p = std::calloc(count, size);
    g_live.insert(p);
    return p;
}

void counting_free(void* p)
{
    g_live.erase(p);
    std::free(p);
}

TEST(ImcStackInit, FreesEverythingWhenAnyAllocationFails)
{
    ImcWorld world;
    IMC_Linux_Locks locks;
    const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
    IMC_Platform_Set_Allocator(counting_calloc, counting_free);
    g_calls = 0;
    g_fail_at = -1;
    IMC_Stack_Handle_s* h = Stack_Init(nullptr, nullptr, nullptr, &IMC_FRONT_BOARD_CONFIG, &ops);
    ASSERT_NE(h, nullptr);
    const int allocations = g_calls;
    EXPECT_EQ(allocations, 7);
    Stack_Release(h);
    EXPECT_TRUE(g_live.empty());
    for (g_fail_at = 0; g_fail_at < allocations; ++g_fail_at) {
        g_calls = 0;
        EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, &IMC_FRONT_BOARD_CONFIG, &ops), nullptr);
        EXPECT_TRUE(g_live.empty()) << "allocation " << g_fail_at << " failed";
    }
    IMC_Platform_Set_Allocator(nullptr, nullptr);

    // Configurations the stack cannot work with.
    for (auto field : {&IMC_Config_s::max_transaction_num, &IMC_Config_s::mem_block_num,
                       &IMC_Config_s::mem_block_size, &IMC_Config_s::max_package_length}) {
        IMC_Config_s c = IMC_FRONT_BOARD_CONFIG;
        c.*field = field == &IMC_Config_s::mem_block_size || field == &IMC_Config_s::max_package_length ? 5 : 0;
        EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, &c, &ops), nullptr);
    }
    EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, nullptr, &ops), nullptr);
}

// The frames of two events, {0x21} and {0x22, 0x7E}.
const Bytes EVENT_1 = {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x21, 0xC5, 0x09};
const Bytes EVENT_2 = {0x00, 0x7E, 0x00, 0x00, 0x08, 0x01, 0x00, 0x00,
                       0x00, 0x00, 0x02, 0x22, 0x7D, 0x5E, 0xC2, 0xF1};

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

TEST(ImcLinkReader, StartsOverAfterEachFrameAndEachDecoderError)
{
    Bytes bad_crc = EVENT_1;
    bad_crc.back() ^= 0xFF;
    const Bytes too_long = {0x00, 0x7E, 0x00, 0x00, 201};  // above the reader's 200
    struct reader_case {
        const char* name;
        Bytes stream;
        std::vector<Bytes> events;
    };
    const Bytes no_lead_in(EVENT_1.begin() + 1, EVENT_1.end());
    const std::array<reader_case, 5> cases = {{
        {"two frames back to back", join({EVENT_1, EVENT_2}), {{0x21}, {0x22, 0x7E}}},
        {"CRC error, then a frame", join({bad_crc, EVENT_2}), {{0x22, 0x7E}}},
        {"bad marker, then a frame", join({{0x7E, 0x55}, EVENT_2}), {{0x22, 0x7E}}},
        {"a flag where the marker belongs starts the frame", join({{0x7E}, no_lead_in}), {{0x21}}},
        {"length above 200, then a frame", join({too_long, EVENT_1}), {{0x21}}},
    }};
    for (const auto& c : cases) {
        for (size_t piece : {size_t{1}, size_t{5}, c.stream.size()}) {
            SCOPED_TRACE(std::string(c.name) + ", pieces of " + std::to_string(piece));
            ImcWorld world;
            ImcLink link;
            link.b->feed(c.stream, piece);
            EXPECT_EQ(link.b->events, c.events);
        }
    }
}

TEST(ImcLinkReader, ReadsADescriptorUntilItsEnd)
{
    ImcWorld world;
    ImcLink link;
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    const Bytes stream = join({EVENT_1, EVENT_2});
    ASSERT_EQ(write(p[1], stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
    close(p[1]);
    EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b->handle), 0);
    EXPECT_EQ(link.b->events, (std::vector<Bytes>{{0x21}, {0x22, 0x7E}}));
    close(p[0]);
    EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b->handle), -1);
}

}  // namespace
