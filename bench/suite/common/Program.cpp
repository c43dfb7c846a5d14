#include "common/Program.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <utility>
#include <vector>

#include "common/Figure.h"
#include "common/ScratchDirectory.h"

namespace suite {

struct Program::Parts {
  struct Peer {
    std::string workload;
    std::string name;
    std::function<void()> run;
  };

  void list() const {
    bool found = false;
    for (const Peer& candidate : peers) {
      if (candidate.workload == listed) {
        std::printf("%s\n", candidate.name.c_str());
        found = true;
      }
    }
    if (!found) {
      fail("No peer for workload \"" + listed + "\" here");
    }
    for (const std::string& line : remarks) {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
  }

  CLI::App command;
  std::vector<Peer> peers;
  std::vector<std::string> remarks;
  std::string workload;
  std::string peer;
  std::string listed;     // the workload whose peers to print
  std::string directory;  // empty for where temporary files go
};

Program::Program(const std::string& description) : m_parts(std::make_unique<Parts>()) {
  CLI::App& command = m_parts->command;
  command.description(description);
  command.add_option("--workload", m_parts->workload, "what to do");
  command.add_option("--peer", m_parts->peer, "who does it");
  command.add_option("--peers", m_parts->listed, "prints who can do this workload");
  command
      .add_option("--directory", m_parts->directory,
                  "where files go until the end, instead of $TMPDIR or /tmp")
      ->check(CLI::ExistingDirectory);
}

Program::~Program() = default;

void Program::option(const char* name, Amount& amount, const char* help) {
  m_parts->command
      .add_option_function<std::string>(
          name, [&amount](const std::string& text) { amount = Amount(text); }, help)
      ->default_str(amount.text);
}

void Program::option(const char* name, Budget& budget, const char* help) {
  m_parts->command.add_option_function<std::string>(
      name, [&budget](const std::string& text) { budget = Budget(text); }, help);
}

void Program::option(const char* name, double& seconds, const char* help) {
  m_parts->command.add_option(name, seconds, help)
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber);
}

void Program::flag(const char* name, bool& on, const char* help) {
  m_parts->command.add_flag(name, on, help);
}

void Program::add(const std::string& workload, const std::string& peer, std::function<void()> run) {
  m_parts->peers.push_back({workload, peer, std::move(run)});
}

void Program::remark(const std::string& line) {
  m_parts->remarks.push_back(line);
}

int Program::main(int argc, char** argv) {
  CLI11_PARSE(m_parts->command, argc, argv);
  if (!m_parts->listed.empty()) {
    m_parts->list();
    return 0;
  }
  for (const Parts::Peer& peer : m_parts->peers) {
    if (peer.workload == m_parts->workload && peer.name == m_parts->peer) {
      try {
        const ScratchDirectory scratch(m_parts->directory.empty()
                                           ? std::filesystem::temp_directory_path()
                                           : std::filesystem::path(m_parts->directory));
        peer.run();
        return 0;
      } catch (const std::exception& error) {
        fail(peer.name + ": " + error.what());
      }
    }
  }
  fail("No peer \"" + m_parts->peer + "\" for workload \"" + m_parts->workload + "\" here");
}

}  // namespace suite
