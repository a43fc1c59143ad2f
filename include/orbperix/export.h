// Export macro of OrbPerixProvider.
//
// ORBPERIX_API marks what the library exports: dllexport while the library itself is
// compiled (ORBPERIX_COMPILING), dllimport for a host that links the DLL (ORBPERIX_SHARED),
// nothing for a static use of the sources. On Linux the library is compiled with
// -fvisibility=hidden and ORBPERIX_API restores default visibility for the interface.
#ifndef ORBPERIX_EXPORT_H_
#define ORBPERIX_EXPORT_H_

#if !defined(ORBPERIX_API)

#if defined(ORBPERIX_COMPILING) && defined(ORBPERIX_USING_STATIC)
#error "ORBPERIX_COMPILING and ORBPERIX_USING_STATIC exclude each other"
#endif

#if defined(_WIN32)
#if defined(ORBPERIX_COMPILING)
#define ORBPERIX_API __declspec(dllexport)
#elif defined(ORBPERIX_USING_STATIC)
#define ORBPERIX_API
#else
#define ORBPERIX_API __declspec(dllimport)
#endif
#else
#define ORBPERIX_API __attribute__((visibility("default")))
#endif

#endif  // !defined(ORBPERIX_API)

// The C functions of the library use the platform's C calling convention.
#if defined(__cplusplus)
#define ORBPERIX_EXTERN_C extern "C"
#else
#define ORBPERIX_EXTERN_C
#endif

#endif  // ORBPERIX_EXPORT_H_
