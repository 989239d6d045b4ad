#pragma once

// QRV_API marks what the shared library exports: the C interface and the public C++ classes and
// functions. Everything else in the library is hidden. A program that links the static library
// on Windows defines QRV_STATIC (the CMake target does it for you).
#if defined(QRV_STATIC)
#define QRV_API
#elif defined(_WIN32)
#if defined(QRV_BUILDING_LIBRARY)
#define QRV_API __declspec(dllexport)
#else
#define QRV_API __declspec(dllimport)
#endif
#else
#define QRV_API __attribute__((visibility("default")))
#endif
