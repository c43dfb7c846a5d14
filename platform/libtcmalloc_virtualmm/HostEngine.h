#ifndef LIBTCMALLOC_VIRTUALMM_HOSTENGINE_H
#define LIBTCMALLOC_VIRTUALMM_HOSTENGINE_H

#include <memory>

namespace tcmalloc {

class Engine;

/// Makes the engine behind a VirtualMemoryPool. It has a source of its own so that a test program
/// can put another set-up, over other files, under everything that is built on the pool.
/// The arguments are those of VirtualMemoryPool, and so is what it throws.
std::unique_ptr<Engine> MakeHostEngine(unsigned int memorySize, const char* directory,
                                       bool encrypted);

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_HOSTENGINE_H
