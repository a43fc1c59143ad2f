// Windows implementation of the platform layer.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <shlwapi.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/platform.h"

namespace OrbPerix {
namespace platform {
namespace {

constexpr DWORD kPathCapacity = MAX_PATH;  // 260 wide characters, as the engine's loader expects

// Clears `path` and fills it with the running executable's path (not this library's).
bool ReadExecutablePath(wchar_t (&path)[kPathCapacity]) {
    std::memset(path, 0, sizeof(path));
    return GetModuleFileNameW(nullptr, path, kPathCapacity) != 0;
}

std::wstring WideFromUtf8(const char* text) {
    const int needed = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    if (needed <= 0) {
        return std::wstring();
    }
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, -1, &wide[0], needed);
    wide.resize(static_cast<size_t>(needed - 1));
    return wide;
}

std::string Utf8FromWide(const wchar_t* text) {
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) {
        return std::string();
    }
    std::string narrow(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &narrow[0], needed, nullptr, nullptr);
    narrow.resize(static_cast<size_t>(needed - 1));
    return narrow;
}

}  // namespace

const char* EngineModuleFileName() {
    return "liborbperix.dll";
}

LoadStep LoadModuleBesideExecutable(const char* fileName, ModuleHandle* module) {
    wchar_t path[kPathCapacity];
    if (!ReadExecutablePath(path)) {
        return LoadStep::kModuleFileName;
    }
    if (!PathRemoveFileSpecW(path)) {
        return LoadStep::kRemoveFileSpec;
    }
    const std::wstring wideName = WideFromUtf8(fileName);
    if (wideName.empty() || !PathAppendW(path, wideName.c_str())) {
        return LoadStep::kPathAppend;
    }
    HMODULE handle = LoadLibraryW(path);
    if (handle == nullptr) {
        return LoadStep::kLoadLibrary;
    }
    *module = reinterpret_cast<ModuleHandle>(handle);
    return LoadStep::kLoaded;
}

LoadStep LoadModuleFrom(const char* location, const char* fileName, ModuleHandle* module) {
    const std::wstring wideLocation = WideFromUtf8(location);
    const std::wstring wideName = WideFromUtf8(fileName);
    // The full path: a relative location is taken from the current directory, never from the
    // DLL search path.
    wchar_t path[kPathCapacity] = {};
    const DWORD length = GetFullPathNameW(wideLocation.c_str(), kPathCapacity, path, nullptr);
    if (wideLocation.empty() || length == 0 || length >= kPathCapacity) {
        return LoadStep::kPathAppend;
    }
    const DWORD attributes = GetFileAttributesW(path);
    const bool folder = attributes != INVALID_FILE_ATTRIBUTES &&
                        (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (folder && (wideName.empty() || !PathAppendW(path, wideName.c_str()))) {
        return LoadStep::kPathAppend;
    }
    HMODULE handle = LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (handle == nullptr) {
        return LoadStep::kLoadLibrary;
    }
    *module = reinterpret_cast<ModuleHandle>(handle);
    return LoadStep::kLoaded;
}

bool EnvironmentValue(const char* name, std::string* value) {
    const std::wstring wideName = WideFromUtf8(name);
    const DWORD needed = GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
    if (needed == 0) {
        return false;
    }
    std::wstring wide(needed, L'\0');
    const DWORD written = GetEnvironmentVariableW(wideName.c_str(), &wide[0], needed);
    if (written == 0 || written >= needed) {
        return false;
    }
    wide.resize(written);
    *value = Utf8FromWide(wide.c_str());
    return true;
}

ProcAddress FindSymbol(ModuleHandle module, const char* name) {
    if (module == nullptr) {
        return nullptr;
    }
    // Through a generic function pointer type: a direct cast trips -Wcast-function-type.
    FARPROC proc = GetProcAddress(reinterpret_cast<HMODULE>(module), name);
    return reinterpret_cast<ProcAddress>(proc);
}

void UnloadModule(ModuleHandle module) {
    if (module != nullptr) {
        FreeLibrary(reinterpret_cast<HMODULE>(module));
    }
}

std::string ExecutableDirectory() {
    wchar_t path[kPathCapacity];
    if (!ReadExecutablePath(path) || !PathRemoveFileSpecW(path)) {
        return std::string();
    }
    return Utf8FromWide(path);
}

int64_t PerformanceCounter() {
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return counter.QuadPart;
}

int64_t PerformanceFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

// The tick count and interrupt time run on other time bases than the performance counter, so
// the counter itself is the coarse reading here (it is a user-mode read on current systems).
int64_t CoarseCounter() noexcept {
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return counter.QuadPart;
}

// FlushProcessWriteBuffers would serve, but wine's is not known to order anything, and the
// Windows build is tested under wine: callers use locked instructions on Windows.
bool PrepareHeavyBarrier() noexcept { return false; }
void HeavyBarrier() noexcept {}

bool ProcessIsExiting() noexcept {
    // ntdll's own answer; looked up once (ntdll is always loaded, and never unloaded).
    using ShutdownInProgressFn = BOOLEAN(WINAPI*)(void);
    static const ShutdownInProgressFn shutdownInProgress = [] {
        HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        FARPROC proc =
            ntdll != nullptr ? GetProcAddress(ntdll, "RtlDllShutdownInProgress") : nullptr;
        return reinterpret_cast<ShutdownInProgressFn>(reinterpret_cast<void (*)(void)>(proc));
    }();
    return shutdownInProgress != nullptr && shutdownInProgress() != FALSE;
}

uint64_t CurrentThreadId() noexcept { return GetCurrentThreadId(); }

std::FILE* OpenFileForWriting(const char* utf8Path, std::string* reason) noexcept {
    std::FILE* file = nullptr;
    const int wide = utf8Path != nullptr
                         ? MultiByteToWideChar(CP_UTF8, 0, utf8Path, -1, nullptr, 0)
                         : 0;
    wchar_t* path = wide > 0 ? new (std::nothrow) wchar_t[static_cast<size_t>(wide)] : nullptr;
    if (path != nullptr && MultiByteToWideChar(CP_UTF8, 0, utf8Path, -1, path, wide) == wide) {
        file = _wfopen(path, L"wb");
    }
    delete[] path;
    if (file == nullptr && reason != nullptr) {
        try {
            *reason = wide <= 0 ? "not a UTF-8 path" : std::strerror(errno);
        } catch (...) {
        }
    }
    return file;
}

void SleepMilliseconds(uint32_t milliseconds) {
    Sleep(milliseconds);
}

std::string LastModuleError() {
    const DWORD code = GetLastError();
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string reason;
    if (length != 0 && text != nullptr) {
        std::wstring wide(text, length);
        while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r' ||
                                 wide.back() == L' ' || wide.back() == L'.')) {
            wide.pop_back();
        }
        reason = Utf8FromWide(wide.c_str());
    }
    if (text != nullptr) {
        LocalFree(text);
    }
    return reason + (reason.empty() ? "" : " ") + "(error " + std::to_string(code) + ")";
}

}  // namespace platform
}  // namespace OrbPerix
