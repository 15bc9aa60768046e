// Several application threads on one instance: the parameter lock serialises
// them, so every call completes with a consistent answer.
#include <atomic>
#include <thread>
#include <vector>

#include "AppletHost.h"
#include "pelagon_errors.h"

TEST(AppletConcurrency, ParallelSetsAndGetsOnOneInstanceStayConsistent) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    constexpr int kWidth = 100, kHeight = 200, kTemperature = 200341;
    std::atomic<int> failures{0};

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const uint32_t width = 64 + 16 * static_cast<uint32_t>((i + t) % 8);
                uint32_t readBack = 0;
                double temperature = 0;
                if (host.setU32(kWidth, width) != 0) ++failures;
                if (host.setU32(kHeight, 100 + static_cast<uint32_t>(t)) != 0) ++failures;
                if (host.getU32(kWidth, readBack) != 0 || readBack < 64 || readBack > 176 || readBack % 16 != 0)
                    ++failures;
                if (host.getDouble(kTemperature, temperature) != 0) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
    // Both halves of the buffer always carry the same width: no write interleaved.
    EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_Buffer_0_DRAM_A_0_XLength"),
              vboard::peek(host.board, "Device1_Process0_Buffer_0_DRAM_A_1_XLength"));
}
