#ifndef EXAMPLES_XMLTREE_OPTIONS_H
#define EXAMPLES_XMLTREE_OPTIONS_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace example {

/// What the program is to do with the documents once they are loaded.
enum class Command { eLoad, eFind, eExport, eEdit, eOutline, eCheck };

/// What the user asked for.
struct Options {
  Command command = Command::eLoad;
  std::vector<std::string> inputs;  ///< files and directories
  unsigned int budget = 16U << 20;  ///< the store's memory budget in bytes
  std::size_t parserMemory = 0;     ///< most bytes the parser may use
  unsigned int repeat = 1;          ///< times every file is loaded
  bool verify = false;              ///< load: compare what is stored with the files
  std::string path;                 ///< find, outline, edit: what to look for
  std::size_t limit = 20;           ///< find: matches to print
  unsigned int depth = 3;           ///< outline: levels to show
  unsigned int children = 5;        ///< outline: children to show of each node
  std::string output;               ///< export, edit: file or directory; empty for the output
  std::vector<std::string> remove;  ///< edit: paths of what to remove
  std::string move;                 ///< edit: path of what to move
  std::string append;               ///< edit: path of where to append a fragment
  std::string to;                   ///< edit: path of where to move it
  std::string xml;                  ///< edit: the fragment
};

/// Reads the command line; writes help or an error message itself.
/// @param exitCode  receives the code to end with when there is nothing to run
/// @return the options, or nothing when the program is to end
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace example

#endif  // EXAMPLES_XMLTREE_OPTIONS_H
