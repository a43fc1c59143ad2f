// Providers get copies of the engine's tables as the manager holds them when they are created;
// a provider created before Initialize succeeded holds empty slots. Calling an empty slot would
// end the host process, so the copies handed to providers have every empty slot replaced by a
// function that reports the engine as not available: -13, or a null service handle. Filled
// slots are copied unchanged.
#ifndef ORBPERIX_SRC_MANAGER_ENGINE_FALLBACKS_H_
#define ORBPERIX_SRC_MANAGER_ENGINE_FALLBACKS_H_

#include "orbperix/engine_tables.h"

namespace OrbPerix {

OrbPERIXHandler WithFallbacks(const OrbPERIXHandler& table);
ButtonHandlerSource WithFallbacks(const ButtonHandlerSource& table);
AudioHandlerSource WithFallbacks(const AudioHandlerSource& table);
RefreshHandlerSource WithFallbacks(const RefreshHandlerSource& table);

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_MANAGER_ENGINE_FALLBACKS_H_
