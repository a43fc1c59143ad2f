// The source provider's partial-refresh channel (service type 11): open, close, the write path
// with its recorded write time, and the engine's partial-refresh deliveries.
#include "engine/engine_gate.h"
#include "log/log.h"
#include "platform/platform.h"
#include "util/elapsed.h"
#include "provider/source_provider.h"
#include "provider/source_stream.h"
#include "util/result.h"

namespace OrbPerix {

namespace {

constexpr uint32_t kPartialRefreshServiceType = 11;

// The engine's identity of a host service; the engine type field is left 0 on this channel.
PerixServiceId RefreshServiceId(const ServiceInfo& service) noexcept {
    return PerixServiceId{service.deviceId.data(),
                          static_cast<uint32_t>(service.deviceId.size()),
                          service.serviceId.data(),
                          static_cast<uint32_t>(service.serviceId.size()), 0};
}

struct RefreshChannel {
    using Record = PartialRefreshData;
    static constexpr auto kListener = &ProviderListener::onPartialRefreshData;
    static constexpr const char* kScope = "OrbPerix::SourceProvider::PartialRefreshNotify";
    static constexpr const char* kEvent = "On PartialRefreshNotify";
    static constexpr capture::PayloadKind kPayloadKind = capture::PayloadKind::kRefresh;
    static constexpr const char* kNoListener = "On PartialRefreshNotify, Listen function is null";
    static constexpr const char* kNewFailed =
        "On PartialRefreshNotify, new dataExtend failed: , dataLen: ";
    static constexpr const char* kCopyFailed = "PartialRefreshNotify, copy data failed: ";
    static uint32_t HostServiceType(uint32_t) noexcept { return kPartialRefreshServiceType; }
    static void Fill(PartialRefreshData& record, uint32_t a, uint32_t b, uint32_t length,
                     uint8_t* data) noexcept {
        record.a = a;
        record.b = b;
        record.reserved = 0;
        record.dataLen = length;
        record.data = data;
    }
};

constexpr const char* kWriteScope = "OrbPerix::SourceProvider::PartialRefreshWriteStreamBuffer";

// The write path's failure lines, out of line: inlined, the log stream's setup is hoisted into
// every write's prologue.
template <typename... Parts>
ORBPERIX_COLD void LogWriteError(const Parts&... parts) noexcept {
    log::Trace(LOG_MESSAGE_ERROR, kWriteScope, parts...);
}

// Open and close differ only in the engine entry and their texts.
int OpenOrClose(const EngineLoad& load, int (*entry)(const PerixServiceId*, void*, void*),
                ServiceInfo* service,
                const char* scope, const char* nullMessage, const char* typeMessage,
                const char* failedMessage) {
    if (service == nullptr) {
        log::Trace(LOG_MESSAGE_ERROR, scope, nullMessage);
        return kInvalidArgument;
    }
    if (service->serviceType != kPartialRefreshServiceType) {
        log::Trace(LOG_MESSAGE_ERROR, scope, typeMessage, service->serviceType);
        return kInvalidArgument;
    }
    const PerixServiceId id = RefreshServiceId(*service);
    const int r = engine::Call(load, entry, &id, static_cast<void*>(nullptr), static_cast<void*>(nullptr));
    if (r != 0) {
        log::Trace(LOG_MESSAGE_ERROR, scope, failedMessage, r);
        return r;
    }
    return 0;
}

}  // namespace

int SourceProvider::OpenPartialRefresh(ServiceInfo* service) {
    return OpenOrClose(load_, load_.refresh.PartialRefreshOpen, service,
                       "OrbPerix::SourceProvider::OpenPartialRefresh",
                       "OpenPartialRefresh service is null",
                       "OpenPartialRefresh failed, type Invalid: ",
                       "OpenPartialRefresh failed with ret=");
}

int SourceProvider::ClosePartialRefresh(ServiceInfo* service) {
    return OpenOrClose(load_, load_.refresh.PartialRefreshClose, service,
                       "OrbPerix::SourceProvider::ClosePartialRefresh",
                       "ClosePartialRefresh service is null",
                       "ClosePartialRefresh failed, type Invalid: ",
                       "ClosePartialRefresh failed with ret=");
}

// A millisecond stamp: the coarse clock serves it (no precise counter read per write), and
// while its reading stands still (a kernel tick) the stamp cannot change, so the division and
// the stores are skipped. The time base is read on every write: a provider constructed since
// restarts it, and the comparison is of ticks since the base, so a restart is seen at once.
ORBPERIX_ALWAYS_INLINE void SourceProvider::StampWriteTime() noexcept {
    const int64_t ticks =
        platform::CoarseCounter() - state_.clockStart.load(std::memory_order_relaxed);
    if (ticks == lastWriteTicks_.load(std::memory_order_relaxed)) {
        return;
    }
    lastWriteTicks_.store(ticks, std::memory_order_relaxed);
    // The coarse reading may still lie before a time base just restarted: 0 then.
    const int64_t frequency = state_.clockFrequency.load(std::memory_order_relaxed);
    const int64_t ms = ticks > 0 ? ElapsedMilliseconds(ticks, 0, frequency) : 0;
    lastWriteTimeMs_.store(static_cast<uint32_t>(ms), std::memory_order_relaxed);
}

int SourceProvider::PartialRefreshWriteStreamBuffer(ServiceInfo* service, uint8_t* data,
                                                    int32_t length) {
    // A negative length is the engine's to judge.
    if (service == nullptr || data == nullptr || length == 0) {
        LogWriteError("PartialRefreshWriteStreamBuffer failed: invalid parameter");
        return kInvalidArgument;
    }
    StampWriteTime();

    const PerixServiceId id = RefreshServiceId(*service);
    const PerixDataBuffer buffer{data, static_cast<uint32_t>(length)};
    const int r = engine::Call(load_, load_.refresh.PartialRefreshWriteStreamBuffer, &id, &buffer);
    if (r != 0) {
        LogWriteError("PartialRefreshWriteStreamBuffer failed with ret=", r);
        return r;
    }
    return 0;
}

int SourceProvider::PartialRefreshNotify(const void* serviceId, const void* refreshData) noexcept {
    return DeliverStream<RefreshChannel>(serviceId, refreshData);
}

}  // namespace OrbPerix
