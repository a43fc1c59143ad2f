// The simulated PERIX engine: fills every slot of the four tables with functions that record
// their call and return a settable result, and fires the registered callbacks on request.
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "perix_sim.h"
#include "perix_sim_streams.h"
#include "sim_streams_hooks.h"
#include "perix_sim_peer.h"
#include "sim_peer_hooks.h"

namespace {

constexpr int kTables = 4;
constexpr int kMaxSlots = 17;

struct Callbacks {
    PerixEngineListener listener{};  // copied at registration
    bool hasListener = false;
};

struct Engine {
    std::mutex mutex;
    std::vector<perix_sim_call> calls;
    int getterResults[kTables] = {};
    int64_t slotResults[kTables][kMaxSlots] = {};
    bool failCreateHandle = false;
    uint64_t traceId = 0;
    uintptr_t nextHandle = 0x1000;
    void* lastHandle = nullptr;
    std::map<void*, Callbacks> handles;
    int (*buttonNotify)(const void*, const void*) = nullptr;
    int (*audioNotify)(const void*, const void*) = nullptr;
    int (*refreshNotify)(const void*, const void*) = nullptr;
};

Engine& E() {
    // Never destroyed: the library under test finalises the engine from its own exit-time
    // destructors, which may run after this library's statics are gone.
    static Engine* engine = new Engine();
    return *engine;
}

const char* const kMainNames[] = {
#define ORBPERIX_SIM_NAME(slot, name, result, params) #name,
    ORBPERIX_MAIN_SLOTS(ORBPERIX_SIM_NAME)};
const char* const kButtonNames[] = {ORBPERIX_BUTTON_SLOTS(ORBPERIX_SIM_NAME)};
const char* const kAudioNames[] = {ORBPERIX_AUDIO_SLOTS(ORBPERIX_SIM_NAME)};
const char* const kRefreshNames[] = {ORBPERIX_REFRESH_SLOTS(ORBPERIX_SIM_NAME)};
#undef ORBPERIX_SIM_NAME
const char* const* const kNames[kTables] = {kMainNames, kButtonNames, kAudioNames,
                                            kRefreshNames};
const char* const kGetterNames[kTables] = {
    "PERIXGetOrbPERIXHandler", "PERIXGetButtonHandlerSource", "PERIXGetAudioHandlerSource",
    "PERIXGetRefreshHandlerSource"};

uint64_t P(const void* pointer) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer)); }

void SetText(char (&dest)[260], const char* text, size_t length) {
    std::memset(dest, 0, sizeof(dest));
    if (text != nullptr) {
        std::memcpy(dest, text, length < sizeof(dest) - 1 ? length : sizeof(dest) - 1);
    }
}
void SetText(char (&dest)[260], const char* text) {
    SetText(dest, text, text != nullptr ? std::strlen(text) : 0);
}

// Starts a record for a slot call; the caller fills the details and passes it to Finish.
perix_sim_call Begin(int table, int slot, uint64_t a0 = 0, uint64_t a1 = 0, uint64_t a2 = 0,
                     uint64_t a3 = 0) {
    perix_sim_call call{};
    call.table = table;
    call.slot = slot;
    call.name = slot == PERIX_SIM_GETTER_SLOT ? kGetterNames[table] : kNames[table][slot];
    call.args[0] = a0;
    call.args[1] = a1;
    call.args[2] = a2;
    call.args[3] = a3;
    return call;
}

// Records the call with the slot's configured result and returns that result.
int64_t Finish(perix_sim_call& call) {
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    call.result = call.slot == PERIX_SIM_GETTER_SLOT ? e.getterResults[call.table]
                                                     : e.slotResults[call.table][call.slot];
    e.calls.push_back(call);
    return call.result;
}

int Result(perix_sim_call& call) { return static_cast<int>(Finish(call)); }

// ---- OrbPERIXHandler ----

int SimPERIXInitial(const char* initText) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 0, P(initText));
    SetText(c.text, initText);
    return Result(c);
}
int SimPERIXRelease(void) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 1);
    return Result(c);
}
int SimReserved2(void) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 2);
    return Result(c);
}
int SimPERIXLogRegister(tagPERIXLogFuncGroup* logFuncs) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 3, P(logFuncs));
    return Result(c);
}
void* SimPERIXCreateServiceHandle(const PERIXInfo* info) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 4, P(info));
    if (info != nullptr) {
        SetText(c.text, info->peerDeviceId, strnlen(info->peerDeviceId, sizeof(info->peerDeviceId)));
    }
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    void* handle = nullptr;
    if (!e.failCreateHandle) {
        handle = reinterpret_cast<void*>(e.nextHandle);
        e.nextHandle += 0x10;
        e.handles[handle] = Callbacks();
        e.lastHandle = handle;
    }
    c.result = static_cast<int64_t>(P(handle));
    e.calls.push_back(c);
    return handle;
}
int SimPERIXReleaseServiceHandle(void* handle, void* arg1, void* arg2) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 5, P(handle), P(arg1), P(arg2));
    {
        Engine& e = E();
        std::lock_guard<std::mutex> lock(e.mutex);
        e.handles.erase(handle);
    }
    return Result(c);
}
int SimPERIXStartService(void* handle, const PERIXInfo* info) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 6, P(handle), P(info));
    if (info != nullptr) {
        SetText(c.text, info->peerDeviceId, strnlen(info->peerDeviceId, sizeof(info->peerDeviceId)));
        c.values[0] = static_cast<uint32_t>(info->serverPort);
        c.values[1] = info->connectType;
    }
    return Result(c);
}
int SimPERIXRegisterCallback(void* handle, uint32_t type, void* callback) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 7, P(handle), type, P(callback));
    c.values[0] = type;
    return Result(c);
}
int SimPERIXGetConnectionStatus(void* handle, uint64_t* traceId) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 8, P(handle), P(traceId));
    if (traceId != nullptr) {
        Engine& e = E();
        std::lock_guard<std::mutex> lock(e.mutex);
        *traceId = e.traceId;
    }
    return Result(c);
}
int SimPERIXPassThrough(void* handle, void* a, void* b, void* cc) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 9, P(handle), P(a), P(b), P(cc));
    return Result(c);
}
perix_sim_call VirtualServiceCall(int slot, void* handle, const PerixVirtualService* service,
                                  uint64_t flags) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, slot, P(handle), P(service), flags);
    if (service != nullptr) {
        SetText(c.text, service->serviceId, service->serviceIdLen);
        c.values[0] = service->serviceIdLen;
        c.values[1] = service->serviceType;
    }
    c.values[2] = static_cast<uint32_t>(flags);
    return c;
}
int SimPERIXAddVirtualService(void* handle, const PerixVirtualService* service) {
    perix_sim_call c = VirtualServiceCall(10, handle, service, 0);
    return Result(c);
}
int SimPERIXRemoveVirtualService(void* handle, const PerixVirtualService* service) {
    perix_sim_call c = VirtualServiceCall(11, handle, service, 0);
    return Result(c);
}
int SimPERIXEnableVirtualService(void* handle, const PerixVirtualService* service,
                                 uint32_t flags) {
    perix_sim_call c = VirtualServiceCall(12, handle, service, flags);
    return Result(c);
}
int SimPERIXDisableVirtualService(void* handle, const PerixVirtualService* service,
                                  uint32_t flags) {
    perix_sim_call c = VirtualServiceCall(13, handle, service, flags);
    return Result(c);
}
int SimPERIXRegisterListener(void* handle, const PerixEngineListener* listener) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 14, P(handle), P(listener));
    const int result = Result(c);
    if (listener != nullptr) {
        Engine& e = E();
        std::lock_guard<std::mutex> lock(e.mutex);
        auto found = e.handles.find(handle);
        if (found != e.handles.end()) {
            found->second.listener = *listener;
            found->second.hasListener = true;
        }
    }
    return result;
}
int SimPERIXUnRegisterListener(void* handle) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 15, P(handle));
    return Result(c);
}
int SimPERIXSendBinaryData(void* handle, const BinaryData* data) {
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 16, P(handle), P(data));
    if (data != nullptr) {
        c.values[0] = data->word0;
        c.values[1] = data->word1;
        c.values[2] = data->len;
        c.args[2] = P(data->data);
        if (data->data != nullptr) {
            SetText(c.text, reinterpret_cast<const char*>(data->data), data->len);
        }
    }
    return Result(c);
}

// ---- ButtonHandlerSource ----

void SetIdentity(perix_sim_call& c, const PerixButtonIdentity* identity) {
    if (identity != nullptr) {
        SetText(c.text, identity->deviceId, identity->deviceIdLen);
        SetText(c.text2, identity->serviceId, identity->serviceIdLen);
        c.values[0] = identity->deviceIdLen;
        c.values[1] = identity->serviceIdLen;
    }
}
int SimButtonRegisterCallback(const PerixButtonCallback* callback) {
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().buttonNotify = callback->notify;
    }
    return result;
}
int SimButtonOpen(const PerixButtonIdentity* identity) {
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 1, P(identity));
    SetIdentity(c, identity);
    const int result = Result(c);
    perix_sim_peer::OnButtonOpen(identity, result);  // the peer may report the channel open
    return result;
}
int SimButtonClose(const PerixButtonIdentity* identity) {
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 2, P(identity));
    SetIdentity(c, identity);
    return Result(c);
}
int SimButtonWriteStreamBuffer(const PerixButtonIdentity* identity,
                               const PerixDataBuffer* buffer) {
    if (perix_sim_peer::BareWrite()) {
        return 0;
    }
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 3, P(identity), P(buffer));
    SetIdentity(c, identity);
    if (buffer != nullptr) {
        c.args[2] = P(buffer->data);
        c.values[2] = buffer->len;
    }
    const int result = Result(c);
    perix_sim_peer::OnButtonWrite(identity, buffer);  // the peer keeps and decodes the packet
    return result;
}

// ---- AudioHandlerSource ----

void SetServiceId(perix_sim_call& c, const PerixServiceId* service) {
    if (service != nullptr) {
        SetText(c.text, service->deviceId, service->deviceIdLen);
        SetText(c.text2, service->serviceId, service->serviceIdLen);
        c.values[0] = service->deviceIdLen;
        c.values[1] = service->serviceIdLen;
        c.values[2] = service->serviceType;
    }
}
int SimAudioRegisterCallback(const PerixStreamCallback* callback) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().audioNotify = callback->notify;
    }
    return result;
}
int SimAudioReserved1(void) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 1);
    return Result(c);
}
int SimAudioOpen(const PerixServiceId* service, const AudioParam* param) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 2, P(service), P(param));
    SetServiceId(c, service);
    if (param != nullptr) {
        c.values[3] = param->param0;
        c.values[4] = param->param6;
    }
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnOpen(PERIX_SIM_STREAM_AUDIO, service);
    }
    return result;
}
int SimAudioClose(const PerixServiceId* service) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 3, P(service));
    SetServiceId(c, service);
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnClose(PERIX_SIM_STREAM_AUDIO, service);
    }
    return result;
}
int SimAudioReserved4(void) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 4);
    return Result(c);
}
int SimAudioWriteStreamBuffer(const PerixServiceId* service, const PerixAudioBuffer* buffer) {
    if (perix_sim_streams::BareWrite()) {
        return 0;
    }
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 5, P(service), P(buffer));
    SetServiceId(c, service);
    if (buffer != nullptr) {
        c.args[2] = P(buffer->data);
        c.values[3] = buffer->length;
        c.values[4] = buffer->fixed3;
        c.values[5] = static_cast<uint32_t>(buffer->fixed1);
    }
    const int result = Result(c);
    if (result == 0 && buffer != nullptr) {
        perix_sim_streams::OnWrite(PERIX_SIM_STREAM_AUDIO, service, buffer->data, buffer->length);
    }
    return result;
}
int SimAudioPassThrough(void* a, void* b) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 6, P(a), P(b));
    return Result(c);
}
int SimAudioReserved7(void) {
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 7);
    return Result(c);
}

// ---- RefreshHandlerSource ----

int SimRefreshRegisterCallback(const PerixStreamCallback* callback) {
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().refreshNotify = callback->notify;
    }
    return result;
}
int SimPartialRefreshOpen(const PerixServiceId* service, void* a, void* b) {
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 1, P(service), P(a), P(b));
    SetServiceId(c, service);
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnOpen(PERIX_SIM_STREAM_REFRESH, service);
    }
    return result;
}
int SimPartialRefreshClose(const PerixServiceId* service, void* a, void* b) {
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 2, P(service), P(a), P(b));
    SetServiceId(c, service);
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnClose(PERIX_SIM_STREAM_REFRESH, service);
    }
    return result;
}
int SimPartialRefreshWriteStreamBuffer(const PerixServiceId* service,
                                       const PerixDataBuffer* buffer) {
    if (perix_sim_streams::BareWrite()) {
        return 0;
    }
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 3, P(service), P(buffer));
    SetServiceId(c, service);
    if (buffer != nullptr) {
        c.args[2] = P(buffer->data);
        c.values[3] = buffer->len;
    }
    const int result = Result(c);
    if (result == 0 && buffer != nullptr) {
        perix_sim_streams::OnWrite(PERIX_SIM_STREAM_REFRESH, service, buffer->data, buffer->len);
    }
    return result;
}

// Records a getter call and gives its configured result; the table is filled only on 0.
int GetterCall(int table, const void* out) {
    perix_sim_call c = Begin(table, PERIX_SIM_GETTER_SLOT, P(out));
    const int result = Result(c);
    return result == 0 && out == nullptr ? -1 : result;
}

}  // namespace

namespace {

// Table fillers; a variant built without a getter keeps its filler unused.
[[maybe_unused]] int FillMain(OrbPERIXHandler* table) {
    const int result = GetterCall(PERIX_SIM_MAIN, table);
    if (result != 0) {
        return result;
    }
    *table = OrbPERIXHandler{SimPERIXInitial,
                             SimPERIXRelease,
                             SimReserved2,
                             SimPERIXLogRegister,
                             SimPERIXCreateServiceHandle,
                             SimPERIXReleaseServiceHandle,
                             SimPERIXStartService,
                             SimPERIXRegisterCallback,
                             SimPERIXGetConnectionStatus,
                             SimPERIXPassThrough,
                             SimPERIXAddVirtualService,
                             SimPERIXRemoveVirtualService,
                             SimPERIXEnableVirtualService,
                             SimPERIXDisableVirtualService,
                             SimPERIXRegisterListener,
                             SimPERIXUnRegisterListener,
                             SimPERIXSendBinaryData};
    return 0;
}

[[maybe_unused]] int FillButton(ButtonHandlerSource* table) {
    const int result = GetterCall(PERIX_SIM_BUTTON, table);
    if (result != 0) {
        return result;
    }
    *table = ButtonHandlerSource{SimButtonRegisterCallback, SimButtonOpen, SimButtonClose,
                                 SimButtonWriteStreamBuffer};
    return 0;
}

[[maybe_unused]] int FillAudio(AudioHandlerSource* table) {
    const int result = GetterCall(PERIX_SIM_AUDIO, table);
    if (result != 0) {
        return result;
    }
    *table = AudioHandlerSource{SimAudioRegisterCallback, SimAudioReserved1, SimAudioOpen,
                                SimAudioClose,           SimAudioReserved4, SimAudioWriteStreamBuffer,
                                SimAudioPassThrough,     SimAudioReserved7};
    return 0;
}

[[maybe_unused]] int FillRefresh(RefreshHandlerSource* table) {
    const int result = GetterCall(PERIX_SIM_REFRESH, table);
    if (result != 0) {
        return result;
    }
    *table = RefreshHandlerSource{SimRefreshRegisterCallback, SimPartialRefreshOpen,
                                  SimPartialRefreshClose, SimPartialRefreshWriteStreamBuffer};
    return 0;
}

}  // namespace

// ---- The engine's exports ----

extern "C" {

#if !defined(PERIX_SIM_WITHOUT_MAIN_GETTER)
PERIX_SIM_API int PERIXGetOrbPERIXHandler(OrbPERIXHandler* table) {
    return FillMain(table);
}
#endif

#if !defined(PERIX_SIM_WITHOUT_BUTTON_GETTER)
PERIX_SIM_API int PERIXGetButtonHandlerSource(ButtonHandlerSource* table) {
    return FillButton(table);
}
#endif

#if !defined(PERIX_SIM_WITHOUT_AUDIO_GETTER)
PERIX_SIM_API int PERIXGetAudioHandlerSource(AudioHandlerSource* table) {
    return FillAudio(table);
}
#endif

#if !defined(PERIX_SIM_WITHOUT_REFRESH_GETTER)
PERIX_SIM_API int PERIXGetRefreshHandlerSource(RefreshHandlerSource* table) {
    return FillRefresh(table);
}
#endif

// ---- Control interface ----

void perix_sim_reset(void) {
    perix_sim_peer_reset();
    perix_sim_streams_reset();
    Engine& e = E();
    std::lock_guard<std::mutex> lock(e.mutex);
    e.calls.clear();
    std::memset(e.getterResults, 0, sizeof(e.getterResults));
    std::memset(e.slotResults, 0, sizeof(e.slotResults));
    e.failCreateHandle = false;
    e.traceId = 0;
    e.lastHandle = nullptr;
    e.handles.clear();
    e.buttonNotify = nullptr;
    e.audioNotify = nullptr;
    e.refreshNotify = nullptr;
}

void perix_sim_set_getter_result(int table, int result) {
    if (table < 0 || table >= kTables) {
        return;
    }
    std::lock_guard<std::mutex> lock(E().mutex);
    E().getterResults[table] = result;
}

void perix_sim_set_slot_result(int table, int slot, int64_t result) {
    if (table < 0 || table >= kTables || slot < 0 || slot >= kMaxSlots) {
        return;
    }
    std::lock_guard<std::mutex> lock(E().mutex);
    if (table == PERIX_SIM_MAIN && slot == 4) {
        E().failCreateHandle = result == 0;
        return;
    }
    E().slotResults[table][slot] = result;
}

void perix_sim_set_trace_id(uint64_t traceId) {
    std::lock_guard<std::mutex> lock(E().mutex);
    E().traceId = traceId;
}

int perix_sim_call_count(void) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return static_cast<int>(E().calls.size());
}

int perix_sim_get_call(int index, perix_sim_call* out) {
    std::lock_guard<std::mutex> lock(E().mutex);
    if (index < 0 || static_cast<size_t>(index) >= E().calls.size() || out == nullptr) {
        return -1;
    }
    *out = E().calls[static_cast<size_t>(index)];
    return 0;
}

int perix_sim_count_calls(int table, int slot) {
    std::lock_guard<std::mutex> lock(E().mutex);
    int count = 0;
    for (const perix_sim_call& call : E().calls) {
        count += call.table == table && call.slot == slot ? 1 : 0;
    }
    return count;
}

int perix_sim_find_call(int table, int slot, int nth, perix_sim_call* out) {
    std::lock_guard<std::mutex> lock(E().mutex);
    for (const perix_sim_call& call : E().calls) {
        if (call.table == table && call.slot == slot && nth-- == 0) {
            if (out != nullptr) {
                *out = call;
            }
            return 0;
        }
    }
    return -1;
}

void perix_sim_clear_calls(void) {
    std::lock_guard<std::mutex> lock(E().mutex);
    E().calls.clear();
}

void* perix_sim_last_handle(void) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return E().lastHandle;
}

}  // extern "C"

namespace {

// Copies the callbacks registered for `handle` out under the lock; callbacks run unlocked.
bool ListenerOf(void* handle, PerixEngineListener* out) {
    std::lock_guard<std::mutex> lock(E().mutex);
    auto found = E().handles.find(handle);
    if (found == E().handles.end() || !found->second.hasListener) {
        return false;
    }
    *out = found->second.listener;
    return true;
}

using StreamNotifyFn = int (*)(const void*, const void*);
StreamNotifyFn Registered(StreamNotifyFn Engine::*which) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return E().*which;
}

}  // namespace

extern "C" {

int perix_sim_fire_device_change(void* handle, const PerixDeviceChangeNotify* notify) {
    PerixEngineListener listener{};
    if (!ListenerOf(handle, &listener) || listener.onDeviceChange == nullptr) {
        return -1;
    }
    listener.onDeviceChange(handle, notify);
    return 0;
}

int perix_sim_fire_service_change(void* handle, const PerixServiceChangeNotify* notify) {
    PerixEngineListener listener{};
    if (!ListenerOf(handle, &listener) || listener.onDeviceServiceChange == nullptr) {
        return -1;
    }
    listener.onDeviceServiceChange(handle, notify);
    return 0;
}

int perix_sim_fire_data(void* handle, const BinaryData* data) {
    PerixEngineListener listener{};
    if (!ListenerOf(handle, &listener) || listener.onDataReceive == nullptr) {
        return -1;
    }
    listener.onDataReceive(handle, data);
    return 0;
}

int perix_sim_fire_button(const PerixButtonIdentity* identity, const PerixButtonNotify* notify) {
    StreamNotifyFn fn = Registered(&Engine::buttonNotify);
    return fn == nullptr ? -1 : fn(identity, notify);
}

int perix_sim_fire_audio(const PerixServiceId* service, const PerixStreamNotify* data) {
    StreamNotifyFn fn = Registered(&Engine::audioNotify);
    return fn == nullptr ? -1 : fn(service, data);
}

int perix_sim_fire_refresh(const PerixServiceId* service, const PerixStreamNotify* data) {
    StreamNotifyFn fn = Registered(&Engine::refreshNotify);
    return fn == nullptr ? -1 : fn(service, data);
}

}  // extern "C"
