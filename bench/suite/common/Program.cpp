#include "common/Program.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

#include "common/Figure.h"

namespace suite {

struct Program::Parts {
  struct Peer {
    std::string workload;
    std::string name;
    std::function<void()> run;
  };
  CLI::App command;
  std::vector<Peer> peers;
  std::string workload;
  std::string peer;
  std::string listed;  // the workload whose peers to print
};

Program::Program(const std::string& description) : m_parts(std::make_unique<Parts>()) {
  CLI::App& command = m_parts->command;
  command.description(description);
  command.add_option("--workload", m_parts->workload, "what to do");
  command.add_option("--peer", m_parts->peer, "who does it");
  command.add_option("--peers", m_parts->listed, "prints who can do this workload");
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

void Program::add(const std::string& workload, const std::string& peer, std::function<void()> run) {
  m_parts->peers.push_back({workload, peer, std::move(run)});
}

int Program::main(int argc, char** argv) {
  CLI11_PARSE(m_parts->command, argc, argv);
  for (const Parts::Peer& peer : m_parts->peers) {
    if (peer.workload == m_parts->listed) {
      std::printf("%s\n", peer.name.c_str());
    }
  }
  if (!m_parts->listed.empty()) {
    return 0;
  }
  for (const Parts::Peer& peer : m_parts->peers) {
    if (peer.workload == m_parts->workload && peer.name == m_parts->peer) {
      try {
        peer.run();
      } catch (const std::exception& error) {
        fail(peer.name + ": " + error.what());
      }
      return 0;
    }
  }
  fail("No peer \"" + m_parts->peer + "\" for workload \"" + m_parts->workload + "\" here");
}

}  // namespace suite
