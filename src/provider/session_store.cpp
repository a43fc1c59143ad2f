#include "provider/session_store.h"

#include <cstring>
#include <new>
#include <utility>

#include "platform/platform.h"

namespace OrbPerix {

namespace {

void CopyFacts(const PerixSessionInfo& record, SessionFacts* out) noexcept {
    out->serviceHandle = record.serviceHandle;
    out->serverPort = record.serverPort;
    out->listener = record.listener;
    out->route = record.route;
}

// Generation numbers for every store of the process, never reused.
std::atomic<uint64_t> g_generations{0};

uint64_t NextGeneration() noexcept {
    return g_generations.fetch_add(1, std::memory_order_relaxed) + 1;
}

// A thread's last HasHandle answer: for which store, at which generation, for which device id
// (ids longer than the buffer are not kept).
struct HandleAnswer {
    const void* store;
    uint64_t generation;
    uint32_t length;
    bool hasHandle;
    char deviceId[96];
};
thread_local HandleAnswer t_handleAnswer{nullptr, 0, 0, false, {}};

// Zeroes a record's session key and frees it. Null is ignored.
void Destroy(PerixSessionInfo* record) noexcept {
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

}  // namespace

// ---- Lease ----

SessionStore::Lease::Lease(SessionStore* store, PerixSessionInfo* record) noexcept
    : store_(store), record_(record), handle_(record->serviceHandle), load_(record->load) {}

SessionStore::Lease::Lease(Lease&& other) noexcept
    : store_(other.store_), record_(other.record_), handle_(other.handle_), load_(other.load_) {
    other.record_ = nullptr;
}

SessionStore::Lease& SessionStore::Lease::operator=(Lease&& other) noexcept {
    if (this != &other) {
        End();
        store_ = other.store_;
        record_ = other.record_;
        handle_ = other.handle_;
        load_ = other.load_;
        other.record_ = nullptr;
    }
    return *this;
}

SessionStore::Lease::~Lease() { End(); }

void SessionStore::Lease::End() noexcept {
    if (record_ != nullptr) {
        store_->EndLease(record_);
        record_ = nullptr;
    }
}

void SessionStore::EndLease(PerixSessionInfo* record) noexcept {
    bool retire = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        --record->leases;
        retire = record->leases == 0 && record->removed;
    }
    if (retire) {
        Retire(record);
    }
}

// ---- Lookups ----

bool SessionStore::Lookup(std::string_view deviceId, SessionFacts* out) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr) {
        return false;
    }
    CopyFacts(*found->second, out);
    return true;
}

SessionStore::SessionStore() noexcept : generation_(NextGeneration()) {}

void SessionStore::Changed() noexcept {
    generation_.store(NextGeneration(), std::memory_order_release);
}

bool SessionStore::HasHandle(std::string_view deviceId) const noexcept {
    HandleAnswer& answer = t_handleAnswer;
    // Acquire: a change published before this call is seen, so a kept answer is never older
    // than the last change that happened before the question.
    if (answer.store == this &&
        answer.generation == generation_.load(std::memory_order_acquire) &&
        answer.length == deviceId.size() &&
        (deviceId.empty() || std::memcmp(answer.deviceId, deviceId.data(), deviceId.size()) == 0)) {
        return answer.hasHandle;
    }
    bool hasHandle = false;
    uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        generation = generation_.load(std::memory_order_relaxed);
        auto found = map_.find(deviceId);
        hasHandle = found != map_.end() && found->second != nullptr &&
                    found->second->serviceHandle != nullptr;
    }
    if (deviceId.size() <= sizeof(answer.deviceId)) {
        if (!deviceId.empty()) {
            std::memcpy(answer.deviceId, deviceId.data(), deviceId.size());
        }
        answer.length = static_cast<uint32_t>(deviceId.size());
        answer.generation = generation;
        answer.hasHandle = hasHandle;
        answer.store = this;
    } else {
        answer.store = nullptr;
    }
    return hasHandle;
}

SessionStore::Lease SessionStore::Acquire(std::string_view deviceId, SessionFacts* facts) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr ||
        found->second->serviceHandle == nullptr) {
        return Lease();
    }
    PerixSessionInfo* record = found->second;
    ++record->leases;
    if (facts != nullptr) {
        CopyFacts(*record, facts);
    }
    return Lease(this, record);
}

SessionStore::Lease SessionStore::AcquireByHandle(void* handle) noexcept {
    if (handle == nullptr) {
        return Lease();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : map_) {
        PerixSessionInfo* record = entry.second;
        if (record != nullptr && record->serviceHandle == handle) {
            ++record->leases;
            return Lease(this, record);
        }
    }
    return Lease();
}

bool SessionStore::LookupByHandle(void* handle, SessionFacts* out, std::string* deviceId,
                                  bool* noMemory) const noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : map_) {
        const PerixSessionInfo* record = entry.second;
        if (record == nullptr || record->serviceHandle != handle) {
            continue;
        }
        CopyFacts(*record, out);
        if (deviceId != nullptr) {
            try {
                *deviceId = record->deviceId;
            } catch (const std::bad_alloc&) {
                if (noMemory != nullptr) {
                    *noMemory = true;
                }
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

// ---- Changes ----

bool SessionStore::SetServiceId(std::string_view deviceId, const std::string& serviceId,
                                bool* noMemory) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr) {
        return false;
    }
    try {
        found->second->serviceId = serviceId;
    } catch (const std::bad_alloc&) {
        if (noMemory != nullptr) {
            *noMemory = true;
        }
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

SessionStore::Reservation SessionStore::Reserve(std::string_view deviceId) noexcept {
    // Built outside the lock; freed again when the key turns out to be taken.
    PerixSessionInfo* record = new (std::nothrow) PerixSessionInfo();
    if (record == nullptr) {
        return Reservation::kNoMemory;
    }
    try {
        record->deviceId.assign(deviceId.data(), deviceId.size());
    } catch (const std::bad_alloc&) {
        delete record;
        return Reservation::kNoMemory;
    }
    PerixSessionInfo* displaced = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = map_.find(deviceId);
        if (found != map_.end()) {
            if (found->second != nullptr) {
                // A session with a handle, or another creation of the same peer in progress.
                delete record;
                return Reservation::kExists;
            }
            found->second = record;
        } else {
            try {
                map_.emplace(record->deviceId, record);
            } catch (const std::bad_alloc&) {
                displaced = record;
            }
        }
    }
    if (displaced != nullptr) {
        delete displaced;
        return Reservation::kNoMemory;
    }
    return Reservation::kReserved;
}

bool SessionStore::Complete(std::string_view deviceId, void* handle, const EngineLoad& load,
                            const ProviderListener& listener, const HostRoute& route) noexcept {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = map_.find(deviceId);
    if (found == map_.end() || found->second == nullptr ||
        found->second->serviceHandle != nullptr) {
        return false;
    }
    PerixSessionInfo* record = found->second;
    record->serviceHandle = handle;
    record->load = &load;
    record->listener = listener;
    record->route = route;
    Changed();
    return true;
}

void SessionStore::Abandon(std::string_view deviceId) noexcept {
    PerixSessionInfo* record = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = map_.find(deviceId);
        if (found == map_.end() || found->second == nullptr ||
            found->second->serviceHandle != nullptr) {
            return;
        }
        record = found->second;
        map_.erase(found);
    }
    Destroy(record);
}

PerixSessionInfo* SessionStore::Detach(PerixSessionInfo* record) noexcept {
    if (record == nullptr) {
        return nullptr;
    }
    record->removed = true;
    return record->leases == 0 ? record : nullptr;
}

void SessionStore::Retire(PerixSessionInfo* record) noexcept {
    if (record->serviceHandle != nullptr && record->load != nullptr) {
        // The input provider ignores the release status; the source provider's is not
        // reported either. A finalised load refuses the call: the handle died with the engine.
        engine::Call(*record->load, record->load->main.PERIXReleaseServiceHandle,
                     record->serviceHandle, nullptr, nullptr);
    }
    record->serviceHandle = nullptr;
    Destroy(record);
}

bool SessionStore::Remove(std::string_view deviceId) noexcept {
    PerixSessionInfo* retire = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = map_.find(deviceId);
        if (found == map_.end()) {
            return false;
        }
        retire = Detach(found->second);
        map_.erase(found);
        Changed();
    }
    if (retire != nullptr) {
        Retire(retire);
    }
    return true;
}

void SessionStore::RemoveAll() noexcept {
    Map taken;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        taken.swap(map_);
        Changed();
        for (auto& entry : taken) {
            entry.second = Detach(entry.second);
        }
    }
    for (auto& entry : taken) {
        if (entry.second != nullptr) {
            Retire(entry.second);
        }
    }
}

}  // namespace OrbPerix
