#include "provider/session_store.h"

#include <cstring>
#include <new>

#include "platform/platform.h"

namespace OrbPerix {

SessionStore::~SessionStore() {
    for (auto& entry : map_) {
        Destroy(entry.second);
    }
}

bool SessionStore::Lookup(std::string_view deviceId, SessionFacts* out) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr) {
        return false;
    }
    out->serviceHandle = found->second->serviceHandle;
    out->serverPort = found->second->serverPort;
    out->listener = found->second->listener;
    return true;
}

void* SessionStore::HandleOf(std::string_view deviceId) const noexcept {
    SessionFacts facts;
    return Lookup(deviceId, &facts) ? facts.serviceHandle : nullptr;
}

bool SessionStore::LookupByHandle(void* handle, SessionFacts* out,
                                  std::string* deviceId) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : map_) {
        const PerixSessionInfo* record = entry.second;
        if (record == nullptr || record->serviceHandle != handle) {
            continue;
        }
        out->serviceHandle = record->serviceHandle;
        out->serverPort = record->serverPort;
        out->listener = record->listener;
        if (deviceId != nullptr) {
            try {
                *deviceId = record->deviceId;
            } catch (const std::bad_alloc&) {
                return false;
            }
        }
        return true;
    }
    return false;
}

bool SessionStore::FirstWithService(std::string* deviceId, std::string* serviceId) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : map_) {
        const PerixSessionInfo* record = entry.second;
        if (record == nullptr || record->deviceId.empty() || record->serviceId.empty()) {
            continue;
        }
        try {
            *deviceId = record->deviceId;
            *serviceId = record->serviceId;
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
    return false;
}

bool SessionStore::SetServiceId(std::string_view deviceId, const std::string& serviceId) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr) {
        return false;
    }
    try {
        found->second->serviceId = serviceId;
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

int SessionStore::MarkConnected(std::string_view deviceId, void* handle, int32_t serverPort,
                                const uint8_t* key, size_t keySize) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr || found->second->serviceHandle != handle) {
        return kSessionGone;
    }
    PerixSessionInfo* record = found->second;
    record->serverPort = serverPort;
    return platform::BoundedCopy(record->sessionKey, sizeof(record->sessionKey), key, keySize);
}

PerixSessionInfo* SessionStore::Insert(PerixSessionInfo* record) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(std::string_view(record->deviceId));
    if (found != map_.end()) {
        PerixSessionInfo* previous = found->second;
        found->second = record;
        return previous;
    }
    try {
        map_.emplace(record->deviceId, record);
    } catch (const std::bad_alloc&) {
        // No node for the record: hand it back so that it is freed rather than lost.
        return record;
    }
    return nullptr;
}

PerixSessionInfo* SessionStore::Take(std::string_view deviceId, bool* found) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto entry = map_.find(deviceId);
    *found = entry != map_.end();
    if (!*found) {
        return nullptr;
    }
    PerixSessionInfo* record = entry->second;
    map_.erase(entry);
    return record;
}

SessionStore::Map SessionStore::TakeAll() noexcept {
    Map taken;
    std::lock_guard<std::mutex> lock(mutex_);
    taken.swap(map_);
    return taken;
}

size_t SessionStore::Size() const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    return map_.size();
}

bool SessionStore::Contains(std::string_view deviceId) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    return map_.find(deviceId) != map_.end();
}

void SessionStore::Destroy(PerixSessionInfo* record) noexcept {
    if (record == nullptr) {
        return;
    }
    // The key must not outlive the session in freed memory.
    volatile uint8_t* key = record->sessionKey;
    for (size_t i = 0; i < sizeof(record->sessionKey); ++i) {
        key[i] = 0;
    }
    delete record;
}

}  // namespace OrbPerix
