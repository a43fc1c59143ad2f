#include "orbperix/remote_event.h"

#include <new>
#include <system_error>

#include "log/log.h"
#include "remote/remote_controller.h"
#include "util/result.h"

namespace RemoteUtil {

namespace {

constexpr const char* kInstanceScope = "RemoteUtil::RemoteEvent::GetInstance";
constexpr const char* kSendScope = "RemoteUtil::RemoteEvent::SendRemoteCtrlEvent";

// The process-wide sender. Both objects are constant-initialised (no constructor runs at load)
// and the instance is never deleted, so a host thread that sends during unload cannot meet a
// destroyed sender.
std::atomic<RemoteEvent*> g_instance{nullptr};
// Serialises the first creation so that concurrent first callers share one instance.
std::mutex g_instanceMutex;

}  // namespace

// The sender's size is part of what hosts see through the exported class: the atomic must
// stay a plain pointer in size.
static_assert(sizeof(std::atomic<RemoteController*>) == sizeof(RemoteController*),
              "remoteController keeps the size of a pointer");

RemoteEvent::RemoteEvent() : remoteController(nullptr) {}

RemoteEvent::~RemoteEvent() {
    delete remoteController.exchange(nullptr);
}

RemoteEvent* RemoteEvent::GetInstance() {
    RemoteEvent* instance = g_instance.load(std::memory_order_acquire);
    if (instance != nullptr) {
        return instance;
    }
    try {
        std::lock_guard<std::mutex> lock(g_instanceMutex);
        instance = g_instance.load(std::memory_order_relaxed);
        if (instance == nullptr) {
            instance = new (std::nothrow) RemoteEvent();
            g_instance.store(instance, std::memory_order_release);
        }
    } catch (const std::system_error& error) {
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kInstanceScope,
                             "GetInstance, lock failed with code ", error.code().value());
        return nullptr;
    }
    if (instance == nullptr) {
        // Left null, so that a later call tries the allocation again.
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kInstanceScope, "new RemoteEvent failed");
    }
    return instance;
}

int RemoteEvent::SendRemoteCtrlEvent(RemoteCtrlEvent* event, unsigned char* buffer,
                                     unsigned char capacity, LARGE_INTEGER start,
                                     LARGE_INTEGER frequency) {
    if (event == nullptr || buffer == nullptr) {
        OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kSendScope, "SendRemoteCtrlEvent event is nullptr");
        return OrbPerix::kEncodeFailed;
    }
    // Once published the controller never changes, so senders after the first skip the mutex.
    RemoteController* controller = remoteController.load(std::memory_order_acquire);
    if (controller == nullptr) {
        try {
            std::lock_guard<std::mutex> lock(mutex);
            controller = remoteController.load(std::memory_order_relaxed);
            if (controller == nullptr) {
                controller = new (std::nothrow) RemoteController();
                remoteController.store(controller, std::memory_order_release);
            }
        } catch (const std::system_error& error) {
            OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kSendScope,
                                 "SendRemoteCtrlEvent, lock failed with code ",
                                 error.code().value());
            return OrbPerix::kEncodeFailed;
        }
        if (controller == nullptr) {
            OrbPerix::log::Trace(LOG_MESSAGE_ERROR, kSendScope,
                                 "SendRemoteCtrlEvent: new remoteController failed");
            return OrbPerix::kEncodeFailed;
        }
    }
    return controller->ConstructRemoteCtrlPacket(event, buffer, capacity, start, frequency);
}

}  // namespace RemoteUtil
