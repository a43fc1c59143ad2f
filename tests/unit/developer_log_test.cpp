// The developer log against the simulated engine: what its callback and file receive, from which
// threads, and what a callback that throws, blocks or calls back into the library does.
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "SinkTestApi.h"
#include "input_test_helpers.h"
#include "log/developer_log.h"
#include "orbperix/orbperix_c.h"
#include "perix_sim_peer.h"
#include "provider/sink_provider.h"
#include "provider_tables.h"

namespace {

using namespace input_test;

struct Seen {
    int level;
    std::string scope;
    std::string text;
    std::thread::id thread;
};

// Records every line; a test may give it something to do on each one.
struct Recorder {
    std::mutex mutex;
    std::vector<Seen> lines;
    std::function<void(const Seen&)> also;

    static void Callback(void* self, int level, const char* scope, const char* text) {
        Recorder& r = *static_cast<Recorder*>(self);
        const Seen line{level, scope, text, std::this_thread::get_id()};
        {
            std::lock_guard<std::mutex> lock(r.mutex);
            r.lines.push_back(line);
        }
        if (r.also) {
            r.also(line);
        }
    }
    std::vector<Seen> Lines() {
        std::lock_guard<std::mutex> lock(mutex);
        return lines;
    }
};

class DeveloperLog : public InputTest {
protected:
    void TearDown() override {
        EXPECT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, nullptr, nullptr));
        InputTest::TearDown();
    }
    Recorder recorder;
};

// What QxLogger received since `mark`, with the scope suffix.
std::vector<LogLine> TraceLinesSince(size_t mark) {
    std::vector<LogLine> all = TraceLines();
    return std::vector<LogLine>(all.begin() + static_cast<long>(mark), all.end());
}

TEST_F(DeveloperLog, TheCallbackSeesEveryLineAtItsLevelAndTheLoggingLibrariesSeeTheSame) {
    PERIXInfo unknown = MakeInfo("peer-unknown");
    // The logging libraries' lines with the developer log off, then on.
    provider->DisconnectDevice(&unknown);
    Connect("peer-a");
    const std::vector<LogLine> off = TraceLines();
    ASSERT_FALSE(off.empty());
    provider->DeInit();
    initialised = false;
    ClearLogs();

    ASSERT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Recorder::Callback, &recorder));
    provider->DisconnectDevice(&unknown);
    Connect("peer-a");
    EXPECT_EQ(off, TraceLines()) << "the logging libraries receive the same lines";
    const std::vector<Seen> seen = recorder.Lines();
    ASSERT_EQ(off.size(), seen.size());
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(off[i].level, seen[i].level);
        EXPECT_EQ(off[i].text, seen[i].text + "(" + seen[i].scope + ")");
    }

    // Errors only: the info lines stay out.
    ASSERT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_ERROR, &Recorder::Callback, &recorder));
    recorder.lines.clear();
    const size_t mark = TraceLines().size();
    provider->DisconnectDevice(&unknown);
    ASSERT_TRUE(manager().DestorySinkProvider(manager().CreateSinkProvider()));
    size_t errors = 0;
    for (const LogLine& line : TraceLinesSince(mark)) {
        errors += line.level == ORBPERIX_C_LOG_ERROR ? 1u : 0u;
    }
    EXPECT_GT(TraceLinesSince(mark).size(), errors) << "the sequence logs info lines too";
    EXPECT_EQ(errors, recorder.Lines().size());
    EXPECT_EQ(ORBPERIX_C_INVALID_ARGUMENT,
              orbperix_set_log_callback(5, &Recorder::Callback, &recorder));
}

TEST_F(DeveloperLog, LinesOfEngineThreadsReachTheCallbackOnThoseThreads) {
    listener.onDeviceChange = nullptr;  // the delivery logs "Listen function is null"
    Connect("peer-e");
    ASSERT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Recorder::Callback, &recorder));
    ASSERT_EQ(0, perix_sim_peer_post_device_change(perix_sim_last_handle(), "peer-e", 1, 2));
    perix_sim_peer_flush();
    const std::vector<Seen> seen = recorder.Lines();
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ("On DeviceChange, Listen function is null", seen[0].text);
    EXPECT_EQ("OrbPerix::BaseProvider::DeviceChange", seen[0].scope);
    EXPECT_NE(std::this_thread::get_id(), seen[0].thread) << "called on the engine's thread";
}

TEST_F(DeveloperLog, ACallbackThatThrowsOrCallsBackIntoTheLibraryBreaksNothing) {
    // The sink logs "MeshProvider already exist"; from inside the callback the same sink is
    // asked again (it would deadlock if the line were written under the sink's lock) and the C
    // manager is entered (its lock is held while the manager logs).
    OrbPerix::SinkProvider sink(LiveEngineLoad());
    PERIXInfo info = MakeInfo("peer-sink");
    ASSERT_EQ(0, sink.ConnectDevice(&info));
    std::atomic<int> nested{0};
    recorder.also = [&](const Seen& line) {
        if (line.text == "MeshProvider already exist") {
            nested.fetch_add(1);
            EXPECT_EQ(0, sink.CreateMeshProvider(&info));
            const uint64_t input = orbperix_create_input_provider();
            EXPECT_NE(0u, input);
            EXPECT_EQ(1, orbperix_destroy_input_provider(input));
        }
        if (line.text.find("Create InputProvider success") != std::string::npos) {
            throw std::runtime_error("host bug");
        }
    };
    ASSERT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Recorder::Callback, &recorder));
    const uint64_t thrownBefore = OrbPerix::log::developer::CallbackExceptions();
    ClearLogs();
    EXPECT_EQ(0, sink.CreateMeshProvider(&info));
    const uint64_t input = orbperix_create_input_provider();  // its success line throws
    EXPECT_NE(0u, input);
    EXPECT_EQ(1, orbperix_destroy_input_provider(input));

    EXPECT_EQ(1, nested.load()) << "lines the callback causes do not come back to it";
    EXPECT_EQ(2, CountTraceLines("MeshProvider already exist(OrbPerix::SinkProvider::CreateMeshProvider)"))
        << "they still reach the logging libraries";
    EXPECT_EQ(thrownBefore + 1, OrbPerix::log::developer::CallbackExceptions());
    EXPECT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Recorder::Callback, &recorder))
        << "still usable after the throw";
    sink.DeInit();
}

TEST_F(DeveloperLog, ReplacingTheCallbackWaitsForItsCallOnAnotherThread) {
    std::mutex mutex;
    std::condition_variable changed;
    bool inside = false;
    bool release = false;
    recorder.also = [&](const Seen&) {
        std::unique_lock<std::mutex> lock(mutex);
        inside = true;
        changed.notify_all();
        changed.wait(lock, [&] { return release; });
    };
    ASSERT_EQ(0, orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, &Recorder::Callback, &recorder));
    std::thread logger([] { orbperix_log_error("test", "a line from another thread"); });
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return inside; });
    }
    std::atomic<bool> replaced{false};
    std::atomic<int> result{-1};
    std::thread replacer([&] {
        result = orbperix_set_log_callback(ORBPERIX_C_LOG_TRACE, nullptr, nullptr);
        replaced = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(replaced.load()) << "returned while the callback still ran";
    {
        std::lock_guard<std::mutex> lock(mutex);
        release = true;
    }
    changed.notify_all();
    logger.join();
    replacer.join();
    EXPECT_EQ(0, result.load());
}

// Run by CTest with ORBPERIX_LOG naming a file, ORBPERIX_LOG_LEVEL=error and an engine path
// where there is no engine (see tests/CMakeLists.txt).
TEST(DeveloperLogEnvironment, AFailedStartSaysWhyInTheFileNamedByTheEnvironment) {
    const char* file = std::getenv("ORBPERIX_LOG");
    const char* engine = std::getenv("ORBPERIX_ENGINE_PATH");
    if (file == nullptr || engine == nullptr) {
        GTEST_SKIP() << "needs ORBPERIX_LOG and ORBPERIX_ENGINE_PATH (see unit.DeveloperLogFromEnvironment)";
    }
    std::remove(file);
    ClearLogs();
    EXPECT_EQ(-13, OrbPerix::PERIXProviderManager::GetInstance().Initialize(nullptr, "env"));
    const std::vector<LogLine> trace = TraceLines();
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    const std::string log = text.str();
    EXPECT_NE(std::string::npos,
              log.find("ERROR [thread ")) << log;
    EXPECT_NE(std::string::npos,
              log.find("OrbPerix::PERIXProviderManager::LoadPerixLibrary: LoadLibrary failed"))
        << log;
    EXPECT_NE(std::string::npos, log.find(engine)) << "names the path tried: " << log;
    EXPECT_NE(std::string::npos, log.find("reason: ")) << log;
    EXPECT_EQ(std::string::npos, log.find("Initalize begin")) << "info lines are below the level";
    for (const LogLine& line : trace) {
        EXPECT_EQ(std::string::npos, line.text.find("path tried"))
            << "the explanation is the developer log's, not the logging libraries'";
    }
}

}  // namespace
