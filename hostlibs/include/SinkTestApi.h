/* Test interface of the log-sink stand-ins (CorvusUtil, TraceKit).
 *
 * Each stand-in keeps the newest lines it receives in memory (10,000 unless set otherwise; the
 * oldest are dropped and counted): their level and their text as UTF-8. Lines are numbered from
 * the last clear; a dropped line keeps its number.
 * Tests and tools read and clear them through these C functions (usable from C, C++ and
 * ctypes). All functions are safe to call from any thread. Not part of the host
 * installation's real libraries. */
#ifndef HOSTLIBS_SINK_TEST_API_H_
#define HOSTLIBS_SINK_TEST_API_H_

#if defined(_WIN32)
#define SINK_TEST_EXPORT __declspec(dllexport)
#define SINK_TEST_IMPORT __declspec(dllimport)
#else
#define SINK_TEST_EXPORT __attribute__((visibility("default")))
#define SINK_TEST_IMPORT __attribute__((visibility("default")))
#endif

#if defined(CORVUSUTIL_COMPILING)
#define CORVUS_TEST_API SINK_TEST_EXPORT
#else
#define CORVUS_TEST_API SINK_TEST_IMPORT
#endif
#if defined(TRACEKIT_COMPILING)
#define TRACEKIT_TEST_API SINK_TEST_EXPORT
#else
#define TRACEKIT_TEST_API SINK_TEST_IMPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Number of lines received since the last clear (kept and dropped). */
CORVUS_TEST_API int corvus_test_line_count(void);
/* Copies line `index` (0 = the first since the last clear): its level into *level (may be null)
 * and its text, cut to capacity - 1 bytes and NUL-terminated, into text (may be null). Returns
 * the full text length in bytes, or -1 for an index out of range or a dropped line. */
CORVUS_TEST_API int corvus_test_line(int index, int* level, char* text, int capacity);
/* Forgets every line, the numbering and the dropped count. */
CORVUS_TEST_API void corvus_test_clear(void);
/* Non-zero: also print each line to stderr as it arrives. */
CORVUS_TEST_API void corvus_test_set_echo(int on);
/* Lines dropped since the last clear because more than the capacity arrived. */
CORVUS_TEST_API int corvus_test_dropped_lines(void);
/* How many lines to keep (at least 1); older lines beyond it are dropped at once. */
CORVUS_TEST_API void corvus_test_set_capacity(int lines);
/* How many Logger objects have been constructed in this process, and the tag of the last. */
CORVUS_TEST_API int corvus_test_logger_constructions(void);
CORVUS_TEST_API int corvus_test_last_tag(char* text, int capacity);

TRACEKIT_TEST_API int tracekit_test_line_count(void);
TRACEKIT_TEST_API int tracekit_test_line(int index, int* level, char* text, int capacity);
TRACEKIT_TEST_API void tracekit_test_clear(void);
TRACEKIT_TEST_API void tracekit_test_set_echo(int on);
TRACEKIT_TEST_API int tracekit_test_dropped_lines(void);
TRACEKIT_TEST_API void tracekit_test_set_capacity(int lines);

#ifdef __cplusplus
}
#endif

#endif /* HOSTLIBS_SINK_TEST_API_H_ */
