// The simulated engine is strict, as a real closed engine is: its module is really unmapped by
// Finalize, released handles are violations, callback records are read through the library's
// own record at fire time, and a release waits for callbacks running on other threads.
//
// Most cases call the engine's slots directly through the tables the module's getters hand out
// (the module is held loaded for the test's duration), with abort on violation turned off so
// that the count can be checked.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "platform/platform.h"

namespace {

namespace platform = OrbPerix::platform;

// The engine module loaded from the executable's folder as the library loads it, with the main,
// button and audio tables filled by its getters. Unloaded on destruction.
class ModuleTables {
public:
    ModuleTables() {
        if (platform::LoadModuleBesideExecutable(platform::EngineModuleFileName(), &module_) !=
            platform::LoadStep::kLoaded) {
            return;
        }
        auto getMain = reinterpret_cast<PerixGetOrbPERIXHandlerFn>(
            platform::FindSymbol(module_, "PERIXGetOrbPERIXHandler"));
        auto getButton = reinterpret_cast<PerixGetButtonHandlerSourceFn>(
            platform::FindSymbol(module_, "PERIXGetButtonHandlerSource"));
        auto getAudio = reinterpret_cast<PerixGetAudioHandlerSourceFn>(
            platform::FindSymbol(module_, "PERIXGetAudioHandlerSource"));
        ok_ = getMain != nullptr && getButton != nullptr && getAudio != nullptr &&
              getMain(&main) == 0 && getButton(&button) == 0 && getAudio(&audio) == 0;
    }
    ~ModuleTables() { platform::UnloadModule(module_); }
    ModuleTables(const ModuleTables&) = delete;
    ModuleTables& operator=(const ModuleTables&) = delete;

    bool ok() const { return ok_; }

    OrbPERIXHandler main{};
    ButtonHandlerSource button{};
    AudioHandlerSource audio{};

private:
    platform::ModuleHandle module_ = nullptr;
    bool ok_ = false;
};

PERIXInfo Info(const char* peer) {
    PERIXInfo info;
    std::memset(&info, 0, sizeof(info));
    std::snprintf(info.peerDeviceId, sizeof(info.peerDeviceId), "%s", peer);
    info.connectType = 1;
    return info;
}

// ---- The module's mapping ----

using StrictEngineModule = EngineTest;

TEST_F(StrictEngineModule, FinalizeUnmapsTheModuleAndTheNextInitializeMapsItAgain) {
    ASSERT_EQ(0, perix_sim_engine_mapped()) << "another holder keeps the module mapped";
    const int loads = perix_sim_module_loads();
    const int unloads = perix_sim_module_unloads();

    ASSERT_EQ(0, manager().Initialize(nullptr, "strict"));
    EXPECT_EQ(1, perix_sim_engine_mapped());
    EXPECT_EQ(loads + 1, perix_sim_module_loads());
    EXPECT_EQ(unloads, perix_sim_module_unloads());

    manager().Finalize();
    EXPECT_EQ(0, perix_sim_engine_mapped());
    EXPECT_EQ(unloads + 1, perix_sim_module_unloads());

    ASSERT_EQ(0, manager().Initialize(nullptr, "strict"));
    EXPECT_EQ(1, perix_sim_engine_mapped());
    EXPECT_EQ(loads + 2, perix_sim_module_loads());
    manager().Finalize();
    EXPECT_EQ(0, perix_sim_engine_mapped());
    EXPECT_EQ(unloads + 2, perix_sim_module_unloads());
}

// ---- Handles ----

class StrictEngineHandles : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        perix_sim_set_abort_on_violation(0);
        ASSERT_TRUE(tables.ok());
    }
    // A service handle for `peer` with `listener` (when given) registered on it.
    void* Open(const char* peer, PerixEngineListener* listener = nullptr) {
        const PERIXInfo info = Info(peer);
        void* handle = tables.main.PERIXCreateServiceHandle(&info);
        EXPECT_NE(nullptr, handle);
        if (listener != nullptr) {
            EXPECT_EQ(0, tables.main.PERIXRegisterListener(handle, listener));
        }
        return handle;
    }
    ModuleTables tables;
};

TEST_F(StrictEngineHandles, AReleasedHandlePassedToASlotIsACountedViolationNamingSlotAndHandle) {
    const PERIXInfo info = Info("peer-strict");
    const int live = perix_sim_live_handle_count();
    void* handle = tables.main.PERIXCreateServiceHandle(&info);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(live + 1, perix_sim_live_handle_count());
    EXPECT_EQ(0, tables.main.PERIXStartService(handle, &info));
    EXPECT_EQ(0, perix_sim_violation_count());

    EXPECT_EQ(0, tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr));
    EXPECT_EQ(1, perix_sim_handle_is_released(handle));
    EXPECT_EQ(live, perix_sim_live_handle_count());
    EXPECT_EQ(0, perix_sim_violation_count());

    char expected[160];
    std::snprintf(expected, sizeof(expected),
                  "perix_sim: STRICT ENGINE VIOLATION: PERIXStartService called with released "
                  "handle %p",
                  handle);
    testing::internal::CaptureStderr();
    tables.main.PERIXStartService(handle, &info);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, err.find(expected)) << err;
    EXPECT_EQ(1, perix_sim_violation_count());
    // The call is still recorded, as every call is.
    EXPECT_EQ(2u, EngineCalls(PERIX_SIM_MAIN, 6).size());

    // A second release is one too.
    testing::internal::CaptureStderr();
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
    EXPECT_NE(std::string::npos,
              testing::internal::GetCapturedStderr().find(
                  "PERIXReleaseServiceHandle called with released handle"));
    EXPECT_EQ(2, perix_sim_violation_count());
}

TEST_F(StrictEngineHandles, UnknownHandlesAreViolationsNullHandlesAreNotAndEveryReleaseReleases) {
    const PERIXInfo info = Info("peer-strict");
    int notAHandle = 0;
    testing::internal::CaptureStderr();
    tables.main.PERIXSendBinaryData(&notAHandle, nullptr);
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find(
                                     "PERIXSendBinaryData called with unknown (never issued) handle"));
    EXPECT_EQ(1, perix_sim_violation_count());

    tables.main.PERIXStartService(nullptr, &info);
    tables.main.PERIXUnRegisterListener(nullptr);
    EXPECT_EQ(1, perix_sim_violation_count()) << "a null handle is not a violation";

    // The sink's disconnect form (a device behind the handle) releases the handle as well.
    void* mesh = tables.main.PERIXCreateServiceHandle(&info);
    ASSERT_NE(nullptr, mesh);
    PERIXInfo device = Info("peer-on-mesh");
    tables.main.PERIXReleaseServiceHandle(mesh, &device, nullptr);
    EXPECT_EQ(1, perix_sim_handle_is_released(mesh));
    testing::internal::CaptureStderr();
    tables.main.PERIXGetConnectionStatus(mesh, nullptr);
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find(
                                     "PERIXGetConnectionStatus called with released handle"));
    EXPECT_EQ(2, perix_sim_violation_count());

    // Reset forgets the quarantine and turns abort back on (checked by the death test below).
    perix_sim_reset();
    EXPECT_EQ(0, perix_sim_handle_is_released(mesh));
    EXPECT_EQ(0, perix_sim_violation_count());
}

TEST_F(StrictEngineHandles, AViolationAbortsByDefault) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    perix_sim_set_abort_on_violation(1);
    const PERIXInfo info = Info("peer-strict");
    void* handle = tables.main.PERIXCreateServiceHandle(&info);
    ASSERT_NE(nullptr, handle);
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
    EXPECT_DEATH(tables.main.PERIXGetConnectionStatus(handle, nullptr),
                 "STRICT ENGINE VIOLATION: PERIXGetConnectionStatus called with released handle");
}

// The call hook's table and slot are held by the host-safety case that waits for a call to
// reach the engine; a delay that did not hold would leave the races there untried.
TEST_F(StrictEngineHandles, ADelayHoldsTheSlot) {
    const PERIXInfo info = Info("peer-delay");
    void* handle = tables.main.PERIXCreateServiceHandle(&info);
    perix_sim_set_slot_delay(PERIX_SIM_MAIN, 8, 150);
    const auto start = std::chrono::steady_clock::now();
    tables.main.PERIXGetConnectionStatus(handle, nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(140));
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
}

// ---- Callback records and releases ----

// A listener whose data callback the tests steer through globals (records hold plain function
// pointers).
std::atomic<int> g_calledA{0};
std::atomic<int> g_calledB{0};
void DataA(void*, const void*) { g_calledA.fetch_add(1); }
void DataB(void*, const void*) { g_calledB.fetch_add(1); }
int ButtonA(const void*, const void*) { return 11; }
int ButtonB(const void*, const void*) { return 22; }

using StrictEngineRecords = StrictEngineHandles;

TEST_F(StrictEngineRecords, FiresReadTheRegisteredRecordByAddressEvenAfterTheRelease) {
    g_calledA = 0;
    g_calledB = 0;
    PerixEngineListener listener{nullptr, nullptr, DataA};
    void* handle = Open("peer-records", &listener);
    BinaryData data{};
    EXPECT_EQ(0, perix_sim_fire_data(handle, &data));
    EXPECT_EQ(1, g_calledA.load());
    // The engine kept the address: a change to the record changes what is called.
    listener.onDataReceive = DataB;
    EXPECT_EQ(0, perix_sim_fire_data(handle, &data));
    EXPECT_EQ(1, g_calledB.load());
    listener.onDataReceive = nullptr;
    EXPECT_EQ(-1, perix_sim_fire_data(handle, &data));

    // Still stored after the release: the engine may call late.
    listener.onDataReceive = DataA;
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
    EXPECT_EQ(0, perix_sim_fire_data(handle, &data));
    EXPECT_EQ(2, g_calledA.load());
    EXPECT_EQ(0, perix_sim_violation_count()) << "firing for a released handle is allowed";

    PerixButtonCallback button{ButtonA};
    ASSERT_EQ(0, tables.button.RegisterCallback(&button));
    EXPECT_EQ(11, perix_sim_fire_button(nullptr, nullptr));
    button.notify = ButtonB;
    EXPECT_EQ(22, perix_sim_fire_button(nullptr, nullptr));

    perix_sim_reset();
    EXPECT_EQ(-1, perix_sim_fire_data(handle, &data));
    EXPECT_EQ(-1, perix_sim_fire_button(nullptr, nullptr));
}

// State shared between a callback on a thread of the test and the releasing thread.
struct ReleaseRace {
    std::mutex mutex;
    std::condition_variable changed;
    bool inCallback = false;
    bool releaseStarted = false;
    std::vector<std::string> order;

    void Note(const std::string& what) {
        std::lock_guard<std::mutex> lock(mutex);
        order.push_back(what);
    }
    template <typename Pred>
    bool WaitFor(Pred pred, std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, pred);
    }
    void Set(bool ReleaseRace::*flag) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            this->*flag = true;
        }
        changed.notify_all();
    }
};
ReleaseRace* g_race = nullptr;

// Enters, lets the test start the release, stays a little longer, leaves.
void SlowData(void*, const void*) {
    g_race->Set(&ReleaseRace::inCallback);
    g_race->WaitFor([] { return g_race->releaseStarted; }, std::chrono::seconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    g_race->Note("callback left");
}

TEST_F(StrictEngineRecords, ReleaseWaitsForACallbackRunningOnAnotherThread) {
    ReleaseRace race;
    g_race = &race;
    PerixEngineListener listener{nullptr, nullptr, SlowData};
    void* handle = Open("peer-race", &listener);
    // The call hook marks the moment the release is entered (before it waits).
    perix_sim_set_call_hook(
        [](void*, int table, int slot, void*) {
            if (table == PERIX_SIM_MAIN && slot == 5) {
                g_race->Set(&ReleaseRace::releaseStarted);
            }
        },
        nullptr);

    BinaryData data{};
    std::thread engineThread([&] { perix_sim_fire_data(handle, &data); });
    ASSERT_TRUE(race.WaitFor([&] { return race.inCallback; }, std::chrono::seconds(10)));
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
    race.Note("release returned");
    engineThread.join();
    perix_sim_set_call_hook(nullptr, nullptr);
    EXPECT_EQ((std::vector<std::string>{"callback left", "release returned"}), race.order);
    EXPECT_EQ(1, perix_sim_handle_is_released(handle));
    EXPECT_EQ(0, perix_sim_violation_count());
    g_race = nullptr;
}

struct HookSeen {
    std::thread::id thread;
    int releasedDuringHook = -1;
    int fired = -2;
    int dataCalls = 0;
};
HookSeen* g_hookSeen = nullptr;
void CountData(void*, const void*) { ++g_hookSeen->dataCalls; }

TEST_F(StrictEngineRecords, TheReleaseHookRunsOnTheReleasingThreadBeforeTheHandleIsFreed) {
    HookSeen seen;
    g_hookSeen = &seen;
    PerixEngineListener listener{nullptr, nullptr, CountData};
    void* handle = Open("peer-hooked", &listener);
    perix_sim_set_release_hook(
        [](void*, void* h) {
            g_hookSeen->thread = std::this_thread::get_id();
            g_hookSeen->releasedDuringHook = perix_sim_handle_is_released(h);
            BinaryData data{};
            // A callback on the releasing thread itself is not waited for.
            g_hookSeen->fired = perix_sim_fire_data(h, &data);
        },
        nullptr);
    tables.main.PERIXReleaseServiceHandle(handle, nullptr, nullptr);
    EXPECT_EQ(std::this_thread::get_id(), seen.thread);
    EXPECT_EQ(0, seen.releasedDuringHook);
    EXPECT_EQ(0, seen.fired);
    EXPECT_EQ(1, seen.dataCalls);
    EXPECT_EQ(1, perix_sim_handle_is_released(handle));
    g_hookSeen = nullptr;
}

}  // namespace
