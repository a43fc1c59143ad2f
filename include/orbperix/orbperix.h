// OrbPerixProvider: everything a host uses.
//
// Start with OrbPerix::PERIXProviderManager::GetInstance(): Initialize the engine, create
// providers, work with peers through them, destroy them and Finalize. See each header for
// ownership and threading.
#ifndef ORBPERIX_ORBPERIX_H_
#define ORBPERIX_ORBPERIX_H_

#include "orbperix/cast.h"
#include "orbperix/engine_tables.h"
#include "orbperix/export.h"
#include "orbperix/large_integer.h"
#include "orbperix/manager.h"
#include "orbperix/providers.h"
#include "orbperix/records.h"
#include "orbperix/remote_ctrl_event.h"
#include "orbperix/remote_event.h"

#endif  // ORBPERIX_ORBPERIX_H_
