#ifndef QRTCORE_QRTEXPORT_H
#define QRTCORE_QRTEXPORT_H

/// @file
/// QRT_EXPORT marks what the shared library shows to its hosts; everything else stays hidden.
/// QRT_BUILDING_LIBRARY is defined while the library itself is compiled, QRT_STATIC_LIBRARY for
/// hosts of a static one; the build systems' packages set it.

#if defined(_WIN32) && defined(QRT_STATIC_LIBRARY)
#define QRT_EXPORT
#elif defined(_WIN32)
#if defined(QRT_BUILDING_LIBRARY)
#define QRT_EXPORT __declspec(dllexport)
#else
#define QRT_EXPORT __declspec(dllimport)
#endif
#else
#define QRT_EXPORT __attribute__((visibility("default")))
#endif

#endif  // QRTCORE_QRTEXPORT_H
