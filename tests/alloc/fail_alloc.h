// Allocation-failure injection for the library's own code (Linux test executable only).
//
// The executable replaces the global operator new/new[] (throwing, nothrow, aligned forms) and
// the matching deletes. An allocation is the library's when the code that asked for it runs in
// libOrbPerixProvider's text segment: the caller's return address lies there, or the caller is
// out-of-line libstdc++ code (std::string growth, string streams, std::thread) called from the
// library, which the stack walk finds as the first frame outside libstdc++. Allocations made
// by the test itself, the simulated engine, the sink and cast stand-ins (even inside a call
// the library makes to them) and libstdc++ on their behalf are not counted. Allocations made
// while the library is loaded (static constants, before main) are not counted either:
// counting starts with Enable. Memory taken with malloc rather than operator new is not seen
// (the library takes none).
//
// Counted allocations are numbered 1, 2, ... across all threads; when armed with N, the N-th
// fails (nullptr from the nothrow forms, std::bad_alloc from the others) and every other one
// succeeds. Each block carries a small header, so the bytes of library allocations still live
// can be tracked (a cheap leak check that needs no sanitizer).
#ifndef ORBPERIX_TESTS_ALLOC_FAIL_ALLOC_H_
#define ORBPERIX_TESTS_ALLOC_FAIL_ALLOC_H_

#include <cstddef>
#include <cstdint>

namespace failalloc {

// Finds the text segments of the library and of libstdc++ (after the library is loaded).
// False when the library is not mapped.
bool Locate();

// Counting on or off (off: allocations are plain and unnumbered).
void Enable(bool on);
// From now on fail the `n`-th counted allocation (0: fail none); resets the numbering.
void Arm(uint64_t n);
// Counted allocations since the last Arm.
uint64_t Count();
// Counted allocations since the last Arm made on threads other than the scenario's.
uint64_t BackgroundCount();

// The calling thread runs the scenario (its allocations are "foreground").
void MarkScenarioThread();
// The scenario step now running; recorded with the failure.
void SetStep(int step);

struct Failure {
    bool happened = false;
    int step = -1;                 // the scenario's step at that moment
    bool onScenarioThread = false;
    size_t size = 0;
};
Failure LastFailure();

// The size of the n-th counted allocation since the last Arm (0 when not recorded).
size_t SizeOf(uint64_t n);
// The step that was running, and whether the scenario's thread made it.
int StepOf(uint64_t n);
bool ForegroundAt(uint64_t n);

// Bytes of library allocations not yet freed.
int64_t LiveLibraryBytes();

namespace detail {
void* New(size_t size, size_t alignment, bool nothrow, void* caller);
void Delete(void* pointer) noexcept;
}  // namespace detail

}  // namespace failalloc

#endif  // ORBPERIX_TESTS_ALLOC_FAIL_ALLOC_H_
