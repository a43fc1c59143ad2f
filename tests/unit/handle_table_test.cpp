// The C interface's handle table on its own: a table of the test's, not the process-wide one.
// Uses are announced per thread (the first threads, a few deep) or counted in the slot (the
// rest); destroy must wait for other threads' Uses on either path, and never wait for its own.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "capi/handle_table.h"

namespace {

using OrbPerix::capi::HandleKind;
using OrbPerix::capi::HandleTable;

std::shared_ptr<void> Object(std::atomic<int>* destroyed) {
    return std::shared_ptr<int>(new int(7), [destroyed](int* p) {
        delete p;
        ++*destroyed;
    });
}

TEST(HandleTable, StaleOtherKindAndZeroHandlesFindNothing) {
    auto table = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    const uint64_t handle = table->Add(HandleKind::kInput, Object(&destroyed));
    ASSERT_NE(0u, handle);
    EXPECT_TRUE(table->Acquire(handle, HandleKind::kInput));
    EXPECT_FALSE(table->Acquire(handle, HandleKind::kSink));
    EXPECT_FALSE(table->Acquire(0, HandleKind::kInput));
    EXPECT_TRUE(table->Remove(handle, HandleKind::kInput) != nullptr);
    EXPECT_EQ(1, destroyed.load());
    EXPECT_FALSE(table->Acquire(handle, HandleKind::kInput));
    EXPECT_TRUE(table->Remove(handle, HandleKind::kInput) == nullptr);
    // Slots are taken in turn: once every other slot had an occupant, the next one in this slot
    // has another number, and the old one stays dead.
    for (uint32_t i = 1; i < HandleTable::kSlots; ++i) {
        table->Remove(table->Add(HandleKind::kInput, Object(&destroyed)), HandleKind::kInput);
    }
    const uint64_t next = table->Add(HandleKind::kInput, Object(&destroyed));
    EXPECT_EQ(handle & 0xFFFFFFFFu, next & 0xFFFFFFFFu) << "the same slot";
    EXPECT_NE(handle, next);
    EXPECT_FALSE(table->Acquire(handle, HandleKind::kInput));
    EXPECT_TRUE(table->Acquire(next, HandleKind::kInput));
}

// Holds `depth` nested Uses of `handle` on a thread of its own until told to let go; Remove on
// another thread must not return before.
void ExpectRemoveWaitsFor(uint32_t depth) {
    auto table = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    const uint64_t handle = table->Add(HandleKind::kSource, Object(&destroyed));
    std::promise<void> holding;
    std::promise<void> letGo;
    std::thread user([&] {
        std::vector<HandleTable::Use> uses;
        uses.reserve(depth);
        for (uint32_t i = 0; i < depth; ++i) {
            uses.push_back(table->Acquire(handle, HandleKind::kSource));
        }
        holding.set_value();
        letGo.get_future().wait();
        for (uint32_t i = depth; i > 0; --i) {
            uses.pop_back();  // innermost first, as on a stack
        }
    });
    holding.get_future().wait();
    auto removed = std::async(
        std::launch::async, [&] { return table->Remove(handle, HandleKind::kSource) != nullptr; });
    EXPECT_EQ(std::future_status::timeout, removed.wait_for(std::chrono::milliseconds(100)))
        << "Remove returned while " << depth << " Uses were held";
    EXPECT_FALSE(table->Acquire(handle, HandleKind::kSource)) << "no new Use once dying";
    letGo.set_value();
    EXPECT_TRUE(removed.get());
    user.join();
    EXPECT_EQ(1, destroyed.load());
}

TEST(HandleTable, RemoveWaitsForAnAnnouncedUse) { ExpectRemoveWaitsFor(1); }

TEST(HandleTable, RemoveWaitsForUsesNestedDeeperThanTheRecord) {
    ExpectRemoveWaitsFor(HandleTable::kNested + 3);  // the last three are counted in the slot
}

TEST(HandleTable, RemoveFromInsideOwnUseFreesWhenThatUseEnds) {
    auto table = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    const uint64_t handle = table->Add(HandleKind::kSink, Object(&destroyed));
    {
        HandleTable::Use use = table->Acquire(handle, HandleKind::kSink);
        ASSERT_TRUE(use);
        std::shared_ptr<void> object = table->Remove(handle, HandleKind::kSink);  // no wait
        EXPECT_TRUE(object != nullptr);
        object.reset();
        EXPECT_EQ(0, destroyed.load()) << "the slot keeps it while this thread uses it";
        EXPECT_FALSE(table->Acquire(handle, HandleKind::kSink));
    }
    EXPECT_EQ(1, destroyed.load());
}

// A thread that went on to use another table still knows its own Uses of the first: removing
// from inside one does not wait for itself, and the Use frees the object when it ends.
TEST(HandleTable, RemoveFromInsideOwnUseAfterUsingAnotherTable) {
    auto first = std::make_unique<HandleTable>();
    auto second = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    const uint64_t handle = first->Add(HandleKind::kInput, Object(&destroyed));
    const uint64_t other = second->Add(HandleKind::kInput, Object(&destroyed));
    {
        HandleTable::Use outer = first->Acquire(handle, HandleKind::kInput);
        ASSERT_TRUE(outer);
        {
            HandleTable::Use inner = second->Acquire(other, HandleKind::kInput);
            ASSERT_TRUE(inner);
            HandleTable::Use again = first->Acquire(handle, HandleKind::kInput);
            ASSERT_TRUE(again);
        }
        EXPECT_TRUE(first->Remove(handle, HandleKind::kInput) != nullptr);  // no wait
        EXPECT_EQ(0, destroyed.load()) << "the slot keeps it while this thread uses it";
        EXPECT_FALSE(first->Acquire(handle, HandleKind::kInput));
    }
    EXPECT_EQ(1, destroyed.load());
    EXPECT_TRUE(second->Acquire(other, HandleKind::kInput)) << "the other table's handle lives";
}

TEST(HandleTable, ThreadsBeyondTheAnnouncementRecordsStillCount) {
    auto table = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    const uint64_t handle = table->Add(HandleKind::kInput, Object(&destroyed));
    std::atomic<int> used{0};
    int started = 0;
    for (uint32_t round = 0; round < HandleTable::kThreadRecords + 40; round += 40) {
        started += 40;
        std::vector<std::thread> threads;
        for (int t = 0; t < 40; ++t) {
            threads.emplace_back(
                [&] { used += table->Acquire(handle, HandleKind::kInput) ? 1 : 0; });
        }
        for (std::thread& t : threads) {
            t.join();
        }
    }
    EXPECT_EQ(started, used.load());
    EXPECT_TRUE(table->Remove(handle, HandleKind::kInput) != nullptr);
    EXPECT_EQ(1, destroyed.load());
}

TEST(HandleTable, AddFailsWhenEverySlotIsTaken) {
    auto table = std::make_unique<HandleTable>();
    std::atomic<int> destroyed{0};
    for (uint32_t i = 0; i < HandleTable::kSlots; ++i) {
        ASSERT_NE(0u, table->Add(HandleKind::kCastSession, Object(&destroyed))) << i;
    }
    EXPECT_EQ(0u, table->Add(HandleKind::kCastSession, Object(&destroyed)));
}

}  // namespace
