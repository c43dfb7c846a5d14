#include "common/Figure.h"

#include <cstdio>
#include <cstdlib>

namespace suite {

void print(const Figure& figure) {
  const auto text = [](std::string_view view) { return std::string(view); };
  std::printf(R"({"workload": "%s", "peer": "%s", "variant": "%s", "size": "%s", "unit": "%s", )"
              R"("value": %.6g})"
              "\n",
              text(figure.workload).c_str(), text(figure.peer).c_str(),
              text(figure.variant).c_str(), text(figure.size).c_str(), text(figure.unit).c_str(),
              figure.value);
  std::fflush(stdout);
}

void fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::exit(EXIT_FAILURE);
}

}  // namespace suite
