// Stack creation on Linux and the reading side of a link.
#include "common/imc_protocol/imc_linux.h"

#include "support/adapter.h"

using namespace testsupport;

// An allocator that fails its n-th call and knows what is still allocated.
int g_calls = 0;
int g_fail_at = -1;
std::set<void*> g_live;

TEST(ImcStackInit, FreesEverythingWhenAnyAllocationFailsAndRefusesUnusableConfigurations)
{
    AdapterLog log;
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

TEST(ImcLinkReader, StartsOverAfterEachFrameAndEachDecoderErrorReadingPiecesOrADescriptor)
{
    // Two events, {0xAA} and {0x7F}, the second with a flag to escape in its CRC.
    const Bytes& one = IMC_FRAMES[0].frame;
    const Bytes& two = IMC_FRAMES[4].frame;
    Bytes bad_crc = one;
    bad_crc.back() ^= 0xFF;
    const std::tuple<const char*, Bytes, std::vector<Bytes>> cases[] = {
        {"two frames back to back", one + two, {{0xAA}, {0x7F}}},
        {"CRC error, then a frame", bad_crc + two, {{0x7F}}},
        {"bad marker, then a frame", Bytes{0x7E, 0x55} + two, {{0x7F}}},
        {"a flag where the marker belongs starts the frame", Bytes{0x7E} + Bytes(one.begin() + 1, one.end()), {{0xAA}}},
        {"length above 200, then a frame", Bytes{0x00, 0x7E, 0x00, 0x00, 201} + one, {{0xAA}}},
    };
    for (const auto& [name, stream, events] : cases) {
        for (size_t piece : {size_t{1}, size_t{5}, stream.size()}) {
            SCOPED_TRACE(std::string(name) + ", pieces of " + std::to_string(piece));
            ImcLink link;
            link.b.feed(stream, piece);
            EXPECT_EQ(link.b.events, events);
        }
        SCOPED_TRACE(std::string(name) + ", from a pipe");
        ImcLink link;
        int p[2];
        ASSERT_EQ(pipe(p), 0);
        ASSERT_EQ(write(p[1], stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
        close(p[1]);
        EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b.handle), 0);  // to its end
        EXPECT_EQ(link.b.events, events);
        close(p[0]);
        EXPECT_EQ(IMC_Link_Read_Fd(p[0], link.b.handle), -1);
    }
}
