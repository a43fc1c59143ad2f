// Calls from the simulated engine's audio and refresh slots into the peer's stream records.
// Internal to the simulated engine.
#ifndef PERIX_SIM_STREAMS_HOOKS_H_
#define PERIX_SIM_STREAMS_HOOKS_H_

#include <cstdint>

#include "orbperix/engine_tables.h"

namespace perix_sim_streams {

// True when stream writes are to return 0 without being recorded.
bool BareWrite();
void OnOpen(int channel, const PerixServiceId* service);
void OnClose(int channel, const PerixServiceId* service);
void OnWrite(int channel, const PerixServiceId* service, const uint8_t* data, uint32_t length);

}  // namespace perix_sim_streams

#endif  // PERIX_SIM_STREAMS_HOOKS_H_
