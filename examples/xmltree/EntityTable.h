#ifndef EXAMPLES_XMLTREE_ENTITYTABLE_H
#define EXAMPLES_XMLTREE_ENTITYTABLE_H

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ParserMemory.h"

namespace example {

/// The entities that a document declares, and which others each of them refers to. A parser that
/// has not read every declaration drops references in attribute values that it does not know,
/// without a word; this tells which ones it knows.
///
/// An entity is named by its mark, '&' or '%' for a parameter entity, and its name: "&copy". Memory
/// counts as the parsers'.
class EntityTable {
 public:
  /// Notes a declaration. Of several the first one holds.
  /// @param mark        '&' or '%'
  /// @param text        what the entity stands for; empty when it is external
  /// @param isExternal  whether it stands in another file
  void declare(char mark, std::string_view name, std::string_view text, bool isExternal);

  /// Looks for a reference that leads nowhere, in a text or in the entities that it refers to.
  /// Parameter entities that are external lead nowhere as well: they are not read.
  /// @param text   markup in UTF-8
  /// @param marks  the kinds of references to follow: "&", "%" or "&%"
  /// @return the entity with its mark; empty when all is known
  std::string firstUnknown(std::string_view text, std::string_view marks);

 private:
  using Text = std::basic_string<char, std::char_traits<char>, parser_memory::Allocator<char>>;
  using Names = std::vector<Text, parser_memory::Allocator<Text>>;

  struct Entity {
    Names references;         // entities that its text names, with their marks
    bool isExternal = false;  // whether it stands in another file
    bool isChecked = false;   // whether all that it leads to is known
  };
  using Entities =
      std::map<Text, Entity, std::less<>, parser_memory::Allocator<std::pair<const Text, Entity>>>;

  static Names referencesIn(std::string_view text, std::string_view marks);

  Entities m_entities;  // by mark and name
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_ENTITYTABLE_H
