// NoDestructor<T>: the library's one way to hold process-wide state that must outlive exit.
//
// The object is built in static storage on first use (under the language's thread-safe
// initialisation of function-local statics) and never destroyed. Engine threads, the heartbeat
// thread and host code running from other modules' exit handlers may still reach such state
// while this module's statics are being destroyed; a never-destroyed object stays valid for
// them. Building it allocates nothing beyond what T's own constructor allocates, so first use
// cannot fail for lack of memory unless T's constructor can.
//
// Usage, always as a function-local static:
//     Thing& TheThing() { static NoDestructor<Thing> thing; return *thing; }
#ifndef ORBPERIX_SRC_UTIL_NO_DESTRUCTOR_H_
#define ORBPERIX_SRC_UTIL_NO_DESTRUCTOR_H_

#include <new>
#include <type_traits>
#include <utility>

namespace OrbPerix {

template <typename T>
class NoDestructor {
public:
    template <typename... Args>
    explicit NoDestructor(Args&&... args) {
        new (storage_) T(std::forward<Args>(args)...);
    }
    // Never runs T's destructor: see the comment at the top.
    ~NoDestructor() = default;
    NoDestructor(const NoDestructor&) = delete;
    NoDestructor& operator=(const NoDestructor&) = delete;

    T* get() noexcept { return std::launder(reinterpret_cast<T*>(storage_)); }
    T& operator*() noexcept { return *get(); }
    T* operator->() noexcept { return get(); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_UTIL_NO_DESTRUCTOR_H_
