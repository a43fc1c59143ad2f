// The simulated peer on the engine's button channel and the engine's delivery thread.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "delivery_thread.h"
#include "sim_raw.h"
#include "packet_decoder.h"
#include "perix_sim_peer.h"
#include "sim_peer_hooks.h"

namespace {

// Packets kept for inspection; later ones are still counted.
constexpr size_t kKeptPackets = 4096;
constexpr uint32_t kHeartbeatLength = 11;

struct Notice {
    enum Kind { kDevice, kService, kData, kButton } kind = kDevice;
    void* handle = nullptr;
    std::string deviceId;
    std::string serviceId;
    uint32_t words[3] = {0, 0, 0};
    std::vector<uint8_t> bytes;
    bool hasBytes = false;
    // Malformed notifications (perix_sim_peer_post_*_raw) carry their fields here instead.
    bool raw = false;
    perix_sim::RawCopy rawDevice, rawService, rawData;
};

using perix_sim::DeliveryThread;

struct Peer {
    DeliveryThread deliveries;
    std::atomic<int> delivered{0};
    std::atomic<int> deliveredToCallback{0};

    // Packets written to the button channel.
    std::mutex packetMutex;
    std::condition_variable heartbeatSeen;
    std::vector<perix_sim_packet> packets;
    int inputCount = 0;
    int heartbeats = 0;
    perix_sim_write_hook hook = nullptr;
    void* hookContext = nullptr;

    std::atomic<bool> autoOpen{false};
    std::atomic<bool> bareWrite{false};

    // Builds the records of a malformed notification from the raw copies, as given.
    static int DeliverRaw(const Notice& n) {
        switch (n.kind) {
            case Notice::kDevice: {
                PerixDeviceChangeNotify record{n.rawDevice.Text(), n.rawDevice.reported, n.words[0],
                                               n.words[1]};
                return perix_sim_fire_device_change(n.handle, &record);
            }
            case Notice::kService: {
                PerixServiceChangeNotify record{n.rawDevice.Text(), n.rawDevice.reported,
                                                n.rawService.Text(), n.rawService.reported,
                                                n.words[0], n.words[1], n.words[2]};
                return perix_sim_fire_service_change(n.handle, &record);
            }
            case Notice::kData: {
                BinaryData record{n.words[0], n.words[1], n.rawData.Bytes(), n.rawData.reported};
                return perix_sim_fire_data(n.handle, &record);
            }
            case Notice::kButton: {
                PerixButtonIdentity identity{n.rawDevice.Text(), n.rawDevice.reported,
                                             n.rawService.Text(), n.rawService.reported};
                PerixButtonNotify record{n.words[0], n.words[1], 0, n.rawData.reported,
                                         n.rawData.Bytes()};
                return perix_sim_fire_button(&identity, &record);
            }
        }
        return -1;
    }

    void Deliver(const Notice& n) {
        const int result = n.raw ? DeliverRaw(n) : DeliverCopies(n);
        delivered.fetch_add(1, std::memory_order_relaxed);
        if (result != -1) {
            deliveredToCallback.fetch_add(1, std::memory_order_relaxed);
        }
    }

    // Builds the records of a well-formed notification from its copied texts and bytes.
    static int DeliverCopies(const Notice& n) {
        int result = -1;
        switch (n.kind) {
            case Notice::kDevice: {
                PerixDeviceChangeNotify record{n.deviceId.data(),
                                               static_cast<uint32_t>(n.deviceId.size()),
                                               n.words[0], n.words[1]};
                result = perix_sim_fire_device_change(n.handle, &record);
                break;
            }
            case Notice::kService: {
                PerixServiceChangeNotify record{n.deviceId.data(),
                                                static_cast<uint32_t>(n.deviceId.size()),
                                                n.serviceId.data(),
                                                static_cast<uint32_t>(n.serviceId.size()),
                                                n.words[0], n.words[1], n.words[2]};
                result = perix_sim_fire_service_change(n.handle, &record);
                break;
            }
            case Notice::kData: {
                BinaryData record{n.words[0], n.words[1],
                                  const_cast<uint8_t*>(n.hasBytes ? n.bytes.data() : nullptr),
                                  static_cast<uint32_t>(n.bytes.size())};
                // An empty payload still needs a non-null pointer to count as data.
                uint8_t empty = 0;
                if (n.hasBytes && n.bytes.empty()) {
                    record.data = &empty;
                }
                result = perix_sim_fire_data(n.handle, &record);
                break;
            }
            case Notice::kButton: {
                PerixButtonIdentity identity{n.deviceId.data(),
                                             static_cast<uint32_t>(n.deviceId.size()),
                                             n.serviceId.data(),
                                             static_cast<uint32_t>(n.serviceId.size())};
                PerixButtonNotify record{n.words[0], n.words[1], 0,
                                         static_cast<uint32_t>(n.bytes.size()),
                                         const_cast<uint8_t*>(n.bytes.empty() ? nullptr
                                                                              : n.bytes.data())};
                result = perix_sim_fire_button(&identity, &record);
                break;
            }
        }
        return result;
    }

    int Post(Notice&& notice) {
        try {
            return deliveries.Post([this, n = std::move(notice)] { Deliver(n); }) ? 0 : -1;
        } catch (...) {
            return -1;
        }
    }

    void Flush() { deliveries.Flush(); }
};

Peer& ThePeer() {
    // Never destroyed: joining the delivery thread from an exit-time destructor hangs on
    // Windows, where the process has already ended every other thread. perix_sim_reset stops
    // the thread; one left running ends with the process.
    static Peer* peer = new Peer();
    return *peer;
}

void CopyText(char (&dest)[260], const char* text, uint32_t length) {
    std::memset(dest, 0, sizeof(dest));
    if (text != nullptr) {
        std::memcpy(dest, text, length < sizeof(dest) - 1 ? length : sizeof(dest) - 1);
    }
}

std::string Text(const char* text) { return text != nullptr ? std::string(text) : std::string(); }

}  // namespace

namespace perix_sim_peer {

void OnButtonOpen(const PerixButtonIdentity* identity, int result) {
    if (result != 0 || identity == nullptr || !ThePeer().autoOpen.load()) {
        return;
    }
    Notice notice;
    notice.kind = Notice::kButton;
    notice.deviceId.assign(identity->deviceId != nullptr ? identity->deviceId : "",
                           identity->deviceId != nullptr ? identity->deviceIdLen : 0);
    notice.serviceId.assign(identity->serviceId != nullptr ? identity->serviceId : "",
                            identity->serviceId != nullptr ? identity->serviceIdLen : 0);
    notice.words[0] = 1;  // opened
    notice.words[1] = 0;
    ThePeer().Post(std::move(notice));
}

bool BareWrite() { return ThePeer().bareWrite.load(std::memory_order_relaxed); }

void OnButtonWrite(const PerixButtonIdentity* identity, const PerixDataBuffer* buffer) {
    perix_sim_packet packet{};
    if (identity != nullptr) {
        CopyText(packet.device_id, identity->deviceId, identity->deviceIdLen);
        CopyText(packet.service_id, identity->serviceId, identity->serviceIdLen);
    }
    const uint8_t* data = buffer != nullptr ? buffer->data : nullptr;
    packet.length = buffer != nullptr ? buffer->len : 0;
    if (data == nullptr) {
        std::snprintf(packet.description, sizeof(packet.description), "no data");
    } else if (packet.length > PERIX_SIM_PACKET_BYTES) {
        // Longer than any packet: the peer does not read it (the buffer may be shorter).
        std::snprintf(packet.description, sizeof(packet.description),
                      "refused: length %u is beyond any packet", packet.length);
    } else {
        std::memcpy(packet.bytes, data, packet.length);
        static const uint8_t kHeartbeat[kHeartbeatLength] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF};
        packet.heartbeat = packet.length == kHeartbeatLength &&
                           std::memcmp(data, kHeartbeat, kHeartbeatLength) == 0;
        if (packet.heartbeat) {
            std::snprintf(packet.description, sizeof(packet.description), "heartbeat");
        } else {
            OrbPerix::packet::DecodedPacket decoded;
            std::string text;
            try {
                if (OrbPerix::packet::DecodePacket(data, packet.length, &decoded, &text)) {
                    packet.decoded = 1;
                    packet.type = decoded.type;
                    packet.action = decoded.action;
                    packet.timestamp_ms = decoded.timestampMs;
                    text = OrbPerix::packet::Describe(decoded);
                }
            } catch (...) {
                text = "decoder out of memory";
            }
            std::snprintf(packet.description, sizeof(packet.description), "%s", text.c_str());
        }
    }

    Peer& peer = ThePeer();
    perix_sim_write_hook hook = nullptr;
    void* context = nullptr;
    {
        std::lock_guard<std::mutex> lock(peer.packetMutex);
        if (packet.heartbeat) {
            ++peer.heartbeats;
        } else {
            ++peer.inputCount;
            if (peer.packets.size() < kKeptPackets) {
                peer.packets.push_back(packet);
            }
        }
        hook = peer.hook;
        context = peer.hookContext;
    }
    if (packet.heartbeat) {
        peer.heartbeatSeen.notify_all();
    }
    if (hook != nullptr) {
        hook(context, packet.heartbeat);
    }
}

}  // namespace perix_sim_peer

extern "C" {

void perix_sim_set_auto_open(int on) { ThePeer().autoOpen.store(on != 0); }

void perix_sim_peer_set_bare_write(int on) { ThePeer().bareWrite.store(on != 0); }

int perix_sim_peer_packet_count(void) {
    std::lock_guard<std::mutex> lock(ThePeer().packetMutex);
    return ThePeer().inputCount;
}

int perix_sim_peer_get_packet(int index, perix_sim_packet* out) {
    std::lock_guard<std::mutex> lock(ThePeer().packetMutex);
    const std::vector<perix_sim_packet>& packets = ThePeer().packets;
    if (out == nullptr || index < 0 || static_cast<size_t>(index) >= packets.size()) {
        return -1;
    }
    *out = packets[static_cast<size_t>(index)];
    return 0;
}

int perix_sim_peer_heartbeat_count(void) {
    std::lock_guard<std::mutex> lock(ThePeer().packetMutex);
    return ThePeer().heartbeats;
}

int perix_sim_peer_wait_heartbeats(int count, int timeout_ms) {
    Peer& peer = ThePeer();
    std::unique_lock<std::mutex> lock(peer.packetMutex);
    peer.heartbeatSeen.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                [&] { return peer.heartbeats >= count; });
    return peer.heartbeats;
}

void perix_sim_peer_clear_packets(void) {
    std::lock_guard<std::mutex> lock(ThePeer().packetMutex);
    ThePeer().packets.clear();
    ThePeer().inputCount = 0;
    ThePeer().heartbeats = 0;
}

void perix_sim_peer_set_write_hook(perix_sim_write_hook hook, void* context) {
    std::lock_guard<std::mutex> lock(ThePeer().packetMutex);
    ThePeer().hook = hook;
    ThePeer().hookContext = context;
}

int perix_sim_peer_post_device_change(void* handle, const char* deviceId, uint32_t word0,
                                      uint32_t word1) {
    try {
        Notice notice;
        notice.kind = Notice::kDevice;
        notice.handle = handle;
        notice.deviceId = Text(deviceId);
        notice.words[0] = word0;
        notice.words[1] = word1;
        return ThePeer().Post(std::move(notice));
    } catch (...) {
        return -1;
    }
}

int perix_sim_peer_post_service_change(void* handle, const char* deviceId, const char* serviceId,
                                       uint32_t word0, uint32_t word1, uint32_t word2) {
    try {
        Notice notice;
        notice.kind = Notice::kService;
        notice.handle = handle;
        notice.deviceId = Text(deviceId);
        notice.serviceId = Text(serviceId);
        notice.words[0] = word0;
        notice.words[1] = word1;
        notice.words[2] = word2;
        return ThePeer().Post(std::move(notice));
    } catch (...) {
        return -1;
    }
}

int perix_sim_peer_post_data(void* handle, uint32_t word0, uint32_t word1, const uint8_t* data,
                             uint32_t len) {
    try {
        Notice notice;
        notice.kind = Notice::kData;
        notice.handle = handle;
        notice.words[0] = word0;
        notice.words[1] = word1;
        notice.hasBytes = data != nullptr;
        if (data != nullptr) {
            notice.bytes.assign(data, data + len);
        }
        return ThePeer().Post(std::move(notice));
    } catch (...) {
        return -1;
    }
}

int perix_sim_peer_post_button(const char* deviceId, const char* serviceId, uint32_t word0,
                               uint32_t word1, const uint8_t* data, uint32_t len) {
    try {
        Notice notice;
        notice.kind = Notice::kButton;
        notice.deviceId = Text(deviceId);
        notice.serviceId = Text(serviceId);
        notice.words[0] = word0;
        notice.words[1] = word1;
        if (data != nullptr) {
            notice.bytes.assign(data, data + len);
        }
        return ThePeer().Post(std::move(notice));
    } catch (...) {
        return -1;
    }
}

namespace {

int PostRaw(Notice::Kind kind, void* handle, const perix_sim_raw_field* device,
            const perix_sim_raw_field* service, const perix_sim_raw_field* data,
            uint32_t word0, uint32_t word1, uint32_t word2) {
    try {
        Notice notice;
        notice.kind = kind;
        notice.raw = true;
        notice.handle = handle;
        if (device != nullptr) {
            notice.rawDevice = perix_sim::RawCopy::Of(*device);
        }
        if (service != nullptr) {
            notice.rawService = perix_sim::RawCopy::Of(*service);
        }
        if (data != nullptr) {
            notice.rawData = perix_sim::RawCopy::Of(*data);
        }
        notice.words[0] = word0;
        notice.words[1] = word1;
        notice.words[2] = word2;
        return ThePeer().Post(std::move(notice));
    } catch (...) {
        return -1;
    }
}

}  // namespace

int perix_sim_peer_post_device_change_raw(void* handle, perix_sim_raw_field deviceId,
                                          uint32_t word0, uint32_t word1) {
    return PostRaw(Notice::kDevice, handle, &deviceId, nullptr, nullptr, word0, word1, 0);
}

int perix_sim_peer_post_service_change_raw(void* handle, perix_sim_raw_field deviceId,
                                           perix_sim_raw_field serviceId, uint32_t word0,
                                           uint32_t word1, uint32_t word2) {
    return PostRaw(Notice::kService, handle, &deviceId, &serviceId, nullptr, word0, word1, word2);
}

int perix_sim_peer_post_data_raw(void* handle, uint32_t word0, uint32_t word1,
                                 perix_sim_raw_field data) {
    return PostRaw(Notice::kData, handle, nullptr, nullptr, &data, word0, word1, 0);
}

int perix_sim_peer_post_button_raw(perix_sim_raw_field deviceId, perix_sim_raw_field serviceId,
                                   uint32_t word0, uint32_t word1, perix_sim_raw_field data) {
    return PostRaw(Notice::kButton, nullptr, &deviceId, &serviceId, &data, word0, word1, 0);
}

void perix_sim_peer_flush(void) { ThePeer().Flush(); }

int perix_sim_peer_delivered(void) { return ThePeer().delivered.load(); }

int perix_sim_peer_delivered_to_callback(void) { return ThePeer().deliveredToCallback.load(); }

void perix_sim_peer_reset(void) {
    Peer& peer = ThePeer();
    peer.deliveries.Stop();
    peer.delivered.store(0);
    peer.deliveredToCallback.store(0);
    peer.autoOpen.store(false);
    peer.bareWrite.store(false);
    std::lock_guard<std::mutex> lock(peer.packetMutex);
    peer.packets.clear();
    peer.inputCount = 0;
    peer.heartbeats = 0;
    peer.hook = nullptr;
    peer.hookContext = nullptr;
}

}  // extern "C"
