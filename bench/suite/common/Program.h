#ifndef BENCH_SUITE_COMMON_PROGRAM_H
#define BENCH_SUITE_COMMON_PROGRAM_H

#include <functional>
#include <memory>
#include <string>

#include "common/Amount.h"

namespace suite {

/// A program of the suite: its command line and the peers it was built with. Every program takes
/// `--workload`, `--peer`, `--peers WORKLOAD`, which prints the names of those peers, and
/// `--directory`, where the files of a run go until it has ended.
class Program {
 public:
  explicit Program(const std::string& description);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Adds an option. What it is set to stays when the command line does not have it.
  void option(const char* name, Amount& amount, const char* help);
  void option(const char* name, Budget& budget, const char* help);
  void option(const char* name, double& seconds, const char* help);

  /// Adds an option without a value, which sets `on` to true.
  void flag(const char* name, bool& on, const char* help);

  /// Adds a peer. @param run  measures one round and prints its figures
  void add(const std::string& workload, const std::string& peer, std::function<void()> run);

  /// Adds a line that `--peers` prints on standard error: a peer that is left out, and why.
  void remark(const std::string& line);

  /// Reads the command line and runs the peer that it names, with a new directory for its files.
  /// @return the status of the process
  int main(int argc, char** argv);

 private:
  struct Parts;
  std::unique_ptr<Parts> m_parts;
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_PROGRAM_H
