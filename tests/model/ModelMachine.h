#ifndef TESTS_MODEL_MODELMACHINE_H
#define TESTS_MODEL_MODELMACHINE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Choices.h"
#include "model/ModelArea.h"
#include "model/ModelWorld.h"

namespace model {

/// What a run may do; the stream decides within these bounds.
struct RunSettings {
  bool mayFault = true;                  ///< whether transfers and memory may fail
  bool realFiles = true;                 ///< whether some runs page to the temp directory
  std::optional<std::string> directory;  ///< of a small disk that fills up, for a real paging file
  std::uint64_t mostSteps = UINT64_MAX;  ///< after which the run ends, if choices are left
};

/// What runs did.
struct RunCounts {
  std::uint64_t runs = 0;
  std::uint64_t operations = 0;
  std::uint64_t faults = 0;       ///< injected
  std::uint64_t failedCalls = 0;  ///< calls that raised an error because of them

  RunCounts& operator+=(const RunCounts& other);
};

/// Turns a stream of choices into operations on every part of the library at once, in one store,
/// and compares each result with models in ordinary memory. The first choices set the store up: its
/// budget, from one page on, its page size, its paging file, what may fail, the parts that take
/// part.
///
/// Every few hundred steps the engine compares all that it keeps twice, and pins and objects are
/// counted; now and then everything is read. At the end all is given back, and nothing may be left.
class ModelMachine {
 public:
  ModelMachine(Choices& choices, const RunSettings& settings);
  ~ModelMachine();
  ModelMachine(const ModelMachine&) = delete;
  ModelMachine& operator=(const ModelMachine&) = delete;

  /// Runs until the choices are used up.
  /// @return what did not agree, with the step and the last operations; empty when all did
  std::string run();

  RunCounts counts() const;

  /// The set-up in words.
  const std::string& setup() const { return m_setup; }

 private:
  void step();
  void check(bool isOver);
  void comparePins();
  void verify();
  void unpin();
  void end();

  Choices& m_choices;
  const RunSettings m_settings;
  std::string m_setup;
  std::unique_ptr<ModelWorld> m_world;
  std::vector<std::unique_ptr<ModelArea>> m_areas;
};

}  // namespace model

#endif  // TESTS_MODEL_MODELMACHINE_H
