// The session store's presence check, which keeps a per-thread answer between changes: every
// change of handles made on any thread must reach the next question, and a store never answers
// with another store's kept answer.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>

#include "engine/engine_gate.h"
#include "provider/session_store.h"

namespace {

using OrbPerix::SessionStore;

int g_handles[2];

// Creates the session `id` with `handle`, as a connect does.
void Add(SessionStore& store, const std::string& id, void* handle) {
    ASSERT_EQ(SessionStore::Reservation::kReserved, store.Reserve(id));
    ASSERT_TRUE(store.Complete(id, handle, OrbPerix::engine::NoEngine(), ProviderListener{},
                               OrbPerix::HostRoute{}));
}

TEST(SessionStoreHasHandle, FollowsChangesMadeOnOtherThreads) {
    SessionStore store;
    EXPECT_FALSE(store.HasHandle("peer-a"));
    ASSERT_EQ(SessionStore::Reservation::kReserved, store.Reserve("peer-a"));
    EXPECT_FALSE(store.HasHandle("peer-a")) << "a reservation has no handle";
    ASSERT_TRUE(store.Complete("peer-a", &g_handles[0], OrbPerix::engine::NoEngine(),
                               ProviderListener{}, OrbPerix::HostRoute{}));
    EXPECT_TRUE(store.HasHandle("peer-a"));
    EXPECT_TRUE(store.HasHandle("peer-a")) << "asked again without a change";
    EXPECT_FALSE(store.HasHandle("peer-b")) << "another id is not the kept one";
    EXPECT_FALSE(store.HasHandle("peer-"));
    EXPECT_TRUE(store.HasHandle("peer-a"));

    std::thread([&store] { EXPECT_TRUE(store.Remove("peer-a")); }).join();
    EXPECT_FALSE(store.HasHandle("peer-a")) << "removed on another thread";
    std::thread([&store] { Add(store, "peer-a", &g_handles[1]); }).join();
    EXPECT_TRUE(store.HasHandle("peer-a")) << "created again on another thread";
    std::thread([&store] { store.RemoveAll(); }).join();
    EXPECT_FALSE(store.HasHandle("peer-a")) << "torn down on another thread";
}

TEST(SessionStoreHasHandle, AnswersIdsLongerThanTheKeptCopy) {
    SessionStore store;
    const std::string longId(300, 'x');
    EXPECT_FALSE(store.HasHandle(longId));
    Add(store, longId, &g_handles[0]);
    EXPECT_TRUE(store.HasHandle(longId));
    EXPECT_FALSE(store.HasHandle(std::string(299, 'x')));
    EXPECT_TRUE(store.Remove(longId));
    EXPECT_FALSE(store.HasHandle(longId));
}

TEST(SessionStoreHasHandle, AStoreBuiltWhereAnotherWasKeepsNoAnswerOfIt) {
    alignas(SessionStore) unsigned char place[sizeof(SessionStore)];
    auto* first = new (place) SessionStore();
    Add(*first, "peer-a", &g_handles[0]);
    EXPECT_TRUE(first->HasHandle("peer-a"));
    first->RemoveAll();
    first->~SessionStore();
    auto* second = new (place) SessionStore();
    ASSERT_EQ(static_cast<void*>(first), static_cast<void*>(second));
    // As many changes as the first store had made when it answered.
    Add(*second, "peer-b", &g_handles[1]);
    EXPECT_FALSE(second->HasHandle("peer-a"));
    EXPECT_TRUE(second->HasHandle("peer-b"));
    second->RemoveAll();
    second->~SessionStore();
}

}  // namespace
