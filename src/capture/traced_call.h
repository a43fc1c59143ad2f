// The recorded form of an engine call, used by the engine gate when a capture runs (the cold
// side of its branch). The operation is named by finding the called entry in the load's
// tables; the arguments are described by their types (handles, identities, buffers), so no
// call site has to say what it passes.
//
// Runs on the calling thread, inside the gate (the call is counted in).
#ifndef ORBPERIX_SRC_CAPTURE_TRACED_CALL_H_
#define ORBPERIX_SRC_CAPTURE_TRACED_CALL_H_

#include <type_traits>
#include <utility>

#include "capture/capture.h"
#include "orbperix/engine_tables.h"
#include "platform/platform.h"

namespace OrbPerix {

struct EngineLoad;

namespace capture {

struct Operation {
    const char* name;  // "<table>.<slot>", e.g. "Button.ButtonWriteStreamBuffer"
    PayloadKind payloadKind;  // what a data buffer passed to it holds
};
// REQUIRES: `entry` was read from one of `load`'s tables.
Operation IdentifyOperation(const EngineLoad& load, void (*entry)(void)) noexcept;

// What a record keeps of each argument type; anything not listed (callback records, out
// parameters, opaque pass-through pointers after the handle) is left out.
inline void Describe(Record& record, void* handle) noexcept { record.Handle(handle); }
void Describe(Record& record, const PERIXInfo* info) noexcept;
void Describe(Record& record, const PerixButtonIdentity* identity) noexcept;
void Describe(Record& record, const PerixServiceId* service) noexcept;
void Describe(Record& record, const PerixDataBuffer* buffer) noexcept;
void Describe(Record& record, const PerixAudioBuffer* buffer) noexcept;
void Describe(Record& record, const BinaryData* data) noexcept;
void Describe(Record& record, const PerixVirtualService* service) noexcept;
inline void Describe(Record& record, uint32_t value) noexcept { record.Aux(value); }
template <typename T>
void Describe(Record&, const T&) noexcept {}

// Calls `entry` and records it. `kind` overrides what the operation's data buffer holds
// (kNone: as the operation says).
template <typename Result, typename... Params, typename... Args>
ORBPERIX_COLD Result TracedCall(PayloadKind kind, const EngineLoad& load, Result (*entry)(Params...),
                  Args&&... args) noexcept {
    const Operation operation = IdentifyOperation(load, reinterpret_cast<void (*)(void)>(entry));
    Record record(Direction::kLibraryToEngine, operation.name,
                  kind != PayloadKind::kNone ? kind : operation.payloadKind);
    (Describe(record, static_cast<Params>(args)), ...);
    const uint64_t start = Now();
    Result result = entry(std::forward<Args>(args)...);
    const uint64_t end = Now();
    if constexpr (std::is_pointer<Result>::value) {
        record.Handle(result);
    } else {
        record.Result(static_cast<int32_t>(result));
    }
    if (record.Kind() == PayloadKind::kRemoteControl) {
        record.SincePostFrom(PostTime());
    }
    record.Submit(start, end);
    return result;
}

}  // namespace capture
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_CAPTURE_TRACED_CALL_H_
