// The demo host: runs OrbPerixProvider against the simulated engine and shows each step.
#ifndef ORBPERIX_TOOLS_DEMO_DEMO_H_
#define ORBPERIX_TOOLS_DEMO_DEMO_H_

#include "orbperix/orbperix.h"

// Sessions of each provider kind; the manager is initialised when they are called. Each
// returns false on any unexpected result.
bool RunInputSession(OrbPerix::PERIXProviderManager& manager);
bool RunSourceSession(OrbPerix::PERIXProviderManager& manager);
bool RunSinkSession(OrbPerix::PERIXProviderManager& manager);

#endif  // ORBPERIX_TOOLS_DEMO_DEMO_H_
