// The simulated engine's calls into its peer (sim_peer.cpp); not exported.
#ifndef PERIX_SIM_PEER_HOOKS_H_
#define PERIX_SIM_PEER_HOOKS_H_

#include "orbperix/engine_tables.h"

namespace perix_sim_peer {

// After ButtonOpen returned `result` for `identity`.
void OnButtonOpen(const PerixButtonIdentity* identity, int result);
// True when button writes are to return 0 without being recorded.
bool BareWrite();
// After a recorded ButtonWriteStreamBuffer: keeps and decodes the packet.
void OnButtonWrite(const PerixButtonIdentity* identity, const PerixDataBuffer* buffer);

}  // namespace perix_sim_peer

#endif  // PERIX_SIM_PEER_HOOKS_H_
