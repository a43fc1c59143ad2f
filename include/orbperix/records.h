// Records shared between the host, OrbPerixProvider and the PERIX engine.
//
// Plain data: natural alignment, no packing, x64 layout. Records that the engine reads or fills
// keep the engine's byte offsets, checked at compile time below.
#ifndef ORBPERIX_RECORDS_H_
#define ORBPERIX_RECORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>

// The host's group of log functions for the engine. Opaque here: the library hands the
// pointer to the engine unchanged and never reads it.
struct tagPERIXLogFuncGroup;

// The device-information record: the engine's own connect-parameter record. The host fills it;
// providers read a few fields and pass the whole record to the engine by pointer.
struct PERIXInfo {
    uint32_t engineWord0;
    char localDeviceId[258];   // NUL-terminated
    char peerDeviceId[258];    // NUL-terminated; key of the providers' session maps
    uint32_t localDeviceIdLen;
    uint32_t peerDeviceIdLen;
    uint8_t engineReserved[120];
    int32_t serverPort;        // >= 0; a sink refuses 0
    uint32_t engineWord1;
    uint32_t engineWord2;
    uint32_t connectType;      // > 0
    uint8_t sessionKey[128];
};
static_assert(offsetof(PERIXInfo, localDeviceId) == 4, "PERIXInfo layout");
static_assert(offsetof(PERIXInfo, peerDeviceId) == 262, "PERIXInfo layout");
static_assert(offsetof(PERIXInfo, serverPort) == 648, "PERIXInfo layout");
static_assert(offsetof(PERIXInfo, connectType) == 660, "PERIXInfo layout");
static_assert(offsetof(PERIXInfo, sessionKey) == 664, "PERIXInfo layout");

// Binary data, in both directions.
struct BinaryData {
    uint32_t word0;
    uint32_t word1;
    uint8_t* data;
    uint32_t len;
};
static_assert(offsetof(BinaryData, data) == 8 && offsetof(BinaryData, len) == 16,
              "BinaryData layout");

// The host's service record. serviceType 6 is the button service, 11 partial refresh.
struct ServiceInfo {
    std::string deviceId;
    std::string serviceId;
    uint32_t serviceType;
};

// What the host's device-change listener receives; lives for the duration of the call.
struct DeviceChangeInfo {
    std::string deviceId;
    uint32_t word0;
    uint32_t word1;
};

// What the host's service-change listener receives; lives for the duration of the call.
struct ServiceChangeInfo {
    std::string deviceId;
    std::string serviceId;
    uint32_t word0, word1, word2;
};

// What the host's button listener receives. dataExtend is a private copy (null when dataLen
// is 0), valid only for the duration of the call.
struct ButtonNotifyInfo {
    uint32_t word0;
    uint32_t word1;
    uint32_t dataLen;
    uint8_t* dataExtend;
};

// Audio parameters of OpenAudio, copied to the engine field by field and never interpreted.
struct AudioParam {
    uint32_t param0;
    uint32_t param1;
    uint32_t param2;
    uint32_t param3;
    uint32_t param4;
    uint64_t param5;
    uint32_t param6;
};
static_assert(sizeof(AudioParam) == 40 && offsetof(AudioParam, param5) == 24 &&
                  offsetof(AudioParam, param6) == 32,
              "AudioParam layout");

// What the host's audio listener receives; data is a private copy valid during the call.
struct AudioData {
    uint32_t a;
    uint32_t b;
    uint32_t dataLen;
    uint8_t* data;
};
static_assert(offsetof(AudioData, dataLen) == 8 && offsetof(AudioData, data) == 16,
              "AudioData layout");

// What the host's partial-refresh listener receives. Its length sits one field later than in
// AudioData on purpose: the two records are not interchangeable.
struct PartialRefreshData {
    uint32_t a;
    uint32_t b;
    uint32_t reserved;
    uint32_t dataLen;
    uint8_t* data;
};
static_assert(offsetof(PartialRefreshData, dataLen) == 12 &&
                  offsetof(PartialRefreshData, data) == 16,
              "PartialRefreshData layout");

// The host's listener functions. A null entry means the host does not want that notification.
// Results are ignored. Entries are called on engine threads.
struct ProviderListener {
    int (*onDeviceChange)(DeviceChangeInfo* info);
    int (*onServiceChange)(ServiceChangeInfo* info);
    int (*onDataReceive)(std::string deviceId, BinaryData* data);
    int (*onAudioData)(ServiceInfo* service, AudioData* data);
    int (*onButtonNotify)(ServiceInfo* service, ButtonNotifyInfo* info);
    int (*onPartialRefreshData)(ServiceInfo* service, PartialRefreshData* data);
    int (*reserved6)(void*);
    int (*reserved7)(void*);
};

#endif  // ORBPERIX_RECORDS_H_
