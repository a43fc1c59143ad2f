#include "manager/engine_fallbacks.h"

namespace OrbPerix {
namespace {

constexpr int kEngineNotAvailable = -13;

template <typename Result>
Result NotAvailable() {
    return kEngineNotAvailable;
}
template <>
void* NotAvailable<void*>() {
    return nullptr;
}

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#endif
// One stand-in per slot, with the slot's own signature, generated from the slot lists.
#define ORBPERIX_FALLBACK(table, slot, name, result, params) \
    result Missing_##table##_##name params { return NotAvailable<result>(); }
#define ORBPERIX_MAIN_FALLBACK(slot, name, result, params) ORBPERIX_FALLBACK(Main, slot, name, result, params)
#define ORBPERIX_BUTTON_FALLBACK(slot, name, result, params) ORBPERIX_FALLBACK(Button, slot, name, result, params)
#define ORBPERIX_AUDIO_FALLBACK(slot, name, result, params) ORBPERIX_FALLBACK(Audio, slot, name, result, params)
#define ORBPERIX_REFRESH_FALLBACK(slot, name, result, params) ORBPERIX_FALLBACK(Refresh, slot, name, result, params)
ORBPERIX_MAIN_SLOTS(ORBPERIX_MAIN_FALLBACK)
ORBPERIX_BUTTON_SLOTS(ORBPERIX_BUTTON_FALLBACK)
ORBPERIX_AUDIO_SLOTS(ORBPERIX_AUDIO_FALLBACK)
ORBPERIX_REFRESH_SLOTS(ORBPERIX_REFRESH_FALLBACK)
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#define ORBPERIX_FILL(table, slot, name, result, params) \
    if (copy.name == nullptr) {                          \
        copy.name = Missing_##table##_##name;            \
    }
#define ORBPERIX_MAIN_FILL(slot, name, result, params) ORBPERIX_FILL(Main, slot, name, result, params)
#define ORBPERIX_BUTTON_FILL(slot, name, result, params) ORBPERIX_FILL(Button, slot, name, result, params)
#define ORBPERIX_AUDIO_FILL(slot, name, result, params) ORBPERIX_FILL(Audio, slot, name, result, params)
#define ORBPERIX_REFRESH_FILL(slot, name, result, params) ORBPERIX_FILL(Refresh, slot, name, result, params)

}  // namespace

OrbPERIXHandler WithFallbacks(const OrbPERIXHandler& table) {
    OrbPERIXHandler copy = table;
    ORBPERIX_MAIN_SLOTS(ORBPERIX_MAIN_FILL)
    return copy;
}

ButtonHandlerSource WithFallbacks(const ButtonHandlerSource& table) {
    ButtonHandlerSource copy = table;
    ORBPERIX_BUTTON_SLOTS(ORBPERIX_BUTTON_FILL)
    return copy;
}

AudioHandlerSource WithFallbacks(const AudioHandlerSource& table) {
    AudioHandlerSource copy = table;
    ORBPERIX_AUDIO_SLOTS(ORBPERIX_AUDIO_FILL)
    return copy;
}

RefreshHandlerSource WithFallbacks(const RefreshHandlerSource& table) {
    RefreshHandlerSource copy = table;
    ORBPERIX_REFRESH_SLOTS(ORBPERIX_REFRESH_FILL)
    return copy;
}

}  // namespace OrbPerix
