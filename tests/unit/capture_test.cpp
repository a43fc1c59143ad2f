// Capture: a short session recorded through the real library and engine, read back with the
// capture reader field by field; the queue that drops instead of blocking; bad paths.
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "capture/capture.h"
#include "capture/record_ring.h"
#include "capture_reader.h"
#include "input_test_helpers.h"
#include "orbperix/orbperix_c.h"
#include "platform/platform.h"

namespace {

using namespace input_test;
using OrbPerix::capture::RecordRing;
using OrbPerix::capture_file::Capture;
using OrbPerix::capture_file::Record;

std::string CapturePath(const std::string& name) {
    return OrbPerix::platform::ExecutableDirectory() + "/" + name;
}

Capture ReadBack(const std::string& path) {
    Capture capture;
    std::string error;
    EXPECT_TRUE(OrbPerix::capture_file::ReadCaptureFile(path, &capture, &error)) << error;
    return capture;
}

std::vector<const Record*> Named(const Capture& capture, const std::string& name,
                                 uint8_t direction) {
    std::vector<const Record*> found;
    for (const Record& record : capture.records) {
        if (record.name == name && record.direction == direction) {
            found.push_back(&record);
        }
    }
    return found;
}

// Each test captures to a file of its own name beside the executable, removed afterwards.
class CaptureSession : public InputTest {
protected:
    void TearDown() override {
        orbperix_capture_stop();
        std::remove(path.c_str());
        InputTest::TearDown();
    }
    const std::string path = CapturePath(
        std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".pcapng");
};

TEST_F(CaptureSession, ShortSessionReadsBackFieldByField) {
    ASSERT_EQ(0, orbperix_capture_start(path.c_str(), nullptr));
    ConnectAndOpen("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent mouse = Event(6, 0);
    mouse.payload.mouse.button = 1;
    mouse.payload.mouse.coords[0] = 100.7;
    mouse.payload.mouse.coords[1] = 200.2;
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &mouse));
    RemoteCtrlEvent text = Event(7, 0);
    text.payload.input.content.contentLength = 3;
    std::memcpy(text.payload.input.content.content, "abc", 3);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &text));
    perix_sim_peer_flush();
    ASSERT_EQ(0, orbperix_capture_stop());
    EXPECT_EQ(-4, orbperix_capture_stop());

    const Capture capture = ReadBack(path);
    EXPECT_EQ("OrbPerixProvider 1.0.0", capture.application);
    ASSERT_TRUE(capture.hasStatistics);
    EXPECT_EQ(capture.records.size(), capture.statWritten);
    EXPECT_EQ(0u, capture.statDropped);
    const uint64_t hostThread = OrbPerix::platform::CurrentThreadId();

    const auto created = Named(capture, "Main.PERIXCreateServiceHandle", 0);
    ASSERT_EQ(1u, created.size());
    EXPECT_EQ("peer-a", created[0]->device);
    EXPECT_EQ(7000u, created[0]->aux);  // the server port
    EXPECT_NE(0u, created[0]->handle);
    EXPECT_EQ(hostThread, created[0]->thread);
    const auto started = Named(capture, "Main.PERIXStartService", 0);
    ASSERT_EQ(1u, started.size());
    EXPECT_EQ(created[0]->handle, started[0]->handle);
    EXPECT_EQ(OrbPerix::capture::kFlagResult, started[0]->flags & OrbPerix::capture::kFlagResult);
    EXPECT_EQ(0, started[0]->result);
    EXPECT_LE(created[0]->timeNs, started[0]->timeNs);

    const auto opened = Named(capture, "Button.ButtonOpen", 0);
    ASSERT_EQ(1u, opened.size());
    EXPECT_EQ("peer-a", opened[0]->device);
    EXPECT_EQ("btn-1", opened[0]->service);

    // The peer's "opened" report: a notification from an engine thread and the listener call.
    const auto notified = Named(capture, "On ButtonNotify", 1);
    ASSERT_EQ(1u, notified.size());
    EXPECT_EQ("peer-a", notified[0]->device);
    EXPECT_EQ(1u, notified[0]->aux);
    EXPECT_NE(hostThread, notified[0]->thread);
    const auto listened = Named(capture, "On ButtonNotify", 2);
    ASSERT_EQ(1u, listened.size());
    EXPECT_EQ(notified[0]->thread, listened[0]->thread);
    EXPECT_LE(notified[0]->timeNs, listened[0]->timeNs);

    // Both posts, as the packets the peer received, with the typed text withheld.
    std::vector<const Record*> posts;
    for (const Record* write : Named(capture, "Button.ButtonWriteStreamBuffer", 0)) {
        if (write->payloadKind == 1) {
            posts.push_back(write);
        }
    }
    ASSERT_EQ(2u, posts.size());
    ASSERT_EQ(2, perix_sim_peer_packet_count());
    for (int i = 0; i < 2; ++i) {
        perix_sim_packet packet{};
        ASSERT_EQ(0, perix_sim_peer_get_packet(i, &packet));
        const Record& post = *posts[static_cast<size_t>(i)];
        EXPECT_EQ(packet.length, post.payloadLength);
        ASSERT_EQ(packet.length, post.payload.size());
        EXPECT_EQ(OrbPerix::capture::Checksum(packet.bytes, packet.length), post.checksum);
        EXPECT_EQ(0, post.result);
        EXPECT_EQ(hostThread, post.thread);
        EXPECT_NE(0, post.flags & OrbPerix::capture::kFlagSincePost);
        EXPECT_GE(post.sincePostNs, post.durationNs);
        if (i == 0) {
            EXPECT_EQ(std::vector<uint8_t>(packet.bytes, packet.bytes + packet.length),
                      post.payload);
            EXPECT_EQ(0, post.flags & OrbPerix::capture::kFlagTextWithheld);
        } else {
            EXPECT_NE(0, post.flags & OrbPerix::capture::kFlagTextWithheld);
            EXPECT_EQ(std::string("abc"), std::string(packet.bytes + 15, packet.bytes + 18));
            EXPECT_EQ(std::vector<uint8_t>(3, 0),
                      std::vector<uint8_t>(post.payload.begin() + 15, post.payload.begin() + 18));
            EXPECT_EQ(std::vector<uint8_t>(packet.bytes, packet.bytes + 15),
                      std::vector<uint8_t>(post.payload.begin(), post.payload.begin() + 15));
        }
    }
}

TEST_F(CaptureSession, TypedTextIsKeptWhenTheHostAsksForIt) {
    orbperix_capture_options options{ORBPERIX_CAPTURE_USER_TEXT, 16, 0};
    ASSERT_EQ(0, orbperix_capture_start(path.c_str(), &options));
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent message = Event(10, 0);
    message.payload.message.messageLength = 5;
    message.payload.message.messageWord = 0x0102;
    std::memcpy(message.payload.message.messageData, "xyz", 3);
    ASSERT_EQ(0, provider->PostRemoteCtrlEvent(&service, &message));
    ASSERT_EQ(0, orbperix_capture_stop());
    const Capture capture = ReadBack(path);
    const auto writes = Named(capture, "Button.ButtonWriteStreamBuffer", 0);
    ASSERT_EQ(1u, writes.size());
    EXPECT_EQ(0, writes[0]->flags & OrbPerix::capture::kFlagTextWithheld);
    ASSERT_GE(writes[0]->payload.size(), 20u);
    EXPECT_EQ("xyz", std::string(writes[0]->payload.begin() + 17, writes[0]->payload.begin() + 20));
}

TEST_F(CaptureSession, UnwritablePathLogsOneLineAndTheSessionGoesOnUncaptured) {
    const std::string bad = CapturePath("no-such-folder/capture.pcapng");
    EXPECT_EQ(-13, orbperix_capture_start(bad.c_str(), nullptr));
    const std::vector<LogLine> lines = TraceLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(4, lines[0].level);
    EXPECT_EQ(0u, lines[0].text.find("Capture not started: cannot write " + bad + ": "))
        << lines[0].text;
    EXPECT_FALSE(OrbPerix::capture::On());
    Connect("peer-a");
    ServiceInfo service = ButtonService("peer-a");
    RemoteCtrlEvent key = Event(1, 0);
    EXPECT_EQ(0, provider->PostRemoteCtrlEvent(&service, &key));
    EXPECT_EQ(1, perix_sim_peer_packet_count());
    EXPECT_EQ(-4, orbperix_capture_stop());
    EXPECT_EQ(-2, orbperix_capture_start(nullptr, nullptr));
}

TEST_F(CaptureSession, SecondStartIsRefusedAndFinalizeClosesTheCapture) {
    ASSERT_EQ(0, orbperix_capture_start(path.c_str(), nullptr));
    EXPECT_EQ(-4, orbperix_capture_start(path.c_str(), nullptr));
    Connect("peer-a");
    manager().Finalize();
    EXPECT_FALSE(OrbPerix::capture::On());
    EXPECT_EQ(-4, orbperix_capture_stop());
    const Capture capture = ReadBack(path);
    EXPECT_TRUE(capture.hasStatistics);
    EXPECT_EQ(1u, Named(capture, "Main.PERIXStartService", 0).size());
}

TEST_F(CaptureSession, StartAndStopWhileOtherThreadsPostLeaveEveryFileWhole) {
    Connect("peer-a");
    perix_sim_peer_set_bare_write(1);
    std::atomic<bool> posting{true};
    std::vector<std::thread> posters;
    for (int t = 0; t < 3; ++t) {
        posters.emplace_back([this, &posting] {
            ServiceInfo service = ButtonService("peer-a");
            RemoteCtrlEvent key = Event(1, 0);
            while (posting.load()) {
                provider->PostRemoteCtrlEvent(&service, &key);
            }
        });
    }
    orbperix_capture_options options{0, 64, 64};  // small: some rounds drop
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(0, orbperix_capture_start(path.c_str(), &options)) << round;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(0, orbperix_capture_stop()) << round;
        const Capture capture = ReadBack(path);
        ASSERT_TRUE(capture.hasStatistics) << round;
        EXPECT_EQ(capture.records.size(), capture.statWritten) << round;
    }
    posting.store(false);
    for (std::thread& poster : posters) poster.join();
    perix_sim_peer_set_bare_write(0);
}

int ThrowingButtonListener(ServiceInfo*, ButtonNotifyInfo*) { throw 42; }

TEST_F(CaptureSession, AListenerThatThrowsIsRecordedAsAnError) {
    ASSERT_EQ(0, orbperix_capture_start(path.c_str(), nullptr));
    listener.onButtonNotify = &ThrowingButtonListener;
    ConnectAndOpen("peer-a");
    ASSERT_EQ(0, orbperix_capture_stop());
    const Capture capture = ReadBack(path);
    const auto listened = Named(capture, "On ButtonNotify", 2);
    ASSERT_EQ(1u, listened.size());
    EXPECT_NE(0, listened[0]->flags & OrbPerix::capture::kFlagListenerThrew);
    const auto notified = Named(capture, "On ButtonNotify", 1);
    ASSERT_EQ(1u, notified.size());
    EXPECT_EQ(0, notified[0]->flags & OrbPerix::capture::kFlagListenerThrew);
}

TEST(CaptureRing, FullQueueDropsAndCountsInsteadOfBlocking) {
    RecordRing ring;
    ASSERT_TRUE(ring.Allocate(4));
    const uint8_t record[3] = {1, 2, 3};
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(ring.TryPush(static_cast<uint64_t>(i), record, 3)) << i;
    }
    for (int i = 0; i < 6; ++i) {
        EXPECT_FALSE(ring.TryPush(99, record, 3));
    }
    EXPECT_EQ(6u, ring.Dropped());
    // The consumer frees one cell; the next record fits again, in order behind the others.
    ASSERT_NE(nullptr, ring.Front());
    EXPECT_EQ(0u, ring.Front()->time);
    ring.PopFront();
    EXPECT_TRUE(ring.TryPush(4, record, 3));
    for (uint64_t expected = 1; expected <= 4; ++expected) {
        ASSERT_NE(nullptr, ring.Front());
        EXPECT_EQ(expected, ring.Front()->time);
        EXPECT_EQ(3u, ring.Front()->length);
        ring.PopFront();
    }
    EXPECT_EQ(nullptr, ring.Front());
}

TEST(CaptureRing, ConcurrentProducersAndOneConsumerLoseAndDuplicateNothing) {
    RecordRing ring;
    ASSERT_TRUE(ring.Allocate(32));
    constexpr uint32_t kThreads = 3;
    constexpr uint32_t kEach = 20000;
    std::atomic<uint64_t> accepted{0};
    std::atomic<bool> producing{true};
    std::vector<std::thread> producers;
    for (uint32_t t = 0; t < kThreads; ++t) {
        producers.emplace_back([&ring, &accepted, t] {
            for (uint32_t i = 0; i < kEach; ++i) {
                uint8_t record[8];
                OrbPerix::capture::PutLE(record, t, 4);
                OrbPerix::capture::PutLE(record + 4, i, 4);
                if (ring.TryPush(t, record, sizeof(record))) {
                    accepted.fetch_add(1);
                }
            }
        });
    }
    // The consumer checks that each producer's records arrive whole and in its order.
    uint64_t consumed = 0;
    std::vector<int64_t> last(kThreads, -1);
    bool intact = true;
    auto drain = [&] {
        while (const RecordRing::Cell* cell = ring.Front()) {
            const uint64_t producer = OrbPerix::capture::GetLE(cell->bytes, 4);
            const int64_t sequence = static_cast<int64_t>(OrbPerix::capture::GetLE(cell->bytes + 4, 4));
            intact = intact && cell->length == 8 && producer < kThreads && cell->time == producer &&
                     sequence > last[producer];
            if (producer < kThreads) last[producer] = sequence;
            ++consumed;
            ring.PopFront();
        }
    };
    std::thread consumer([&] {
        while (producing.load()) drain();
        drain();
    });
    for (std::thread& producer : producers) producer.join();
    producing.store(false);
    consumer.join();
    EXPECT_TRUE(intact);
    EXPECT_EQ(accepted.load(), consumed);
    EXPECT_EQ(uint64_t{kThreads} * kEach, consumed + ring.Dropped());
}

}  // namespace
