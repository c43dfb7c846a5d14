#ifndef TESTS_FAULTS_FAULTPLAN_H
#define TESTS_FAULTS_FAULTPLAN_H

#include <array>
#include <cstddef>
#include <cstdint>

/// The calls that can fail, by what is asked: the heap, the system's memory for pages, the paging
/// file, the page table's file.
enum class Site : std::uint8_t {
  eHeap,
  ePageMemory,
  eOpen,
  eRead,
  eWrite,
  eReserve,
  eDiscard,
  eTruncate,
  eTableOpen,
  eTableRead,
  eTableWrite,
  eCount
};

/// How calls of one site go wrong. The first `halved` of them move half of what they should, the
/// `failing` ones behind those fail, and all that follow work again.
struct FaultMode {
  static constexpr std::size_t kAll = SIZE_MAX;
  static constexpr int kNoByte = -1;  ///< in the place of an error: success, without a byte moved

  Site site;
  const char* name;
  int error;            ///< errno value of the calls that fail, or kNoByte
  std::size_t failing;  ///< how many fail
  std::size_t halved;   ///< how many transfers before them are cut short
  bool isMadeUpFor;     ///< whether the library has to make up for it: nothing fails
};

/// Counts the calls of every site while it is armed, and lets some of one site fail. There is one
/// plan for the program.
class FaultPlan {
 public:
  /// What is to become of one call.
  struct Fate {
    int error = 0;      // errno value, or FaultMode::kNoByte; 0 when it works
    bool half = false;  // whether it moves half of what it should
  };
  using Counts = std::array<std::size_t, static_cast<std::size_t>(Site::eCount)>;

  static FaultPlan& get();

  /// Counts from 0 again, and lets calls fail from the `nth` one of the mode's site on.
  /// @param mode  null when nothing is to fail
  void begin(const FaultMode* mode, std::size_t nth);

  /// Nothing fails any more.
  void end() { m_mode = nullptr; }

  const Counts& counts() const { return m_counts; }
  std::size_t hits() const { return m_hits; }  ///< calls that went wrong

  /// To be asked by every call of a site.
  Fate next(Site site);

  /// Calls count and fail while one of these lives, unless a Pause lives, too.
  class Armed {
   public:
    Armed() { ++get().m_armed; }
    ~Armed() { --get().m_armed; }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
  };
  class Pause {
   public:
    Pause() { ++get().m_paused; }
    ~Pause() { --get().m_paused; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

 private:
  Counts m_counts{};
  const FaultMode* m_mode = nullptr;
  std::size_t m_nth = 0;
  std::size_t m_hits = 0;
  int m_armed = 0;
  int m_paused = 0;
};

#endif  // TESTS_FAULTS_FAULTPLAN_H
