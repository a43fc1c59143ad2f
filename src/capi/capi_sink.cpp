// The C interface of the sink provider: each function one call on ISinkProvider.
#include "capi/capi_common.h"

using namespace OrbPerix;
using namespace OrbPerix::capi;

namespace {

// Sink operations that take a device record: the copy, written once.
template <typename Op>
int WithDevice(uint64_t h, const char* scope, const orbperix_device_info* device, Op&& op) {
    return WithObject<ISinkProvider>(h, scope, [&](ISinkProvider& p) {
        PERIXInfo info;
        return op(p, DeviceInfoOf(device, &info));
    });
}

}  // namespace

extern "C" {

int orbperix_sink_init(orbperix_sink_handle provider) {
    return WithObject<ISinkProvider>(provider, ORBPERIX_C_SCOPE(orbperix_sink_init),
                                     [](ISinkProvider& p) { return p.Init(); });
}

int orbperix_sink_deinit(orbperix_sink_handle provider) {
    return WithObject<ISinkProvider>(provider, ORBPERIX_C_SCOPE(orbperix_sink_deinit),
                                     [](ISinkProvider& p) {
                                         p.DeInit();
                                         return 0;
                                     });
}

int orbperix_sink_connect_device(orbperix_sink_handle provider,
                                 const orbperix_device_info* device) {
    const char* scope = ORBPERIX_C_SCOPE(orbperix_sink_connect_device);
    return WithDevice(provider, scope, device, [scope](ISinkProvider& p, PERIXInfo* info) {
        // The C++ operation would start the engine's service with a null record: the wrapper
        // refuses it first (the engine reads the record).
        if (info == nullptr) {
            return Fail(scope, ORBPERIX_C_INVALID_ARGUMENT, "device is null");
        }
        return p.ConnectDevice(info);
    });
}

int orbperix_sink_create_mesh_provider(orbperix_sink_handle provider,
                                       const orbperix_device_info* device) {
    return WithDevice(provider, ORBPERIX_C_SCOPE(orbperix_sink_create_mesh_provider), device,
                      [](ISinkProvider& p, PERIXInfo* info) { return p.CreateMeshProvider(info); });
}

int orbperix_sink_disconnect_device(orbperix_sink_handle provider,
                                    const orbperix_device_info* device, void* arg) {
    return WithDevice(provider, ORBPERIX_C_SCOPE(orbperix_sink_disconnect_device), device,
                      [arg](ISinkProvider& p, PERIXInfo* info) {
                          return p.DisconnectDevice(info, arg);
                      });
}

int orbperix_sink_get_connection_status(orbperix_sink_handle provider) {
    return WithObject<ISinkProvider>(provider,
                                     ORBPERIX_C_SCOPE(orbperix_sink_get_connection_status),
                                     [](ISinkProvider& p) { return p.GetConnectionStatus(); });
}

int orbperix_sink_register_engine_callback(orbperix_sink_handle provider, uint32_t type,
                                           void* callback) {
    return WithObject<ISinkProvider>(
        provider, ORBPERIX_C_SCOPE(orbperix_sink_register_engine_callback),
        [=](ISinkProvider& p) { return p.RegisterEngineCallback(type, callback); });
}

int orbperix_sink_send_by_handler(orbperix_sink_handle provider, void* a, void* b, void* c) {
    return WithObject<ISinkProvider>(provider, ORBPERIX_C_SCOPE(orbperix_sink_send_by_handler),
                                     [=](ISinkProvider& p) { return p.SendByHandler(a, b, c); });
}

}  // extern "C"
