// The few operating-system calls of the library, one implementation file per platform
// (platform_windows.cpp, platform_posix.cpp). Nothing outside this folder knows which
// platform it runs on.
//
// All functions are safe to call from any thread.
#ifndef ORBPERIX_SRC_PLATFORM_PLATFORM_H_
#define ORBPERIX_SRC_PLATFORM_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#if defined(__linux__)
#include <time.h>

#include <atomic>
#endif

// A branch hint for the compilers that take one; others read the plain condition.
#if defined(__GNUC__) || defined(__clang__)
#define ORBPERIX_UNLIKELY(condition) __builtin_expect(!!(condition), 0)
#else
#define ORBPERIX_UNLIKELY(condition) (condition)
#endif

// A function kept out of its callers and laid apart as rarely run (failure lines on hot paths),
// and one always inlined into them (a hot path's own step).
#if defined(__GNUC__) || defined(__clang__)
#define ORBPERIX_COLD [[gnu::cold, gnu::noinline]]
#define ORBPERIX_ALWAYS_INLINE [[gnu::always_inline]] inline
#elif defined(_MSC_VER)
#define ORBPERIX_COLD __declspec(noinline)
#define ORBPERIX_ALWAYS_INLINE __forceinline
#else
#define ORBPERIX_COLD
#define ORBPERIX_ALWAYS_INLINE inline
#endif

// Thread-local storage of a trivial type defined in one file and read inline from others: the
// GNU form skips the check for a dynamic initialiser that `thread_local` makes on every such read.
#if defined(__GNUC__) || defined(__clang__)
#define ORBPERIX_TRIVIAL_THREAD_LOCAL __thread
#else
#define ORBPERIX_TRIVIAL_THREAD_LOCAL thread_local
#endif

namespace OrbPerix {
namespace platform {

// Opaque handle of a loaded module (HMODULE on Windows, dlopen handle elsewhere).
using ModuleHandle = void*;
// What a symbol lookup yields; callers cast it to the real function type.
using ProcAddress = void (*)(void);

// The file name of the PERIX engine library on this platform.
const char* EngineModuleFileName();

// The step of loading a module beside the executable that failed. The manager turns each
// into its own log line; every platform maps its errors onto the same steps.
enum class LoadStep {
    kLoaded,          // success
    kModuleFileName,  // the executable's path could not be read
    kRemoveFileSpec,  // the directory could not be cut from that path
    kPathAppend,      // the file name could not be appended
    kLoadLibrary,     // the module is missing there or could not be loaded
};

// Loads `fileName` from the directory of the running executable (never from the search
// path). On kLoaded *module holds the handle; otherwise it is left untouched.
LoadStep LoadModuleBesideExecutable(const char* fileName, ModuleHandle* module);

// Loads the module a host named (UTF-8): `location` is the module's file, or a folder in which
// `fileName` is loaded. A relative location is taken from the current directory; the search
// path is never consulted. Steps as above (kPathAppend: the joined path is too long).
LoadStep LoadModuleFrom(const char* location, const char* fileName, ModuleHandle* module);

// The system's reason why the last module load on this thread failed (dlerror / the Windows
// error text of GetLastError), for the developer log; read it right after the failed load.
// May throw std::bad_alloc.
std::string LastModuleError();

// The value of environment variable `name` as UTF-8; false when it is not set.
// May throw std::bad_alloc.
bool EnvironmentValue(const char* name, std::string* value);

// Resolves an exported symbol; null when the module lacks it or `module` is null.
ProcAddress FindSymbol(ModuleHandle module, const char* name);

// Releases one load of `module`. A null handle is ignored.
void UnloadModule(ModuleHandle module);

// The directory of the running executable as UTF-8, without a trailing separator; empty on
// failure. Used by tools and tests; the loader above works with the platform's own paths.
std::string ExecutableDirectory();

// The high-resolution counter and its frequency in ticks per second
// (Windows: QueryPerformanceCounter/Frequency; elsewhere the monotonic clock in ns and 1e9).
int64_t PerformanceCounter();
int64_t PerformanceFrequency();

// A cheap reading of the same clock as PerformanceCounter, in the same ticks, that runs behind
// it: Linux reads the monotonic clock as of the kernel's last timekeeping update (no counter
// read; about one scheduler tick behind, a few ticks when the kernel skipped ticks on an idle
// processor), calling the kernel's vDSO reader directly; Windows offers no coarse reading on
// the performance counter's time base, so it returns the counter itself. For stamps kept in
// whole milliseconds that nothing compares more finely than tens of milliseconds. On Linux the
// reading changes only once per kernel tick, so a caller that keeps a value derived from it
// can skip the derivation while the reading stands still.
#if defined(__linux__)
namespace detail {
using ClockReader = int (*)(clockid_t, timespec*);
// The vDSO's clock reader (or the C library's clock_gettime where there is none); null until
// the first CoarseCounterSlow resolves it.
extern std::atomic<ClockReader> g_coarseReader;
// Resolves the reader when needed and reads; also the way out when the coarse read fails.
int64_t CoarseCounterSlow() noexcept;
}  // namespace detail
// Inline: it is read on every partial-refresh write.
inline int64_t CoarseCounter() noexcept {
    const detail::ClockReader reader = detail::g_coarseReader.load(std::memory_order_relaxed);
    timespec now;
    if (ORBPERIX_UNLIKELY(reader == nullptr || reader(CLOCK_MONOTONIC_COARSE, &now) != 0)) {
        return detail::CoarseCounterSlow();
    }
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + static_cast<int64_t>(now.tv_nsec);
}
#else
int64_t CoarseCounter() noexcept;
#endif

// True once the process has begun to end (Windows: the loader is shutting down, other threads
// are gone and the loader lock may be held). Teardown then lets threads go instead of joining
// them. Elsewhere exit handlers run with every thread alive, and this stays false.
bool ProcessIsExiting() noexcept;

// An asymmetric memory barrier: once HeavyBarrier returns, every other thread of the process
// has executed a full memory barrier, so their earlier stores are visible to the caller. It
// lets a hot path announce itself with a plain store (no locked instruction) while a rare
// path (Finalize) pays for the ordering. PrepareHeavyBarrier is called once before first use;
// false when the platform offers no such barrier (callers then order both sides themselves).
bool PrepareHeavyBarrier() noexcept;
void HeavyBarrier() noexcept;

// A number naming the calling thread to a person reading a capture or a debugger (the kernel's
// thread id); cheap after the first call on a thread.
uint64_t CurrentThreadId() noexcept;

// Opens `utf8Path` for writing in binary mode, truncating it; null on failure, with the
// system's reason in *reason (when not null).
std::FILE* OpenFileForWriting(const char* utf8Path, std::string* reason) noexcept;

// Suspends the calling thread for about `milliseconds`.
void SleepMilliseconds(uint32_t milliseconds);

// Result codes of BoundedCopy (the C library's EINVAL and ERANGE values).
constexpr int kCopyOk = 0;
constexpr int kCopyNullArgument = 22;
constexpr int kCopyDestinationTooSmall = 34;

// Bounds-checked copy of `count` bytes into a destination of `destSize` bytes. Returns 0, 22 for
// a null destination or a null source with a non-zero count, 34 when count > destSize. On
// failure the destination (when not null) is zeroed over destSize bytes.
int BoundedCopy(void* dest, size_t destSize, const void* src, size_t count);

}  // namespace platform
}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_PLATFORM_PLATFORM_H_
