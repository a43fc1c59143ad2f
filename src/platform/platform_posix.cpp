// Linux implementation of the platform layer.
#include <dlfcn.h>
#include <sys/stat.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <limits.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace OrbPerix {
namespace platform {
namespace {

constexpr size_t kPathCapacity = 4096;

// The running executable's path (/proc/self/exe), NUL-terminated; false when unreadable.
bool ReadExecutablePath(char (&path)[kPathCapacity]) {
    std::memset(path, 0, sizeof(path));
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return length > 0;
}

// Cuts the file name off `path`, keeping the directory (as PathRemoveFileSpec does).
bool RemoveFileName(char* path) {
    char* slash = std::strrchr(path, '/');
    if (slash == nullptr) {
        return false;
    }
    slash[slash == path ? 1 : 0] = '\0';
    return true;
}

bool AppendFileName(char (&path)[kPathCapacity], const char* fileName) {
    const size_t used = std::strlen(path);
    const size_t extra = std::strlen(fileName);
    const bool needSeparator = used > 0 && path[used - 1] != '/';
    if (used + (needSeparator ? 1 : 0) + extra + 1 > kPathCapacity) {
        return false;
    }
    if (needSeparator) {
        path[used] = '/';
    }
    std::memcpy(path + used + (needSeparator ? 1 : 0), fileName, extra + 1);
    return true;
}

}  // namespace

const char* EngineModuleFileName() {
    return "liborbperix.so";
}

LoadStep LoadModuleBesideExecutable(const char* fileName, ModuleHandle* module) {
    char path[kPathCapacity];
    if (!ReadExecutablePath(path)) {
        return LoadStep::kModuleFileName;
    }
    if (!RemoveFileName(path)) {
        return LoadStep::kRemoveFileSpec;
    }
    if (!AppendFileName(path, fileName)) {
        return LoadStep::kPathAppend;
    }
    // An absolute path: the search path is never consulted.
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return LoadStep::kLoadLibrary;
    }
    *module = handle;
    return LoadStep::kLoaded;
}

LoadStep LoadModuleFrom(const char* location, const char* fileName, ModuleHandle* module) {
    char path[kPathCapacity] = {};
    struct stat info {};
    const bool folder = stat(location, &info) == 0 && S_ISDIR(info.st_mode);
    // A name without a slash would send dlopen to the search path: anchor it here.
    if (std::strchr(location, '/') == nullptr && !AppendFileName(path, ".")) {
        return LoadStep::kPathAppend;
    }
    if (!AppendFileName(path, location) || (folder && !AppendFileName(path, fileName))) {
        return LoadStep::kPathAppend;
    }
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return LoadStep::kLoadLibrary;
    }
    *module = handle;
    return LoadStep::kLoaded;
}

bool EnvironmentValue(const char* name, std::string* value) {
    const char* text = std::getenv(name);
    if (text == nullptr) {
        return false;
    }
    value->assign(text);
    return true;
}

ProcAddress FindSymbol(ModuleHandle module, const char* name) {
    if (module == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<ProcAddress>(dlsym(module, name));
}

void UnloadModule(ModuleHandle module) {
    if (module != nullptr) {
        dlclose(module);
    }
}

std::string ExecutableDirectory() {
    char path[kPathCapacity];
    if (!ReadExecutablePath(path) || !RemoveFileName(path)) {
        return std::string();
    }
    return std::string(path);
}

namespace {
int64_t Nanoseconds(const timespec& time) noexcept {
    return static_cast<int64_t>(time.tv_sec) * 1000000000LL + static_cast<int64_t>(time.tv_nsec);
}
}  // namespace

int64_t PerformanceCounter() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Nanoseconds(now);
}

int64_t PerformanceFrequency() {
    return 1000000000LL;
}

namespace {

// The kernel's own clock reader in the vDSO, called directly: the C library's clock_gettime
// only dispatches to it, and on the refresh write path that dispatch costs about as much as the
// coarse read itself. The C library's function where the vDSO or the symbol is missing (other
// architectures name it differently).
detail::ClockReader ResolveClockReader() noexcept {
    detail::ClockReader reader = &clock_gettime;
    if (void* vdso = dlopen("linux-vdso.so.1", RTLD_LAZY | RTLD_NOLOAD)) {
        if (void* symbol = dlsym(vdso, "__vdso_clock_gettime")) {
            reader = reinterpret_cast<detail::ClockReader>(symbol);
        }
        dlclose(vdso);  // the vDSO stays mapped for the life of the process
    }
    return reader;
}

}  // namespace

namespace detail {

// Two threads that race here resolve the same address.
std::atomic<ClockReader> g_coarseReader{nullptr};

int64_t CoarseCounterSlow() noexcept {
    ClockReader reader = g_coarseReader.load(std::memory_order_relaxed);
    if (reader == nullptr) {
        reader = ResolveClockReader();
        g_coarseReader.store(reader, std::memory_order_relaxed);
    }
    timespec now{};
    if (reader(CLOCK_MONOTONIC_COARSE, &now) != 0) {
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
    return Nanoseconds(now);
}

}  // namespace detail

bool ProcessIsExiting() noexcept { return false; }

bool PrepareHeavyBarrier() noexcept {
    // The expedited form interrupts only this process's running threads (microseconds); it
    // must be registered once. Kernels or sandboxes without it make callers use locked
    // instructions instead.
    const long supported = syscall(__NR_membarrier, MEMBARRIER_CMD_QUERY, 0, 0);
    if (supported < 0 || (supported & MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0) {
        return false;
    }
    return syscall(__NR_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

void HeavyBarrier() noexcept {
    syscall(__NR_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
}

uint64_t CurrentThreadId() noexcept {
    thread_local uint64_t id = static_cast<uint64_t>(syscall(SYS_gettid));
    return id;
}

std::FILE* OpenFileForWriting(const char* utf8Path, std::string* reason) noexcept {
    std::FILE* file = utf8Path != nullptr ? std::fopen(utf8Path, "wb") : nullptr;
    if (file == nullptr && reason != nullptr) {
        try {
            *reason = utf8Path == nullptr ? "no path" : std::strerror(errno);
        } catch (...) {
        }
    }
    return file;
}

void SleepMilliseconds(uint32_t milliseconds) {
    timespec delay{};
    delay.tv_sec = static_cast<time_t>(milliseconds / 1000U);
    delay.tv_nsec = static_cast<long>(milliseconds % 1000U) * 1000000L;
    while (nanosleep(&delay, &delay) != 0 && errno == EINTR) {
    }
}

std::string LastModuleError() {
    const char* reason = dlerror();
    return reason != nullptr ? std::string(reason) : std::string("no reason given");
}

}  // namespace platform
}  // namespace OrbPerix
