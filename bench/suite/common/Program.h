#ifndef BENCH_SUITE_COMMON_PROGRAM_H
#define BENCH_SUITE_COMMON_PROGRAM_H

#include <functional>
#include <memory>
#include <string>

#include "common/Amount.h"

namespace suite {

/// A program of the suite: its command line and the peers it was built with. Every program takes
/// `--workload`, `--peer` and `--peers WORKLOAD`, which prints the names of those peers.
class Program {
 public:
  explicit Program(const std::string& description);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Adds an option. What it is set to stays when the command line does not have it.
  void option(const char* name, Amount& amount, const char* help);
  void option(const char* name, Budget& budget, const char* help);

  /// Adds a peer. @param run  measures one round and prints its figures
  void add(const std::string& workload, const std::string& peer, std::function<void()> run);

  /// Reads the command line and runs the peer that it names. @return the status of the process
  int main(int argc, char** argv);

 private:
  struct Parts;
  std::unique_ptr<Parts> m_parts;
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_PROGRAM_H
