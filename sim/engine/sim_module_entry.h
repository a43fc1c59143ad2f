/* Entry points of the simulated engine's core library (libperixsim) that only the thin engine
 * module (liborbperix, sim/module) calls. Not part of the control interface.
 *
 * The module holds no state and no slot logic: its getters ask the core whether to fill a table,
 * and every slot it hands out is a trampoline of its own that forwards to the core's table of the
 * same layout. So when the library unloads the module, a table entry it kept points into
 * unmapped code, as with a real engine. */
#ifndef PERIX_SIM_MODULE_ENTRY_H_
#define PERIX_SIM_MODULE_ENTRY_H_

#include "perix_sim.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records a getter call of `table` (PERIX_SIM_MAIN...) and gives the getter's result: 0 means
 * "fill the table", anything else is returned to the caller as it is. */
PERIX_SIM_API int perix_sim_module_getter(int table, const void* out);

/* The core's own implementation of each table; the module's trampolines call through them. */
PERIX_SIM_API const OrbPERIXHandler* perix_sim_module_main_table(void);
PERIX_SIM_API const ButtonHandlerSource* perix_sim_module_button_table(void);
PERIX_SIM_API const AudioHandlerSource* perix_sim_module_audio_table(void);
PERIX_SIM_API const RefreshHandlerSource* perix_sim_module_refresh_table(void);

/* Called by a static object of the module as the module is mapped (`address`: any address
 * inside it, from which the core finds its path) and as it is unmapped. */
PERIX_SIM_API void perix_sim_module_attached(const void* address);
PERIX_SIM_API void perix_sim_module_detached(void);

#ifdef __cplusplus
}
#endif

#endif /* PERIX_SIM_MODULE_ENTRY_H_ */
