// Memory checkers look into the allocators: each fault that MemoryFaults.cpp commits must be
// reported, and its correct run must not.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

namespace {

struct Run {
  int exitCode = -1;
  std::string output;
};

Run runFault(const std::string& prefix, const std::string& fault) {
  Run run;
  const std::string command = prefix + " " + fault + " 2>&1";
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  char buffer[4096];
  while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) {
    run.output.append(buffer, got);
  }
  const int status = pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

struct Fault {
  const char* arguments;  // fault and allocator
  const char* asan;       // what AddressSanitizer reports; null where it cannot see
  const char* valgrind;   // what Valgrind reports; null where it cannot see
};

constexpr char kFreeAlready[] = "is free already";

// The 8-byte allocators' own blocks are user-poisoned memory to AddressSanitizer; large blocks of
// the arena are blocks of the heap, which it knows itself. Elements that nothing points to any more
// are beyond it: it counts heap blocks, and theirs is in use.
const Fault kFaults[] = {
    {"overflow fixed", "use-after-poison", "Invalid write of size 1"},
    {"overflow bins", "use-after-poison", "Invalid write of size 1"},
    {"overflow pool", "use-after-poison", "Invalid write of size 1"},
    {"overflow-resized pool", "use-after-poison", "Invalid write of size 1"},
    {"overflow large", "heap-buffer-overflow", "Invalid write of size 1"},
    {"use-after-free fixed", "use-after-poison", "Invalid read of size 1"},
    {"use-after-free plain", "use-after-poison", "Invalid read of size 1"},
    {"use-after-free bins", "use-after-poison", "Invalid read of size 1"},
    {"use-after-free pool", "use-after-poison", "Invalid read of size 1"},
    {"use-after-free large", "heap-use-after-free", "Invalid read of size 1"},
    {"double-free fixed", kFreeAlready, kFreeAlready},
    {"double-free bins", kFreeAlready, kFreeAlready},
    {"double-free pool", "not a block", "not a block"},
    {"double-free plain", "use-after-poison", "Invalid free"},
    {"use-after-end fixed", "heap-use-after-free", "Invalid read of size 1"},
    {"use-after-end plain", "heap-use-after-free", "Invalid read of size 1"},
    {"use-after-end bins", "heap-use-after-free", "Invalid read of size 1"},
    {"use-after-end pool", "heap-use-after-free", "Invalid read of size 1"},
    {"leaked-element fixed", nullptr, "blocks are definitely lost"},
    {"leaked-element plain", nullptr, "blocks are definitely lost"},
    {"leaked-element bins", nullptr, "blocks are definitely lost"},
    {"leaked-element pool", nullptr, "blocks are definitely lost"},
    {"leaked-element large", nullptr, "blocks are definitely lost"},
    {"leaked-allocator fixed", "detected memory leaks", "definitely lost"},
    {"leaked-allocator bins", "detected memory leaks", "definitely lost"},
    {"leaked-allocator pool", "detected memory leaks", "definitely lost"},
    {"none fixed", "", ""},
    {"none plain", "", ""},
    {"none bins", "", ""},
    {"none pool", "", ""},
    {"none large", "", ""},
};

void expectReport(const std::string& prefix, const Fault& fault, const char* expected) {
  const Run run = runFault(prefix, fault.arguments);
  if (*expected == '\0') {
    EXPECT_EQ(run.exitCode, 0) << run.output;
    return;
  }
  EXPECT_NE(run.exitCode, 0) << run.output;
  EXPECT_NE(run.output.find(expected), std::string::npos) << run.output;
}

std::vector<Fault> visibleTo(const char* Fault::*report) {
  std::vector<Fault> faults;
  std::copy_if(std::begin(kFaults), std::end(kFaults), std::back_inserter(faults),
               [report](const Fault& fault) { return fault.*report != nullptr; });
  return faults;
}

std::string nameOf(const testing::TestParamInfo<Fault>& fault) {
  std::string name = fault.param.arguments;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c < 'a' || c > 'z'; }, '_');
  return name;
}

class AddressSanitizer : public testing::TestWithParam<Fault> {};

TEST_P(AddressSanitizer, Reports) {
  expectReport(std::string("ASAN_OPTIONS=detect_leaks=1 ") + QRT_FAULTS_ASAN, GetParam(),
               GetParam().asan);
}

INSTANTIATE_TEST_SUITE_P(Faults, AddressSanitizer, testing::ValuesIn(visibleTo(&Fault::asan)),
                         nameOf);

#if defined(QRT_VALGRIND)

class Valgrind : public testing::TestWithParam<Fault> {};

TEST_P(Valgrind, Reports) {
  expectReport(std::string(QRT_VALGRIND) +
                   " -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite " +
                   QRT_FAULTS,
               GetParam(), GetParam().valgrind);
}

INSTANTIATE_TEST_SUITE_P(Faults, Valgrind, testing::ValuesIn(visibleTo(&Fault::valgrind)), nameOf);

#endif

}  // namespace
