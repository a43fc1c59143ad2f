// The platform layer's contracts that the rest of the library relies on.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/platform.h"

namespace {

namespace platform = OrbPerix::platform;

TEST(BoundedCopy, CopiesWithinTheDestination) {
    const char source[] = "abcdef";
    char dest[8];
    std::memset(dest, 'x', sizeof(dest));
    EXPECT_EQ(0, platform::BoundedCopy(dest, sizeof(dest), source, 6));
    EXPECT_EQ(0, std::memcmp(dest, "abcdefxx", 8));
    EXPECT_EQ(0, platform::BoundedCopy(dest, 6, source, 6)) << "an exact fit is allowed";
}

TEST(BoundedCopy, NullArgumentsGive22AndZeroTheDestination) {
    char dest[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(22, platform::BoundedCopy(dest, sizeof(dest), nullptr, 2));
    EXPECT_EQ(std::vector<char>(4, 0), std::vector<char>(dest, dest + 4));
    EXPECT_EQ(22, platform::BoundedCopy(nullptr, 4, "ab", 2));
    EXPECT_EQ(0, platform::BoundedCopy(nullptr, 0, nullptr, 0)) << "nothing to copy is no error";
}

TEST(BoundedCopy, TooSmallDestinationGives34AndIsZeroed) {
    char dest[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(34, platform::BoundedCopy(dest, sizeof(dest), "abcde", 5));
    EXPECT_EQ(std::vector<char>(4, 0), std::vector<char>(dest, dest + 4));
}

TEST(PerformanceCounter, IsMonotonicAndSleepTakesAtLeastRoughlyItsTime) {
    const int64_t frequency = platform::PerformanceFrequency();
    ASSERT_GT(frequency, 0);
    const int64_t start = platform::PerformanceCounter();
    platform::SleepMilliseconds(20);
    const int64_t end = platform::PerformanceCounter();
    ASSERT_GE(end, start);
    const int64_t elapsedMs = (end - start) * 1000 / frequency;
    EXPECT_GE(elapsedMs, 15);    // timers may round a little short
    EXPECT_LT(elapsedMs, 5000);  // a loaded machine may be slow, never this slow
}

}  // namespace
