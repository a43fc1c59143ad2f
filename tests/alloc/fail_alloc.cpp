// Replaced global allocation functions; see fail_alloc.h.
#include "fail_alloc.h"

#include <link.h>
#include <unwind.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace failalloc {
namespace {

struct Range {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    bool Has(uintptr_t address) const { return address >= begin && address < end; }
};

// Written once by Locate (before counting starts), read by every allocation.
Range g_library;
Range g_libstdcxx;

std::atomic<bool> g_enabled{false};
std::atomic<uint64_t> g_failAt{0};
std::atomic<uint64_t> g_count{0};
std::atomic<uint64_t> g_background{0};
std::atomic<int> g_step{-1};
std::atomic<int64_t> g_liveLibraryBytes{0};

// The failure of the current arming; written by the failing thread only.
std::atomic<bool> g_failed{false};
std::atomic<int> g_failStep{-1};
std::atomic<bool> g_failOnScenario{false};
std::atomic<size_t> g_failSize{0};

constexpr uint64_t kSizeSlots = 1u << 16;
std::atomic<uint32_t> g_sizes[kSizeSlots];
std::atomic<int32_t> g_steps[kSizeSlots];
std::atomic<bool> g_foreground[kSizeSlots];

thread_local bool t_scenario = false;

// Every block starts with this header, 16 bytes before the pointer handed out (or more for
// over-aligned blocks, whose header sits right before the aligned pointer).
struct alignas(16) Header {
    void* base;
    uint32_t size;
    uint32_t library;
};
static_assert(sizeof(Header) == 16, "header keeps 16-byte alignment");

int FindSegments(dl_phdr_info* info, size_t, void*) {
    const char* name = info->dlpi_name != nullptr ? info->dlpi_name : "";
    Range* target = nullptr;
    if (std::strstr(name, "libOrbPerixProvider.so") != nullptr) {
        target = &g_library;
    } else if (std::strstr(name, "libstdc++.so") != nullptr) {
        target = &g_libstdcxx;
    } else {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
            target->begin = info->dlpi_addr + segment.p_vaddr;
            target->end = target->begin + segment.p_memsz;
        }
    }
    return 0;
}

// Walks outward from the allocation's caller: skips the harness's own frames up to `caller`,
// then libstdc++ frames; the first other frame decides.
struct Walk {
    uintptr_t caller;
    bool reachedCaller = false;
    int frames = 0;
    bool library = false;
};

_Unwind_Reason_Code WalkFrame(_Unwind_Context* context, void* arg) {
    Walk* walk = static_cast<Walk*>(arg);
    const uintptr_t ip = _Unwind_GetIP(context);
    if (++walk->frames > 64) {
        return _URC_END_OF_STACK;
    }
    if (!walk->reachedCaller) {
        walk->reachedCaller = ip == walk->caller;
        if (!walk->reachedCaller) {
            return _URC_NO_REASON;
        }
    }
    if (g_libstdcxx.Has(ip)) {
        return _URC_NO_REASON;
    }
    walk->library = g_library.Has(ip);
    return _URC_END_OF_STACK;
}

bool LibraryCaller(uintptr_t caller) {
    if (g_library.Has(caller)) {
        return true;
    }
    if (!g_libstdcxx.Has(caller)) {
        return false;
    }
    Walk walk{caller};
    _Unwind_Backtrace(&WalkFrame, &walk);
    return walk.library;
}

void* Allocate(size_t size, size_t alignment, bool nothrow, void* caller) {
    bool library = false;
    if (g_enabled.load(std::memory_order_acquire) &&
        LibraryCaller(reinterpret_cast<uintptr_t>(caller))) {
        library = true;
        const uint64_t n = g_count.fetch_add(1) + 1;
        if (n < kSizeSlots) {
            g_sizes[n].store(static_cast<uint32_t>(size), std::memory_order_relaxed);
            g_steps[n].store(g_step.load(), std::memory_order_relaxed);
            g_foreground[n].store(t_scenario, std::memory_order_relaxed);
        }
        const bool fail = n == g_failAt.load();
        if (fail) {
            g_failStep.store(g_step.load());
            g_failOnScenario.store(t_scenario);
            g_failSize.store(size);
            g_failed.store(true);
        }
        // Counted after the failure is recorded: a runner that waits for this count then sees it.
        if (!t_scenario) {
            g_background.fetch_add(1);
        }
        if (fail) {
            if (nothrow) {
                return nullptr;
            }
            throw std::bad_alloc();
        }
    }
    if (alignment < alignof(Header)) {
        alignment = alignof(Header);
    }
    void* base = std::malloc(size + alignment + sizeof(Header));
    if (base == nullptr) {
        if (nothrow) {
            return nullptr;
        }
        throw std::bad_alloc();
    }
    uintptr_t user = (reinterpret_cast<uintptr_t>(base) + sizeof(Header) + alignment - 1) &
                     ~(static_cast<uintptr_t>(alignment) - 1);
    Header* header = reinterpret_cast<Header*>(user) - 1;
    header->base = base;
    header->size = static_cast<uint32_t>(size);
    header->library = library ? 1u : 0u;
    if (library) {
        g_liveLibraryBytes.fetch_add(static_cast<int64_t>(size));
    }
    return reinterpret_cast<void*>(user);
}

void Release(void* pointer) noexcept {
    if (pointer == nullptr) {
        return;
    }
    Header* header = static_cast<Header*>(pointer) - 1;
    if (header->library != 0) {
        g_liveLibraryBytes.fetch_sub(static_cast<int64_t>(header->size));
    }
    std::free(header->base);
}

}  // namespace

bool Locate() {
    dl_iterate_phdr(&FindSegments, nullptr);
    return g_library.begin != 0 && g_libstdcxx.begin != 0;
}

void Enable(bool on) { g_enabled.store(on, std::memory_order_release); }

void Arm(uint64_t n) {
    g_failed.store(false);
    g_failStep.store(-1);
    g_failSize.store(0);
    g_count.store(0);
    g_background.store(0);
    for (auto& size : g_sizes) {
        size.store(0, std::memory_order_relaxed);
    }
    g_failAt.store(n);
}

uint64_t Count() { return g_count.load(); }
uint64_t BackgroundCount() { return g_background.load(); }
void MarkScenarioThread() { t_scenario = true; }
void SetStep(int step) { g_step.store(step); }

Failure LastFailure() {
    Failure failure;
    failure.happened = g_failed.load();
    failure.step = g_failStep.load();
    failure.onScenarioThread = g_failOnScenario.load();
    failure.size = g_failSize.load();
    return failure;
}

namespace detail {
void* New(size_t size, size_t alignment, bool nothrow, void* caller) {
    return Allocate(size, alignment, nothrow, caller);
}
void Delete(void* pointer) noexcept { Release(pointer); }
}  // namespace detail

size_t SizeOf(uint64_t n) { return n < kSizeSlots ? g_sizes[n].load() : 0; }
int StepOf(uint64_t n) { return n < kSizeSlots ? g_steps[n].load() : -1; }
bool ForegroundAt(uint64_t n) { return n < kSizeSlots && g_foreground[n].load(); }

int64_t LiveLibraryBytes() { return g_liveLibraryBytes.load(); }

}  // namespace failalloc

// ---- The replaced allocation functions ----
// Each takes its own return address: that is the code that asked for the memory.

using failalloc::detail::New;
using failalloc::detail::Delete;

namespace {
void* NewNoThrow(size_t n, size_t alignment, void* caller) noexcept {
    try {
        return New(n, alignment, true, caller);
    } catch (...) {
        return nullptr;
    }
}
}  // namespace

#define CALLER __builtin_return_address(0)
#define ALIGN(a) static_cast<size_t>(a)

void* operator new(size_t n) { return New(n, 0, false, CALLER); }
void* operator new[](size_t n) { return New(n, 0, false, CALLER); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return NewNoThrow(n, 0, CALLER); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return NewNoThrow(n, 0, CALLER); }
void* operator new(size_t n, std::align_val_t a) { return New(n, ALIGN(a), false, CALLER); }
void* operator new[](size_t n, std::align_val_t a) { return New(n, ALIGN(a), false, CALLER); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    return NewNoThrow(n, ALIGN(a), CALLER);
}
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    return NewNoThrow(n, ALIGN(a), CALLER);
}

void operator delete(void* p) noexcept { Delete(p); }
void operator delete[](void* p) noexcept { Delete(p); }
void operator delete(void* p, size_t) noexcept { Delete(p); }
void operator delete[](void* p, size_t) noexcept { Delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Delete(p); }
void operator delete(void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { Delete(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { Delete(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { Delete(p); }
