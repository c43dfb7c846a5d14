#ifndef TESTS_MODEL_FAULTS_H
#define TESTS_MODEL_FAULTS_H

#include <cstddef>
#include <cstdint>

#include "model/Choices.h"
#include "model/ModelStore.h"

namespace model {

/// Makes what the library stands on fail, now and then: transfers of the paging files, the disk's
/// room, requests for memory.
class Faults {
 public:
  /// What may fail in a run.
  struct Kinds {
    bool transfers = false;  ///< reads and writes of a scripted paging file, and its disk's room
    bool memory = false;     ///< operator new
    bool disk = false;       ///< a real disk that fills up by itself
  };

  Faults(const Kinds& kinds, ModelStore& store);

  /// Decides what is to fail from here on. Called before each step.
  void draw(Choices& choices);

  /// Ends all faults until the next `draw`.
  void mend();

  /// The request for memory that the next call is to be refused, from 1; 0 for none.
  std::size_t takeMemoryFault();
  void noteMemoryFault() { ++m_memoryFaults; }

  /// Faults injected so far, and how many of them were refused memory.
  std::uint64_t injected() const;
  std::uint64_t ofMemory() const { return m_memoryFaults; }

  /// Whether calls may fail without a fault that is counted: a disk is full.
  bool diskIsShort() const { return m_kinds.disk || m_diskIsShort; }

 private:
  const Kinds m_kinds;
  ModelStore& m_store;
  std::size_t m_memoryFault = 0;     // request to refuse in the next call; 0 for none
  std::uint64_t m_memoryFaults = 0;  // requests refused
  bool m_diskIsShort = false;        // whether a scripted disk has a bound now
};

}  // namespace model

#endif  // TESTS_MODEL_FAULTS_H
