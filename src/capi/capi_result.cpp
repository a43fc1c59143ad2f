// orbperix_result_text: what a result code means, for a host's own log or message box.
#include <atomic>
#include <cstdio>

#include "capi/capi_common.h"

namespace {

struct Named {
    int code;
    const char* text;
};

// One row per named code of orbperix_c.h.
constexpr Named kNamed[] = {
    {ORBPERIX_C_OK, "success"},
    {ORBPERIX_C_ENCODE_FAILED, "the remote-control event could not be encoded"},
    {ORBPERIX_C_INVALID_ARGUMENT, "invalid argument or wrong service type"},
    {ORBPERIX_C_NO_MEMORY, "out of memory"},
    {ORBPERIX_C_WRONG_STATE,
     "wrong state (not initialised, not registered, not connected, or already done)"},
    {ORBPERIX_C_SINK_PORT_ZERO, "the sink's device record has server port 0"},
    {ORBPERIX_C_SESSION_KEY_COPY, "the session key could not be copied"},
    {ORBPERIX_C_NOT_AVAILABLE,
     "not available (engine not loaded, not started or finalised; or no handle, session or copy)"},
    {ORBPERIX_C_BAD_HANDLE, "unknown, stale, destroyed or wrong-kind handle"},
    {ORBPERIX_C_LISTENER_THREW, "a listener threw an exception"},
};

// Texts for codes without a name are formatted into a small ring of static buffers, so that a
// few texts taken one after another on different threads stay readable for a while; a text is
// overwritten only after kUnnamedSlots later unnamed lookups.
constexpr int kUnnamedSlots = 16;
char g_unnamed[kUnnamedSlots][40];
std::atomic<unsigned> g_nextUnnamed{0};

}  // namespace

extern "C" const char* orbperix_result_text(int code) {
    for (const Named& named : kNamed) {
        if (named.code == code) {
            return named.text;
        }
    }
    char* text = g_unnamed[g_nextUnnamed.fetch_add(1, std::memory_order_relaxed) % kUnnamedSlots];
    std::snprintf(text, sizeof(g_unnamed[0]), "engine result %d", code);
    return text;
}
