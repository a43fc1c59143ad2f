// The demo host: runs OrbPerixProvider against the simulated engine and shows each step.
#ifndef ORBPERIX_TOOLS_DEMO_DEMO_H_
#define ORBPERIX_TOOLS_DEMO_DEMO_H_

#include "orbperix/orbperix.h"

// Prints one readable line for a step and its result.
void DemoStep(const char* what, int result);
// Prints an indented detail line under the current step.
void DemoDetail(const char* format, ...);

// Sessions of each provider kind; the manager is initialised when they are called. Each
// returns false on any unexpected result.
bool RunInputSession(OrbPerix::PERIXProviderManager& manager);
bool RunSourceSession(OrbPerix::PERIXProviderManager& manager);
bool RunSinkSession(OrbPerix::PERIXProviderManager& manager);

#endif  // ORBPERIX_TOOLS_DEMO_DEMO_H_
