// The exported sender: argument checks, the singleton, the 8-bit capacity, and concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "packet_decoder.h"
#include "remote_test_helpers.h"

namespace {

using remote_test::kGuard;
using remote_test::Send;
using remote_test::SendResult;
using remote_test::ZeroEvent;

TEST(RemoteSender, NullEventOrBufferIsRefusedAndTheBufferUntouched) {
    RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
    ASSERT_NE(sender, nullptr);
    const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
    std::vector<uint8_t> buffer(109, kGuard);
    RemoteCtrlEvent event = ZeroEvent(6);
    ClearLogs();
    EXPECT_EQ(sender->SendRemoteCtrlEvent(nullptr, buffer.data(), 105, base.start,
                                          base.frequency),
              -1);
    EXPECT_EQ(sender->SendRemoteCtrlEvent(&event, nullptr, 105, base.start, base.frequency), -1);
    EXPECT_EQ(buffer, std::vector<uint8_t>(109, kGuard));
    const LogLine line{4,
                       "SendRemoteCtrlEvent event is nullptr"
                       "(RemoteUtil::RemoteEvent::SendRemoteCtrlEvent)"};
    EXPECT_EQ(TraceLines(), (std::vector<LogLine>{line, line}));
}

TEST(RemoteSender, GetInstanceReturnsOneInstanceToEveryThread) {
    RemoteUtil::RemoteEvent* first = RemoteUtil::RemoteEvent::GetInstance();
    ASSERT_NE(first, nullptr);
    std::vector<RemoteUtil::RemoteEvent*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = RemoteUtil::RemoteEvent::GetInstance(); });
    }
    for (std::thread& thread : threads) thread.join();
    for (RemoteUtil::RemoteEvent* instance : seen) EXPECT_EQ(instance, first);
}

// The input provider passes 233 for its 489-byte text buffer (489 reduced to 8 bits): the
// packet is built within 233 bytes, whatever room the buffer really has.
TEST(RemoteSender, Capacity233LimitsA489ByteBuffer) {
    RemoteCtrlEvent event = ZeroEvent(7);
    event.payload.input.content.contentLength = 217;
    const SendResult fits = Send(event, 489, static_cast<uint8_t>(489));
    EXPECT_EQ(fits.length, 236);
    for (size_t at = 236; at < fits.buffer.size(); ++at) {
        ASSERT_EQ(fits.buffer[at], kGuard) << at;  // never zeroed, never written
    }
    event.payload.input.content.contentLength = 218;
    EXPECT_EQ(Send(event, 489, static_cast<uint8_t>(489)).length, -1);
}

// Many threads share the sender; each packet must be exactly its own event's.
TEST(RemoteSender, ConcurrentSendersBuildIndependentPackets) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 2000;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &mismatches] {
            const remote_test::TimeBase base = remote_test::TimeBaseAt(0);
            RemoteUtil::RemoteEvent* sender = RemoteUtil::RemoteEvent::GetInstance();
            for (int i = 0; i < kPerThread; ++i) {
                RemoteCtrlEvent event = ZeroEvent(6);
                event.headerTag = static_cast<uint32_t>(t);
                event.payload.mouse.action = static_cast<uint32_t>(i % 3);
                event.payload.mouse.coords[0] = i;
                std::vector<uint8_t> buffer(109, kGuard);
                const int length = sender->SendRemoteCtrlEvent(&event, buffer.data(), 105,
                                                               base.start, base.frequency);
                OrbPerix::packet::DecodedPacket packet;
                if (length != 26 ||
                    !OrbPerix::packet::DecodePacket(buffer.data(), 26, &packet, nullptr) ||
                    packet.tag != t || packet.action != static_cast<uint32_t>(i % 3) ||
                    packet.values[0] != static_cast<uint16_t>(i)) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
