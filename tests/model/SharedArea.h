#ifndef TESTS_MODEL_SHAREDAREA_H
#define TESTS_MODEL_SHAREDAREA_H

#include <list>
#include <map>
#include <string>
#include <utility>

#include "model/ModelArea.h"

namespace model {

/// Equal byte strings that share an object in the manager's page item pool, and the leak check,
/// which makes the pool forget them.
class SharedArea final : public ModelArea {
 public:
  using ModelArea::ModelArea;

  const char* name() const override { return "shared"; }
  void step() override;
  void verify() override;
  void clear() override;
  std::uint64_t objects() const override { return m_objects.size(); }
  bool owns(std::uint64_t offset) const override { return m_objects.count(offset) != 0; }

 private:
  using Entries = std::list<std::pair<std::string, std::uint64_t>>;

  void set();
  void checkForLeaks();
  void freeForgotten();
  Entries::iterator find(const std::string& bytes);

  Entries m_entries;                               // what the pool remembers, last used first
  std::size_t m_bound = 1000;                      // entries that it keeps
  std::map<std::uint64_t, std::string> m_objects;  // every object, remembered or not
};

}  // namespace model

#endif  // TESTS_MODEL_SHAREDAREA_H
