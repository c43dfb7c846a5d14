#ifndef BENCH_SUITE_FILES_FILEWORK_H
#define BENCH_SUITE_FILES_FILEWORK_H

#include "common/Amount.h"
#include "common/Program.h"

struct FileOptions {
  suite::Amount bytes{"1G"};        // of a scratch file
  suite::Amount accesses{"4e5"};    // random ones
  suite::Amount pageBytes{"8192"};  // of a virtual file
  suite::Amount textBytes{"64M"};   // to compress
};

void addScratchPeers(suite::Program& program, const FileOptions& options);
void addGzipPeers(suite::Program& program, const FileOptions& options);

#endif  // BENCH_SUITE_FILES_FILEWORK_H
