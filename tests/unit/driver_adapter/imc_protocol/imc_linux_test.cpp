// Stack creation on Linux and the reading side of a link.
#include "common/imc_protocol/imc_linux.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "support/adapter.h"

namespace {

using testsupport::Bytes;
using testsupport::ImcLink;

// An allocator that fails its n-th call and knows what is still allocated.
int g_calls = 0;
int g_fail_at = -1;
std::set<void*> g_live;

TEST(ImcStackInit, FreesEverythingWhenAnyAllocationFailsAndRefusesUnusableConfigurations)
{
    testsupport::AdapterLog log;
    IMC_Linux_Locks locks;
    const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
    IMC_Platform_Set_Allocator(
        [](std::size_t count, std::size_t size) -> void* {
            if (g_calls++ == g_fail_at)
                return nullptr;
            return *g_live.insert(std::calloc(count, size)).first;
        },
        [](void* p) {
            g_live.erase(p);
            std::free(p);
        });
    Stack_Release(Stack_Init(nullptr, nullptr, nullptr, &IMC_FRONT_BOARD_CONFIG, &ops));
    EXPECT_TRUE(g_calls == 7 && g_live.empty());
    for (g_fail_at = 0; g_fail_at < 7; ++g_fail_at) {
        g_calls = 0;
        EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, &IMC_FRONT_BOARD_CONFIG, &ops), nullptr);
        EXPECT_TRUE(g_live.empty()) << "allocation " << g_fail_at << " failed";
    }
    IMC_Platform_Set_Allocator(nullptr, nullptr);

    // No transactions or pool blocks, blocks or packages shorter than a header.
    using C = IMC_Config_s;
    for (auto [field, value] : {std::pair{&C::max_transaction_num, 0u}, {&C::mem_block_num, 0u},
                                {&C::mem_block_size, 5u}, {&C::max_package_length, 5u}}) {
        IMC_Config_s c = IMC_FRONT_BOARD_CONFIG;
        c.*field = value;
        EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, &c, &ops), nullptr);
    }
    EXPECT_EQ(Stack_Init(nullptr, nullptr, nullptr, nullptr, &ops), nullptr);
    EXPECT_EQ(log.count("unusable stack configuration"), 5);
}

// The frames of two events, {0x21} and {0x22, 0x7E}.
const Bytes EVENT_1 = {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x21, 0xC5, 0x09};
const Bytes EVENT_2 = {0x00, 0x7E, 0x00, 0x00, 0x08, 0x01, 0x00, 0x00, 0x00, 0x00, 0x02, 0x22, 0x7D, 0x5E, 0xC2, 0xF1};

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(ImcLinkReader, StartsOverAfterEachFrameAndEachDecoderErrorReadingPiecesOrADescriptor)
{
    Bytes bad_crc = EVENT_1;
    bad_crc.back() ^= 0xFF;
    const struct {
        const char* name;
        Bytes stream;
        std::vector<Bytes> events;
    } cases[] = {
        {"two frames back to back", EVENT_1 + EVENT_2, {{0x21}, {0x22, 0x7E}}},
        {"CRC error, then a frame", bad_crc + EVENT_2, {{0x22, 0x7E}}},
        {"bad marker, then a frame", Bytes{0x7E, 0x55} + EVENT_2, {{0x22, 0x7E}}},
        {"a flag where the marker belongs starts the frame", Bytes{0x7E} + Bytes(EVENT_1.begin() + 1, EVENT_1.end()),
         {{0x21}}},
        {"length above 200, then a frame", Bytes{0x00, 0x7E, 0x00, 0x00, 201} + EVENT_1, {{0x21}}},
    };
    for (const auto& c : cases) {
        for (size_t piece : {size_t{1}, size_t{5}, c.stream.size()}) {
            SCOPED_TRACE(std::string(c.name) + ", pieces of " + std::to_string(piece));
            ImcLink link;
            link.b.feed(c.stream, piece);
            EXPECT_EQ(link.b.events, c.events);
        }
        SCOPED_TRACE(std::string(c.name) + ", from a pipe");
        ImcLink link;
        int p[2];
        ASSERT_EQ(pipe(p), 0);
        ASSERT_EQ(write(p[1], c.stream.data(), c.stream.size()), static_cast<ssize_t>(c.stream.size()));
        close(p[1]);
        EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b.handle), 0);  // to its end
        EXPECT_EQ(link.b.events, c.events);
        close(p[0]);
        EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b.handle), -1);
    }
}

}  // namespace
