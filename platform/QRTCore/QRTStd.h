#ifndef QRTCORE_QRTSTD_H
#define QRTCORE_QRTSTD_H

#include <cstddef>

/// @file
/// QRTStd is where exported classes take the containers that they hold from: QRTStd::vector is
/// std::vector, and so on. A host may be compiled with _GLIBCXX_DEBUG, for which libstdc++ makes
/// std::vector, std::list, std::map and their like checked classes of other sizes. The ordinary
/// ones have another name there, and under that name they keep the sizes and offsets of exported
/// classes the same, whichever of library and host is built that way.

#if defined(_GLIBCXX_DEBUG) && defined(__GLIBCXX__)
namespace QRTStd = std::__cxx1998;
#else
namespace QRTStd = std;
#endif

#endif  // QRTCORE_QRTSTD_H
