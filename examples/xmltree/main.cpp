#include <exception>
#include <iostream>
#include <optional>

#include "ExitStatus.h"
#include "Options.h"
#include "XmlTreeRun.h"

/// XML documents far larger than memory, as trees of stored nodes.
int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    const std::optional<example::Options> options = example::parseOptions(argc, argv, exitCode);
    return example::exitStatus("xmltree", options ? example::XmlTreeRun(*options).run() : exitCode);
  } catch (const std::exception& error) {
    std::cerr << "xmltree: " << error.what() << '\n';
    return 1;
  }
}
