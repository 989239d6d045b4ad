#pragma once

// QRV_API marks what the shared library (libqrv.so.0, qrv.dll) exports: the C interface and the
// public C++ classes and functions. Everything else in the library is hidden.
//   - The library's own sources are compiled with QRV_BUILDING_LIBRARY (the build does it).
//   - A program that links the static library on Windows defines QRV_STATIC (the CMake target
//     QRV::qrv_static does it for you); one that links qrv.dll defines nothing.
// Usable from C and C++.
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
