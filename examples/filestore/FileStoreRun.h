#ifndef EXAMPLES_FILESTORE_FILESTORERUN_H
#define EXAMPLES_FILESTORE_FILESTORERUN_H

#include <cstdint>
#include <random>
#include <vector>

#include "DirectoryWalk.h"
#include "FileCatalogue.h"
#include "FileStore.h"
#include "Options.h"
#include "UpdatePattern.h"
#include "Verifier.h"

namespace example {

/// The whole job: find, store, verify, update, verify, report.
class FileStoreRun {
 public:
  explicit FileStoreRun(const Options& options);

  /// Runs the job and writes its report.
  /// @return the program's exit status
  int run();

 private:
  void findFiles();
  void storeFiles();
  void verifyObjects(const UpdatePattern* updates);
  void updateObjects(const UpdatePattern& pattern);
  void printProblems() const;
  void printTable();
  std::uint64_t mismatches() const;
  bool storeFailed();
  void shuffleOrder();

  const Options m_options;
  QRTVirtualMemoryMgr m_manager;       // the store
  DirectoryWalk m_walk;                // finds the files
  FileCatalogue m_catalogue;           // which files there are
  FileStore m_store;                   // which objects they became
  Verifier m_verifier;                 // compares the two
  std::mt19937_64 m_random;            // decides the orders
  std::vector<std::uint32_t> m_order;  // the objects' numbers, in the order to visit them
  std::uint64_t m_updated = 0;         // objects updated
  bool m_full = false;                 // whether the store refused an object
};

}  // namespace example

#endif  // EXAMPLES_FILESTORE_FILESTORERUN_H
