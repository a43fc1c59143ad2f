// The simulated PERIX engine's core: the implementation of every slot of the four tables
// (record the call, return a settable result), reached through the thin module's trampolines,
// and the firing of the registered callbacks on request.
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "perix_sim.h"
#include "perix_sim_streams.h"
#include "sim_streams_hooks.h"
#include "perix_sim_peer.h"
#include "sim_peer_hooks.h"
#include "sim_module_entry.h"
#include "sim_strict.h"

namespace {

constexpr int kTables = 4;
constexpr int kMaxSlots = 17;

using perix_sim_strict::SlotScope;

struct Engine {
    std::mutex mutex;
    std::vector<perix_sim_call> calls;
    int getterResults[kTables] = {};
    int64_t slotResults[kTables][kMaxSlots] = {};
    bool failCreateHandle = false;
    uint64_t traceId = 0;
    void* lastHandle = nullptr;
    // Callback records as the library registered them: kept by address and read at fire time,
    // so a record that the library freed or changed is what a fire sees. Kept until reset,
    // past the handle's release and PERIXUnRegisterListener.
    std::map<void*, const PerixEngineListener*> listeners;
    const PerixButtonCallback* button = nullptr;
    const PerixStreamCallback* audio = nullptr;
    const PerixStreamCallback* refresh = nullptr;
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
    SlotScope scope(PERIX_SIM_MAIN, 0, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 0, P(initText));
    SetText(c.text, initText);
    return Result(c);
}
int SimPERIXRelease(void) {
    SlotScope scope(PERIX_SIM_MAIN, 1, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 1);
    return Result(c);
}
int SimReserved2(void) {
    SlotScope scope(PERIX_SIM_MAIN, 2, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 2);
    return Result(c);
}
int SimPERIXLogRegister(tagPERIXLogFuncGroup* logFuncs) {
    SlotScope scope(PERIX_SIM_MAIN, 3, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 3, P(logFuncs));
    return Result(c);
}
void* SimPERIXCreateServiceHandle(const PERIXInfo* info) {
    SlotScope scope(PERIX_SIM_MAIN, 4, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 4, P(info));
    if (info != nullptr) {
        SetText(c.text, info->peerDeviceId, strnlen(info->peerDeviceId, sizeof(info->peerDeviceId)));
    }
    Engine& e = E();
    bool fail = false;
    {
        std::lock_guard<std::mutex> lock(e.mutex);
        fail = e.failCreateHandle;
    }
    void* handle = fail ? nullptr : perix_sim_strict::CreateHandle();
    std::lock_guard<std::mutex> lock(e.mutex);
    if (handle != nullptr) {
        e.lastHandle = handle;
    }
    c.result = static_cast<int64_t>(P(handle));
    e.calls.push_back(c);
    return handle;
}
int SimPERIXReleaseServiceHandle(void* handle, void* arg1, void* arg2) {
    SlotScope scope(PERIX_SIM_MAIN, 5, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 5, P(handle), P(arg1), P(arg2));
    // Every call releases the handle, also the sink's disconnect with its further arguments:
    // a strict engine frees what it is asked to release. A null handle has nothing to release.
    if (scope.HandleOk() && handle != nullptr) {
        perix_sim_strict::ReleaseHandle(handle);
    }
    return Result(c);
}
int SimPERIXStartService(void* handle, const PERIXInfo* info) {
    SlotScope scope(PERIX_SIM_MAIN, 6, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 6, P(handle), P(info));
    if (info != nullptr) {
        SetText(c.text, info->peerDeviceId, strnlen(info->peerDeviceId, sizeof(info->peerDeviceId)));
        c.values[0] = static_cast<uint32_t>(info->serverPort);
        c.values[1] = info->connectType;
    }
    return Result(c);
}
int SimPERIXRegisterCallback(void* handle, uint32_t type, void* callback) {
    SlotScope scope(PERIX_SIM_MAIN, 7, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 7, P(handle), type, P(callback));
    c.values[0] = type;
    return Result(c);
}
int SimPERIXGetConnectionStatus(void* handle, uint64_t* traceId) {
    SlotScope scope(PERIX_SIM_MAIN, 8, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 8, P(handle), P(traceId));
    if (traceId != nullptr) {
        Engine& e = E();
        std::lock_guard<std::mutex> lock(e.mutex);
        *traceId = e.traceId;
    }
    return Result(c);
}
int SimPERIXPassThrough(void* handle, void* a, void* b, void* cc) {
    SlotScope scope(PERIX_SIM_MAIN, 9, handle, true);
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
    SlotScope scope(PERIX_SIM_MAIN, 10, handle, true);
    perix_sim_call c = VirtualServiceCall(10, handle, service, 0);
    return Result(c);
}
int SimPERIXRemoveVirtualService(void* handle, const PerixVirtualService* service) {
    SlotScope scope(PERIX_SIM_MAIN, 11, handle, true);
    perix_sim_call c = VirtualServiceCall(11, handle, service, 0);
    return Result(c);
}
int SimPERIXEnableVirtualService(void* handle, const PerixVirtualService* service,
                                 uint32_t flags) {
    SlotScope scope(PERIX_SIM_MAIN, 12, handle, true);
    perix_sim_call c = VirtualServiceCall(12, handle, service, flags);
    return Result(c);
}
int SimPERIXDisableVirtualService(void* handle, const PerixVirtualService* service,
                                  uint32_t flags) {
    SlotScope scope(PERIX_SIM_MAIN, 13, handle, true);
    perix_sim_call c = VirtualServiceCall(13, handle, service, flags);
    return Result(c);
}
int SimPERIXRegisterListener(void* handle, const PerixEngineListener* listener) {
    SlotScope scope(PERIX_SIM_MAIN, 14, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 14, P(handle), P(listener));
    const int result = Result(c);
    if (listener != nullptr && handle != nullptr && scope.HandleOk()) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().listeners[handle] = listener;  // the record itself, not a copy
    }
    return result;
}
int SimPERIXUnRegisterListener(void* handle) {
    SlotScope scope(PERIX_SIM_MAIN, 15, handle, true);
    perix_sim_call c = Begin(PERIX_SIM_MAIN, 15, P(handle));
    return Result(c);
}
int SimPERIXSendBinaryData(void* handle, const BinaryData* data) {
    SlotScope scope(PERIX_SIM_MAIN, 16, handle, true);
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

// An identity text as a strict engine takes it: the library's texts are NUL-terminated at their
// length (C strings back them), so an engine that reads one to its NUL stays inside it.
void SetIdentityText(char (&dest)[260], const char* text, uint32_t length) {
    SetText(dest, text, length);
    if (text != nullptr && text[length] != '\0') {
        perix_sim_strict::Violation("identity text not NUL-terminated at its length");
    }
}

// ---- ButtonHandlerSource ----

void SetIdentity(perix_sim_call& c, const PerixButtonIdentity* identity) {
    if (identity != nullptr) {
        SetIdentityText(c.text, identity->deviceId, identity->deviceIdLen);
        SetIdentityText(c.text2, identity->serviceId, identity->serviceIdLen);
        c.values[0] = identity->deviceIdLen;
        c.values[1] = identity->serviceIdLen;
    }
}
int SimButtonRegisterCallback(const PerixButtonCallback* callback) {
    SlotScope scope(PERIX_SIM_BUTTON, 0, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().button = callback;
    }
    return result;
}
int SimButtonOpen(const PerixButtonIdentity* identity) {
    SlotScope scope(PERIX_SIM_BUTTON, 1, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 1, P(identity));
    SetIdentity(c, identity);
    const int result = Result(c);
    perix_sim_peer::OnButtonOpen(identity, result);  // the peer may report the channel open
    return result;
}
int SimButtonClose(const PerixButtonIdentity* identity) {
    SlotScope scope(PERIX_SIM_BUTTON, 2, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_BUTTON, 2, P(identity));
    SetIdentity(c, identity);
    return Result(c);
}
int SimButtonWriteStreamBuffer(const PerixButtonIdentity* identity,
                               const PerixDataBuffer* buffer) {
    SlotScope scope(PERIX_SIM_BUTTON, 3, nullptr, false);
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
        SetIdentityText(c.text, service->deviceId, service->deviceIdLen);
        SetIdentityText(c.text2, service->serviceId, service->serviceIdLen);
        c.values[0] = service->deviceIdLen;
        c.values[1] = service->serviceIdLen;
        c.values[2] = service->serviceType;
    }
}
int SimAudioRegisterCallback(const PerixStreamCallback* callback) {
    SlotScope scope(PERIX_SIM_AUDIO, 0, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().audio = callback;
    }
    return result;
}
int SimAudioReserved1(void) {
    SlotScope scope(PERIX_SIM_AUDIO, 1, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 1);
    return Result(c);
}
int SimAudioOpen(const PerixServiceId* service, const AudioParam* param) {
    SlotScope scope(PERIX_SIM_AUDIO, 2, nullptr, false);
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
    SlotScope scope(PERIX_SIM_AUDIO, 3, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 3, P(service));
    SetServiceId(c, service);
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnClose(PERIX_SIM_STREAM_AUDIO, service);
    }
    return result;
}
int SimAudioReserved4(void) {
    SlotScope scope(PERIX_SIM_AUDIO, 4, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 4);
    return Result(c);
}
int SimAudioWriteStreamBuffer(const PerixServiceId* service, const PerixAudioBuffer* buffer) {
    SlotScope scope(PERIX_SIM_AUDIO, 5, nullptr, false);
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
    SlotScope scope(PERIX_SIM_AUDIO, 6, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 6, P(a), P(b));
    return Result(c);
}
int SimAudioReserved7(void) {
    SlotScope scope(PERIX_SIM_AUDIO, 7, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_AUDIO, 7);
    return Result(c);
}

// ---- RefreshHandlerSource ----

int SimRefreshRegisterCallback(const PerixStreamCallback* callback) {
    SlotScope scope(PERIX_SIM_REFRESH, 0, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 0, P(callback));
    const int result = Result(c);
    if (callback != nullptr) {
        std::lock_guard<std::mutex> lock(E().mutex);
        E().refresh = callback;
    }
    return result;
}
int SimPartialRefreshOpen(const PerixServiceId* service, void* a, void* b) {
    SlotScope scope(PERIX_SIM_REFRESH, 1, nullptr, false);
    perix_sim_call c = Begin(PERIX_SIM_REFRESH, 1, P(service), P(a), P(b));
    SetServiceId(c, service);
    const int result = Result(c);
    if (result == 0) {
        perix_sim_streams::OnOpen(PERIX_SIM_STREAM_REFRESH, service);
    }
    return result;
}
int SimPartialRefreshClose(const PerixServiceId* service, void* a, void* b) {
    SlotScope scope(PERIX_SIM_REFRESH, 2, nullptr, false);
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
    SlotScope scope(PERIX_SIM_REFRESH, 3, nullptr, false);
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

// The core's implementation of each table, in slot order; the module's trampolines call
// through these.
const OrbPERIXHandler kMainTable{SimPERIXInitial,
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
const ButtonHandlerSource kButtonTable{SimButtonRegisterCallback, SimButtonOpen, SimButtonClose,
                                       SimButtonWriteStreamBuffer};
const AudioHandlerSource kAudioTable{SimAudioRegisterCallback, SimAudioReserved1,
                                     SimAudioOpen,             SimAudioClose,
                                     SimAudioReserved4,        SimAudioWriteStreamBuffer,
                                     SimAudioPassThrough,      SimAudioReserved7};
const RefreshHandlerSource kRefreshTable{SimRefreshRegisterCallback, SimPartialRefreshOpen,
                                         SimPartialRefreshClose,
                                         SimPartialRefreshWriteStreamBuffer};

}  // namespace

namespace perix_sim_strict {

const char* SlotName(int table, int slot) {
    if (table < 0 || table >= kTables) {
        return "?";
    }
    return slot == PERIX_SIM_GETTER_SLOT ? kGetterNames[table] : kNames[table][slot];
}

}  // namespace perix_sim_strict

extern "C" {

// ---- Entry points of the thin module ----

int perix_sim_module_getter(int table, const void* out) {
    if (table < 0 || table >= kTables) {
        return -1;
    }
    // Records the getter call; the module fills the table only on 0.
    perix_sim_call c = Begin(table, PERIX_SIM_GETTER_SLOT, P(out));
    const int result = Result(c);
    return result == 0 && out == nullptr ? -1 : result;
}

const OrbPERIXHandler* perix_sim_module_main_table(void) { return &kMainTable; }
const ButtonHandlerSource* perix_sim_module_button_table(void) { return &kButtonTable; }
const AudioHandlerSource* perix_sim_module_audio_table(void) { return &kAudioTable; }
const RefreshHandlerSource* perix_sim_module_refresh_table(void) { return &kRefreshTable; }

void perix_sim_core_tables(OrbPERIXHandler* main, ButtonHandlerSource* button,
                           AudioHandlerSource* audio, RefreshHandlerSource* refresh) {
    if (main != nullptr) {
        *main = kMainTable;
    }
    if (button != nullptr) {
        *button = kButtonTable;
    }
    if (audio != nullptr) {
        *audio = kAudioTable;
    }
    if (refresh != nullptr) {
        *refresh = kRefreshTable;
    }
}

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
    e.listeners.clear();
    e.button = nullptr;
    e.audio = nullptr;
    e.refresh = nullptr;
    perix_sim_strict::Reset();
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

// The listener record registered for `handle` (null when none); callbacks run unlocked.
const PerixEngineListener* ListenerOf(void* handle) {
    std::lock_guard<std::mutex> lock(E().mutex);
    auto found = E().listeners.find(handle);
    return found == E().listeners.end() ? nullptr : found->second;
}

using ListenerFn = void (*)(void*, const void*);

// Calls one member of the listener record registered for `handle`, read through the record
// now. A release of the handle on another thread waits until this returns.
int FireListener(void* handle, ListenerFn PerixEngineListener::*which, const void* notify) {
    perix_sim_strict::FireScope inFlight(handle);
    const PerixEngineListener* record = ListenerOf(handle);
    if (record == nullptr) {
        return -1;
    }
    const ListenerFn fn = record->*which;
    if (fn == nullptr) {
        return -1;
    }
    fn(handle, notify);
    return 0;
}

template <typename Record>
const Record* Registered(const Record* Engine::*which) {
    std::lock_guard<std::mutex> lock(E().mutex);
    return E().*which;
}

// Calls the channel callback through its registered record (-1 when none).
template <typename Record>
int FireChannel(const Record* Engine::*which, const void* first, const void* second) {
    const Record* record = Registered(which);
    if (record == nullptr || record->notify == nullptr) {
        return -1;
    }
    return record->notify(first, second);
}

}  // namespace

extern "C" {

int perix_sim_fire_device_change(void* handle, const PerixDeviceChangeNotify* notify) {
    return FireListener(handle, &PerixEngineListener::onDeviceChange, notify);
}

int perix_sim_fire_service_change(void* handle, const PerixServiceChangeNotify* notify) {
    return FireListener(handle, &PerixEngineListener::onDeviceServiceChange, notify);
}

int perix_sim_fire_data(void* handle, const BinaryData* data) {
    return FireListener(handle, &PerixEngineListener::onDataReceive, data);
}

int perix_sim_fire_button(const PerixButtonIdentity* identity, const PerixButtonNotify* notify) {
    return FireChannel(&Engine::button, identity, notify);
}

int perix_sim_fire_audio(const PerixServiceId* service, const PerixStreamNotify* data) {
    return FireChannel(&Engine::audio, service, data);
}

int perix_sim_fire_refresh(const PerixServiceId* service, const PerixStreamNotify* data) {
    return FireChannel(&Engine::refresh, service, data);
}

}  // extern "C"
