// The logging facility as the sink stand-ins see it.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "SinkTestApi.h"
#include "log/log.h"
#include "log_capture.h"

namespace {

using OrbPerix::log::Manager;
using OrbPerix::log::Trace;

TEST(Logging, ConcurrentFirstManagerLinesBuildOneTagLogger) {
    // Each CTest test runs in a process of its own, so these are the process's first lines.
    ClearLogs();
    const int before = corvus_test_logger_constructions();
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&ready, i] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) {
                std::this_thread::yield();
            }
            Manager(LOG_MESSAGE_INFO, "OrbPerix::Test::Concurrent", "line ", i);
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_LE(corvus_test_logger_constructions() - before, 1);
    EXPECT_GE(corvus_test_logger_constructions(), 1);
    char tag[32];
    corvus_test_last_tag(tag, sizeof(tag));
    EXPECT_STREQ("VantraMirror", tag);
    EXPECT_EQ(static_cast<size_t>(kThreads), TagLines().size());
    EXPECT_EQ(static_cast<size_t>(kThreads), TraceLines().size());
}

TEST(Logging, ManagerLineGoesToBothSinksTraceLineOnlyToQxLogger) {
    ClearLogs();
    Manager(LOG_MESSAGE_ERROR, "OrbPerix::PERIXProviderManager::Initialize",
            "PERIXInitial failed with ret ", -13);
    Trace(LOG_MESSAGE_INFO, "OrbPerix::BaseProvider::DeviceChange", "provider line");
    EXPECT_EQ((std::vector<LogLine>{{4, "PERIXInitial failed with ret -13"}}), TagLines());
    EXPECT_EQ((std::vector<LogLine>{
                  {4, "PERIXInitial failed with ret -13(OrbPerix::PERIXProviderManager::Initialize)"},
                  {3, "provider line(OrbPerix::BaseProvider::DeviceChange)"}}),
              TraceLines());
}

TEST(Logging, NarrowWideAndNumericPartsFormAsAStreamWouldWriteThem) {
    ClearLogs();
    const std::string device = "peer-01";
    Trace(LOG_MESSAGE_ERROR, "S", L"wide ", "narrow ", device, " ", 4294967295u, " ", -5);
    ASSERT_EQ(1u, TraceLines().size());
    EXPECT_EQ("wide narrow peer-01 4294967295 -5(S)", TraceLines()[0].text);
}

TEST(Logging, TheStandInsKeepOnlyTheNewestLinesAndCountTheRest) {
    ClearLogs();
    tracekit_test_set_capacity(3);
    for (int i = 0; i < 5; ++i) {
        Trace(LOG_MESSAGE_INFO, "OrbPerix::Test::Bound", "line ", i);
    }
    EXPECT_EQ(5, tracekit_test_line_count()) << "numbered from the clear, dropped ones included";
    EXPECT_EQ(2, tracekit_test_dropped_lines());
    EXPECT_EQ(-1, tracekit_test_line(1, nullptr, nullptr, 0)) << "dropped";
    EXPECT_EQ((std::vector<LogLine>{{3, "line 2(OrbPerix::Test::Bound)"},
                                    {3, "line 3(OrbPerix::Test::Bound)"},
                                    {3, "line 4(OrbPerix::Test::Bound)"}}),
              TraceLines());
    tracekit_test_set_capacity(10000);
    ClearLogs();
    EXPECT_EQ(0, tracekit_test_dropped_lines());
}

}  // namespace
