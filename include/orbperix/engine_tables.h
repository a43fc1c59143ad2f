// The contract between OrbPerixProvider and the PERIX engine: four tables of engine function
// pointers that the engine fills through its exported getters, and the records passed to them.
//
// Each table is declared from one slot list (the ORBPERIX_*_SLOTS macros): the struct fields
// come from it, and so can anything else that must follow the slot order (the simulated engine
// names its slots from the same lists). A slot that the library never calls keeps its place as
// reservedN. Every function uses the platform's standard calling convention.
#ifndef ORBPERIX_ENGINE_TABLES_H_
#define ORBPERIX_ENGINE_TABLES_H_

#include <cstddef>
#include <cstdint>

#include "orbperix/records.h"

// ---- Records passed to the engine (engine layout, x64 offsets) ----

// Virtual-service record of PERIXAdd/Remove/Enable/DisableVirtualService.
struct PerixVirtualService {
    const char* serviceId;
    uint32_t serviceIdLen;
    uint32_t serviceType;
};
static_assert(offsetof(PerixVirtualService, serviceIdLen) == 8 &&
                  offsetof(PerixVirtualService, serviceType) == 12,
              "PerixVirtualService layout");

// Engine notification of a device change (read by the library).
struct PerixDeviceChangeNotify {
    const char* deviceId;  // not NUL-terminated
    uint32_t deviceIdLen;
    uint32_t word0;
    uint32_t word1;
};
static_assert(offsetof(PerixDeviceChangeNotify, word0) == 12 &&
                  offsetof(PerixDeviceChangeNotify, word1) == 16,
              "PerixDeviceChangeNotify layout");

// Engine notification of a device service change (read by the library).
struct PerixServiceChangeNotify {
    const char* deviceId;
    uint32_t deviceIdLen;
    const char* serviceId;
    uint32_t serviceIdLen;
    uint32_t word0;
    uint32_t word1;
    uint32_t word2;
};
static_assert(offsetof(PerixServiceChangeNotify, serviceId) == 16 &&
                  offsetof(PerixServiceChangeNotify, serviceIdLen) == 24 &&
                  offsetof(PerixServiceChangeNotify, word0) == 28 &&
                  offsetof(PerixServiceChangeNotify, word2) == 36,
              "PerixServiceChangeNotify layout");

// The three general callbacks registered with PERIXRegisterListener, in this order.
// Called on engine threads with the service handle that raised them.
struct PerixEngineListener {
    void (*onDeviceChange)(void* handle, const void* notify);
    void (*onDeviceServiceChange)(void* handle, const void* notify);
    void (*onDataReceive)(void* handle, const void* data);
};

// Button channel identity (ButtonOpen, ButtonClose, ButtonWriteStreamBuffer, button notify).
struct PerixButtonIdentity {
    const char* deviceId;
    uint32_t deviceIdLen;
    const char* serviceId;
    uint32_t serviceIdLen;
};
static_assert(offsetof(PerixButtonIdentity, serviceId) == 16 &&
                  offsetof(PerixButtonIdentity, serviceIdLen) == 24,
              "PerixButtonIdentity layout");

// Stream data of ButtonWriteStreamBuffer and PartialRefreshWriteStreamBuffer.
struct PerixDataBuffer {
    uint8_t* data;
    uint32_t len;
};
static_assert(offsetof(PerixDataBuffer, len) == 8, "PerixDataBuffer layout");

// Engine button notification (read by the library).
struct PerixButtonNotify {
    uint32_t word0;
    uint32_t word1;
    uint32_t word2;  // not read
    uint32_t dataLen;
    uint8_t* dataExtend;
};
static_assert(offsetof(PerixButtonNotify, dataLen) == 12 &&
                  offsetof(PerixButtonNotify, dataExtend) == 16,
              "PerixButtonNotify layout");

// Service identity of every audio and partial-refresh call; points into the caller's strings.
struct PerixServiceId {
    const char* deviceId;
    uint32_t deviceIdLen;
    const char* serviceId;
    uint32_t serviceIdLen;
    uint32_t serviceType;
};
static_assert(sizeof(PerixServiceId) == 32 && offsetof(PerixServiceId, serviceId) == 16 &&
                  offsetof(PerixServiceId, serviceIdLen) == 24 &&
                  offsetof(PerixServiceId, serviceType) == 28,
              "PerixServiceId layout");

// Audio buffer of AudioWriteStreamBuffer; the fixed fields are the engine's (3, 0, 1, 0).
struct PerixAudioBuffer {
    uint8_t* data;
    uint32_t length;
    uint32_t fixed3;
    uint64_t fixed0;
    uint64_t fixed1;
    uint32_t fixed0b;
};
static_assert(sizeof(PerixAudioBuffer) == 40 && offsetof(PerixAudioBuffer, fixed3) == 12 &&
                  offsetof(PerixAudioBuffer, fixed0) == 16 &&
                  offsetof(PerixAudioBuffer, fixed1) == 24 &&
                  offsetof(PerixAudioBuffer, fixed0b) == 32,
              "PerixAudioBuffer layout");

// Engine audio and partial-refresh delivery (read by the library).
struct PerixStreamNotify {
    uint32_t a;
    uint32_t b;
    uint32_t unused;
    uint32_t dataLen;
    uint8_t* data;
};
static_assert(offsetof(PerixStreamNotify, dataLen) == 12 &&
                  offsetof(PerixStreamNotify, data) == 16,
              "PerixStreamNotify layout");

// One-entry callback records of the three channel RegisterCallback slots.
struct PerixButtonCallback {
    int (*notify)(const void* identity, const void* notify);
};
struct PerixStreamCallback {
    int (*notify)(const void* serviceId, const void* data);
};

// ---- The four tables ----
// X(slot, name, result, parameter list)

#define ORBPERIX_MAIN_SLOTS(X)                                                                \
    X(0, PERIXInitial, int, (const char* initText))                                          \
    X(1, PERIXRelease, int, (void))                                                           \
    X(2, reserved2, int, (void))                                                              \
    X(3, PERIXLogRegister, int, (tagPERIXLogFuncGroup * logFuncs))                            \
    X(4, PERIXCreateServiceHandle, void*, (const PERIXInfo* info))                            \
    X(5, PERIXReleaseServiceHandle, int, (void* handle, void* arg1, void* arg2))              \
    X(6, PERIXStartService, int, (void* handle, const PERIXInfo* info))                       \
    X(7, PERIXRegisterCallback, int, (void* handle, uint32_t type, void* callback))           \
    X(8, PERIXGetConnectionStatus, int, (void* handle, uint64_t* traceId))                    \
    X(9, PERIXPassThrough, int, (void* handle, void* a, void* b, void* c))                    \
    X(10, PERIXAddVirtualService, int, (void* handle, const PerixVirtualService* service))    \
    X(11, PERIXRemoveVirtualService, int, (void* handle, const PerixVirtualService* service)) \
    X(12, PERIXEnableVirtualService, int,                                                     \
      (void* handle, const PerixVirtualService* service, uint32_t flags))                     \
    X(13, PERIXDisableVirtualService, int,                                                    \
      (void* handle, const PerixVirtualService* service, uint32_t flags))                     \
    X(14, PERIXRegisterListener, int, (void* handle, const PerixEngineListener* listener))    \
    X(15, PERIXUnRegisterListener, int, (void* handle))                                       \
    X(16, PERIXSendBinaryData, int, (void* handle, const BinaryData* data))

#define ORBPERIX_BUTTON_SLOTS(X)                                                      \
    X(0, RegisterCallback, int, (const PerixButtonCallback* callback))               \
    X(1, ButtonOpen, int, (const PerixButtonIdentity* identity))                     \
    X(2, ButtonClose, int, (const PerixButtonIdentity* identity))                    \
    X(3, ButtonWriteStreamBuffer, int,                                               \
      (const PerixButtonIdentity* identity, const PerixDataBuffer* buffer))

#define ORBPERIX_AUDIO_SLOTS(X)                                                            \
    X(0, RegisterCallback, int, (const PerixStreamCallback* callback))                    \
    X(1, reserved1, int, (void))                                                           \
    X(2, AudioOpen, int, (const PerixServiceId* service, const AudioParam* param))         \
    X(3, AudioClose, int, (const PerixServiceId* service))                                 \
    X(4, reserved4, int, (void))                                                           \
    X(5, AudioWriteStreamBuffer, int,                                                      \
      (const PerixServiceId* service, const PerixAudioBuffer* buffer))                     \
    X(6, AudioPassThrough, int, (void* a, void* b))                                        \
    X(7, reserved7, int, (void))

#define ORBPERIX_REFRESH_SLOTS(X)                                                   \
    X(0, RegisterCallback, int, (const PerixStreamCallback* callback))             \
    X(1, PartialRefreshOpen, int, (const PerixServiceId* service, void* a, void* b))  \
    X(2, PartialRefreshClose, int, (const PerixServiceId* service, void* a, void* b)) \
    X(3, PartialRefreshWriteStreamBuffer, int,                                     \
      (const PerixServiceId* service, const PerixDataBuffer* buffer))

#define ORBPERIX_DECLARE_SLOT(slot, name, result, params) result(*name) params;

struct OrbPERIXHandler {
    ORBPERIX_MAIN_SLOTS(ORBPERIX_DECLARE_SLOT)
};
struct ButtonHandlerSource {
    ORBPERIX_BUTTON_SLOTS(ORBPERIX_DECLARE_SLOT)
};
struct AudioHandlerSource {
    ORBPERIX_AUDIO_SLOTS(ORBPERIX_DECLARE_SLOT)
};
struct RefreshHandlerSource {
    ORBPERIX_REFRESH_SLOTS(ORBPERIX_DECLARE_SLOT)
};

static_assert(sizeof(OrbPERIXHandler) == 17 * sizeof(void*), "OrbPERIXHandler has 17 slots");
static_assert(sizeof(ButtonHandlerSource) == 4 * sizeof(void*), "ButtonHandlerSource has 4 slots");
static_assert(sizeof(AudioHandlerSource) == 8 * sizeof(void*), "AudioHandlerSource has 8 slots");
static_assert(sizeof(RefreshHandlerSource) == 4 * sizeof(void*),
              "RefreshHandlerSource has 4 slots");

// The engine's exported getters: each fills its table and returns 0 on success.
using PerixGetOrbPERIXHandlerFn = int (*)(OrbPERIXHandler*);
using PerixGetButtonHandlerSourceFn = int (*)(ButtonHandlerSource*);
using PerixGetAudioHandlerSourceFn = int (*)(AudioHandlerSource*);
using PerixGetRefreshHandlerSourceFn = int (*)(RefreshHandlerSource*);

#endif  // ORBPERIX_ENGINE_TABLES_H_
