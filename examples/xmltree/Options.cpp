#include "Options.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "ByteSize.h"
#include "CheckedBy.h"
#include "ParserMemory.h"

namespace example {

namespace {

constexpr const char* kDescription =
    "Keeps XML documents of any size as trees in a store that holds only the budget in memory.\n";

constexpr const char* kFooter =
    "\nExamples:\n"
    "  xmltree load --verify /usr/share/unicode/cldr   every .xml file there, compared afterwards\n"
    "  xmltree find \"//territory[@type='DE']\" de.xml   all elements of that name and attribute\n"
    "  xmltree find \"/ldml/identity/*[2]\" de.xml       the second child of each identity\n"
    "  xmltree outline --depth 4 de.xml                the upper levels as a picture\n"
    "  xmltree export -o copy.xml de.xml               write a document back\n"
    "  xmltree check de.xml copy.xml                   do both say the same?\n"
    "  xmltree edit --remove \"//territory[1]\" -o less.xml de.xml\n"
    "  xmltree edit --append /ldml --xml \"<note>hello</note>\" de.xml\n"
    "\nPaths: /name a child, //name a descendant, * any element, text() a text, [@name='value'] "
    "and\n"
    "[@name] an attribute, [3] the third match of its parent. Names are compared as written.\n"
    "\nThe paging file goes to the directory that TMPDIR names, else to /tmp.\n"
    "\nExit status: 0 all went well, 1 a file could not be loaded, compared or written, differs,\n"
    "or nothing was found, 2 wrong arguments.";

constexpr int kWrongArguments = 2;

/// Reads sizes as texts and makes numbers of them once the command line is known to be right.
struct SizeTexts {
  std::string budget = "16M";
  std::string parserMemory = std::to_string(parser_memory::kDefaultLimit >> 20) + "M";
};

CLI::App* addCommand(CLI::App& app, Options& options, SizeTexts& sizes, Command command,
                     const char* name, const char* description) {
  CLI::App* const sub = app.add_subcommand(name, description);
  sub->callback([&options, command] { options.command = command; });
  sub->add_option("--budget", sizes.budget, "Memory the store may use: bytes, or with K, M or G")
      ->check(checkedBy(parseBudget))
      ->capture_default_str();
  sub->add_option("--parser-memory", sizes.parserMemory, "Memory the XML parser may use")
      ->check(checkedBy(parseByteSize))
      ->capture_default_str();
  return sub;
}

void addInputs(CLI::App* sub, Options& options) {
  sub->add_option("files", options.inputs, "XML files, and directories with .xml files")
      ->required();
}

void addOutput(CLI::App* sub, Options& options) {
  sub->add_option("-o,--output", options.output,
                  "File to write to; for several documents a directory; else standard output");
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  SizeTexts sizes;
  CLI::App app(kDescription, "xmltree");
  app.footer(kFooter);
  app.require_subcommand(1);

  CLI::App* sub =
      addCommand(app, options, sizes, Command::eLoad, "load", "Load documents and tell figures");
  sub->add_flag(
      "--verify", options.verify,
      "Compare every stored document with its file, parsed once more: tells what storing or "
      "writing changes, not what the parser itself misses");
  sub->add_option("--repeat", options.repeat, "Load every file so many times")
      ->check(CLI::Range(1, 1'000'000))
      ->capture_default_str();
  addInputs(sub, options);

  sub = addCommand(app, options, sizes, Command::eFind, "find", "Print what a path leads to");
  sub->add_option("path", options.path, "The path, see below")->required();
  sub->add_option("--limit", options.limit, "Matches to print, 0 for all")->capture_default_str();
  addInputs(sub, options);

  sub = addCommand(app, options, sizes, Command::eExport, "export", "Write documents back");
  addOutput(sub, options);
  addInputs(sub, options);

  sub = addCommand(app, options, sizes, Command::eEdit, "edit",
                   "Remove, move, append, in this order; then write");
  sub->add_option("--remove", options.remove, "Remove all that these paths lead to");
  CLI::Option* const move =
      sub->add_option("--move", options.move, "Move all that a path leads to");
  CLI::Option* const to = sub->add_option("--to", options.to, "... behind the children of this");
  CLI::Option* const append =
      sub->add_option("--append", options.append, "Append to all of a path");
  CLI::Option* const xml = sub->add_option("--xml", options.xml, "... this element");
  move->needs(to);
  to->needs(move);
  append->needs(xml);
  xml->needs(append);
  addOutput(sub, options);
  addInputs(sub, options);

  sub = addCommand(app, options, sizes, Command::eOutline, "outline", "Draw the upper levels");
  sub->add_option("--depth", options.depth, "Levels to draw")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  sub->add_option("--children", options.children, "Children to draw of each node")
      ->check(CLI::Range(1, 1'000'000))
      ->capture_default_str();
  addInputs(sub, options);

  sub = addCommand(app, options, sizes, Command::eCheck, "check",
                   "Compare two documents by their content");
  addInputs(sub, options);
  sub->get_option("files")->expected(2);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error) == 0 ? 0 : kWrongArguments;
    return std::nullopt;
  }
  options.budget = parseBudget(sizes.budget);
  options.parserMemory = parseByteSize(sizes.parserMemory);
  return options;
}

}  // namespace example
