#include "EntityTable.h"

#include <array>
#include <set>
#include <utility>

namespace example {

namespace {

/// What ends a name, or cannot be part of a reference.
constexpr std::string_view kNoName = " \t\r\n&%;<>\"'#";

bool isPredefined(std::string_view reference) {
  constexpr std::array<std::string_view, 5> kNames{"&lt", "&gt", "&amp", "&apos", "&quot"};
  for (const std::string_view name : kNames) {
    if (reference == name) {
      return true;
    }
  }
  return false;
}

}  // namespace

void EntityTable::declare(char mark, std::string_view name, std::string_view text,
                          bool isExternal) {
  Text key(1, mark);
  key.append(name);
  const auto [place, isNew] = m_entities.try_emplace(std::move(key));
  if (isNew) {
    place->second.references = referencesIn(text, mark == '%' ? "&%" : "&");
    place->second.isExternal = isExternal;
  }
}

EntityTable::Names EntityTable::referencesIn(std::string_view text, std::string_view marks) {
  Names names;
  for (std::size_t at = text.find_first_of(marks); at != std::string_view::npos;
       at = text.find_first_of(marks, at + 1)) {
    const std::size_t end = text.find_first_of(kNoName, at + 1);
    if (end == std::string_view::npos) {
      break;
    }
    const std::string_view reference = text.substr(at, end - at);
    if (text[end] == ';' && reference.size() > 1 && !isPredefined(reference)) {
      names.emplace_back(reference);
    }
  }
  return names;
}

// Each entity is looked at once for a text, and only once at all when nothing but '&' is followed:
// what is known stays known.
std::string EntityTable::firstUnknown(std::string_view text, std::string_view marks) {
  Names pending = referencesIn(text, marks);
  const bool remembers = marks == "&";
  std::set<Text, std::less<>, parser_memory::Allocator<Text>> seen;
  while (!pending.empty()) {
    const Text name = std::move(pending.back());
    pending.pop_back();
    const bool isFollowed = marks.find(name.front()) != std::string_view::npos;
    if (!isFollowed || !seen.insert(name).second) {
      continue;
    }
    const auto found = m_entities.find(name);
    if (found == m_entities.end() || (name.front() == '%' && found->second.isExternal)) {
      return std::string(name);
    }
    Entity& entity = found->second;
    if (!entity.isChecked) {
      entity.isChecked = remembers;
      pending.insert(pending.end(), entity.references.begin(), entity.references.end());
    }
  }
  return {};
}

}  // namespace example
