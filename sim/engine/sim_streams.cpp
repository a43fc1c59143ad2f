// The simulated peer's stream side: records of what arrives on the audio and refresh channels,
// and a worker thread that makes the peer's deliveries back to the host.
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "delivery_thread.h"
#include "sim_raw.h"
#include "perix_sim_streams.h"
#include "sim_streams_hooks.h"

namespace {

constexpr int kChannels = 2;
constexpr int kKinds = 2;
constexpr uint32_t kUnreadableBit = 0x80000000u;

std::string Text(const char* text, uint32_t length) {
    return text != nullptr ? std::string(text, length) : std::string();
}

struct Delivery {
    int kind = 0;
    std::string deviceId;
    std::string serviceId;
    uint32_t words[3] = {};
    uint32_t engineType = 0;
    bool hasData = false;
    std::vector<uint8_t> data;
    uint32_t length = 0;
    // Malformed deliveries (perix_sim_deliver_*_raw) carry their fields here instead.
    bool raw = false;
    perix_sim::RawCopy rawDevice, rawService, rawData;
};

struct Channel {
    perix_sim_stream_stats stats{};
    std::set<std::pair<std::string, std::string>> open;
};

class Streams {
public:
    void Open(int channel, const PerixServiceId* service) {
        std::lock_guard<std::mutex> lock(mutex_);
        Channel& c = channels_[channel];
        ++c.stats.opens;
        if (service != nullptr) {
            c.open.insert(Key(*service));
        }
        c.stats.openServices = static_cast<uint32_t>(c.open.size());
    }

    void Close(int channel, const PerixServiceId* service) {
        std::lock_guard<std::mutex> lock(mutex_);
        Channel& c = channels_[channel];
        ++c.stats.closes;
        if (service != nullptr) {
            c.open.erase(Key(*service));
        }
        c.stats.openServices = static_cast<uint32_t>(c.open.size());
    }

    void Write(int channel, const PerixServiceId* service, const uint8_t* data, uint32_t length) {
        std::lock_guard<std::mutex> lock(mutex_);
        Channel& c = channels_[channel];
        ++c.stats.buffers;
        c.stats.lastLength = length;
        if (service == nullptr || c.open.count(Key(*service)) == 0) {
            ++c.stats.toClosedService;
        }
        if ((length & kUnreadableBit) != 0 || (data == nullptr && length != 0)) {
            ++c.stats.unreadable;
            return;
        }
        c.stats.bytes += length;
        c.stats.checksum = perix_sim_fnv1a(c.stats.checksum, data, length);
    }

    int Stats(int channel, perix_sim_stream_stats* out) {
        if (channel < 0 || channel >= kChannels || out == nullptr) {
            return -1;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        *out = channels_[channel].stats;
        return 0;
    }

    int Queue(Delivery delivery) {
        const int kind = delivery.kind;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ++deliveries_[kind].queued;
        }
        const bool queued = thread_.Post([this, kind, d = std::move(delivery)] {
            const int result = Make(d);  // the host's code runs with no peer lock held
            std::lock_guard<std::mutex> lock(mutex_);
            Account(kind, result);
        });
        return queued ? 0 : -1;
    }

    void Flush() { thread_.Flush(); }

    int DeliveryStats(int kind, perix_sim_delivery_stats* out) {
        if (kind < 0 || kind >= kKinds || out == nullptr) {
            return -1;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        *out = deliveries_[kind];
        return 0;
    }

    void Reset() {
        thread_.Stop();
        std::lock_guard<std::mutex> lock(mutex_);
        for (Channel& c : channels_) {
            c = Channel();
            c.stats.checksum = PERIX_SIM_FNV1A_BASIS;
        }
        for (perix_sim_delivery_stats& d : deliveries_) {
            d = perix_sim_delivery_stats{};
        }
    }

    Streams() {
        for (Channel& c : channels_) {
            c.stats.checksum = PERIX_SIM_FNV1A_BASIS;
        }
    }

private:
    static std::pair<std::string, std::string> Key(const PerixServiceId& service) {
        return {Text(service.deviceId, service.deviceIdLen),
                Text(service.serviceId, service.serviceIdLen)};
    }

    void Account(int kind, int result) {
        perix_sim_delivery_stats& d = deliveries_[kind];
        ++d.made;
        d.resultZero += result == 0 ? 1 : 0;
        d.notRegistered += result == -1 ? 1 : 0;
        d.lastResult = result;
    }

    static int Make(const Delivery& d) {
        switch (d.kind) {
            case PERIX_SIM_DELIVER_AUDIO:
            case PERIX_SIM_DELIVER_REFRESH: {
                if (d.raw) {
                    const PerixServiceId id{d.rawDevice.Text(), d.rawDevice.reported,
                                            d.rawService.Text(), d.rawService.reported,
                                            d.engineType};
                    PerixStreamNotify notify{d.words[0], d.words[1], 0, d.rawData.reported,
                                             d.rawData.Bytes()};
                    return d.kind == PERIX_SIM_DELIVER_AUDIO ? perix_sim_fire_audio(&id, &notify)
                                                             : perix_sim_fire_refresh(&id, &notify);
                }
                const PerixServiceId id{d.deviceId.data(), static_cast<uint32_t>(d.deviceId.size()),
                                        d.serviceId.data(), static_cast<uint32_t>(d.serviceId.size()),
                                        d.engineType};
                PerixStreamNotify notify{d.words[0], d.words[1], 0, d.length,
                                         d.hasData ? const_cast<uint8_t*>(d.data.data()) : nullptr};
                return d.kind == PERIX_SIM_DELIVER_AUDIO ? perix_sim_fire_audio(&id, &notify)
                                                         : perix_sim_fire_refresh(&id, &notify);
            }
            default:
                return -1;
        }
    }

    std::mutex mutex_;  // guards the statistics below
    Channel channels_[kChannels];
    perix_sim_delivery_stats deliveries_[kKinds] = {};
    perix_sim::DeliveryThread thread_;  // last: stopped before the statistics go
};

Streams& S() {
    // Never destroyed, for the reason given for the peer's delivery thread: perix_sim_reset
    // stops the worker; one left running ends with the process.
    static Streams* streams = new Streams();
    return *streams;
}

int QueueDelivery(int kind, const char* deviceId, const char* serviceId,
                  uint32_t w0, uint32_t w1, uint32_t w2, uint32_t engineType,
                  const uint8_t* data, uint32_t length) {
    try {
        Delivery delivery;
        delivery.kind = kind;
        delivery.deviceId = deviceId != nullptr ? deviceId : "";
        delivery.serviceId = serviceId != nullptr ? serviceId : "";
        delivery.words[0] = w0;
        delivery.words[1] = w1;
        delivery.words[2] = w2;
        delivery.engineType = engineType;
        delivery.length = length;
        delivery.hasData = data != nullptr;
        if (data != nullptr) {
            delivery.data.assign(data, data + length);
        }
        return S().Queue(std::move(delivery));
    } catch (const std::exception&) {
        return -1;
    }
}

// A notification whose fields are passed to the library as given (malformed ones included).
int QueueRawDelivery(int kind, perix_sim_raw_field deviceId, perix_sim_raw_field serviceId,
                     uint32_t engineType, uint32_t w0, uint32_t w1, perix_sim_raw_field data) {
    try {
        Delivery delivery;
        delivery.kind = kind;
        delivery.raw = true;
        delivery.rawDevice = perix_sim::RawCopy::Of(deviceId);
        delivery.rawService = perix_sim::RawCopy::Of(serviceId);
        delivery.rawData = perix_sim::RawCopy::Of(data);
        delivery.engineType = engineType;
        delivery.words[0] = w0;
        delivery.words[1] = w1;
        return S().Queue(std::move(delivery));
    } catch (const std::exception&) {
        return -1;
    }
}

}  // namespace

static std::atomic<bool> g_bareWrite{false};

namespace perix_sim_streams {

bool BareWrite() { return g_bareWrite.load(std::memory_order_relaxed); }

void OnOpen(int channel, const PerixServiceId* service) { S().Open(channel, service); }
void OnClose(int channel, const PerixServiceId* service) { S().Close(channel, service); }
void OnWrite(int channel, const PerixServiceId* service, const uint8_t* data, uint32_t length) {
    S().Write(channel, service, data, length);
}

}  // namespace perix_sim_streams

extern "C" {

void perix_sim_streams_set_bare_write(int on) {
    g_bareWrite.store(on != 0, std::memory_order_relaxed);
}

uint64_t perix_sim_fnv1a(uint64_t hash, const void* data, size_t length) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < length; ++i) {
        hash ^= bytes[i];
        hash *= 0x100000001b3ull;
    }
    return hash;
}

int perix_sim_stream_stats_of(int channel, perix_sim_stream_stats* out) {
    return S().Stats(channel, out);
}

int perix_sim_deliver_audio(const char* deviceId, const char* serviceId, uint32_t engineType,
                            uint32_t a, uint32_t b, const uint8_t* data, uint32_t length) {
    return QueueDelivery(PERIX_SIM_DELIVER_AUDIO, deviceId, serviceId, a, b, 0,
                         engineType, data, length);
}

int perix_sim_deliver_refresh(const char* deviceId, const char* serviceId, uint32_t a,
                              uint32_t b, const uint8_t* data, uint32_t length) {
    return QueueDelivery(PERIX_SIM_DELIVER_REFRESH, deviceId, serviceId, a, b, 0, 0,
                         data, length);
}

int perix_sim_deliver_audio_raw(perix_sim_raw_field deviceId, perix_sim_raw_field serviceId,
                                uint32_t engineType, uint32_t a, uint32_t b,
                                perix_sim_raw_field data) {
    return QueueRawDelivery(PERIX_SIM_DELIVER_AUDIO, deviceId, serviceId, engineType, a, b, data);
}

int perix_sim_deliver_refresh_raw(perix_sim_raw_field deviceId, perix_sim_raw_field serviceId,
                                  uint32_t a, uint32_t b, perix_sim_raw_field data) {
    return QueueRawDelivery(PERIX_SIM_DELIVER_REFRESH, deviceId, serviceId, 0, a, b, data);
}

void perix_sim_deliveries_flush(void) { S().Flush(); }

int perix_sim_delivery_stats_of(int kind, perix_sim_delivery_stats* out) {
    return S().DeliveryStats(kind, out);
}

void perix_sim_streams_reset(void) {
    g_bareWrite.store(false, std::memory_order_relaxed);
    S().Reset();
}

}  // extern "C"
