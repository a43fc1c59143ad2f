/* The C test's reference: the same remote-control events posted through the C++ interface, so
 * that the test can compare what the peer received from both paths. Built from C++; callable
 * from C. */
#ifndef ORBPERIX_TESTS_C_CPP_REFERENCE_H_
#define ORBPERIX_TESTS_C_CPP_REFERENCE_H_

#include "orbperix/orbperix_c.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Creates the C++ input provider used for posting (the manager must be initialised). 0 on
 * success. */
int capi_ref_open(void);
/* Posts a whole copy of `event` through IInputProvider::PostRemoteCtrlEvent to (device_id,
 * service_id); the C++ result (-1 without a provider or event). */
int capi_ref_post(const orbperix_remote_event* event, const char* device_id, const char* service_id);
/* Destroys the C++ provider. */
void capi_ref_close(void);

/* Makes the casting stand-in hand out a recording session from now on (on = 0: none). */
void capi_ref_cast_session(int on);
/* What the recording session saw: calls of each operation (0 RegisterListener .. 8 Release),
 * the last device id and protocol type, and whether a listener is held. */
int capi_ref_cast_calls(int operation);
const char* capi_ref_cast_last_device(void);
unsigned capi_ref_cast_last_protocol(void);
/* Fires the held session listener's event callback (returns -1 when none is held). */
int capi_ref_cast_fire(int code, const char* detail);
/* Makes the casting stand-in call the service listener that Init received (-1 when none). */
int capi_ref_cast_service_died(void);

#ifdef __cplusplus
}
#endif

#endif /* ORBPERIX_TESTS_C_CPP_REFERENCE_H_ */
