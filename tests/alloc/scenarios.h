// The sessions the allocation sweep runs: a host's session of each provider kind, the C
// interface's session, engine notifications of every kind with payloads, and the cast bridge.
#ifndef ORBPERIX_TESTS_ALLOC_SCENARIOS_H_
#define ORBPERIX_TESTS_ALLOC_SCENARIOS_H_

#include "sweep.h"

namespace scenarios {

sweep::Scenario InputSession();
sweep::Scenario SourceSession();
sweep::Scenario SinkSession();
sweep::Scenario Notifications();
sweep::Scenario CSession();
sweep::Scenario CastBridge();

}  // namespace scenarios

#endif  // ORBPERIX_TESTS_ALLOC_SCENARIOS_H_
