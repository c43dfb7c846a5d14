#ifndef TESTS_MODEL_MODELWORLD_H
#define TESTS_MODEL_MODELWORLD_H

#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "QRTCore/QRTThrowable.h"
#include "model/Choices.h"
#include "model/Faults.h"
#include "model/History.h"
#include "model/ModelStore.h"
#include "support/FailingNew.h"

namespace model {

/// The library and its model do not agree.
class Mismatch : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How a call ended.
enum class Ended { kWell, kOutOfMemory, kAssert, kIllegalState };

/// What is known of a call that was tried.
struct Attempt {
  Ended ended = Ended::kWell;
  bool faulted = false;  ///< whether something was made to fail meanwhile, or the disk is full
  bool memoryFaulted = false;  ///< whether it was refused memory
  std::string text;            ///< of the error

  bool well() const { return ended == Ended::kWell; }
};

/// What a call may do besides failing because of a fault.
enum class May {
  kNothing,
  kRaise,  ///< raise an error without a fault: the caller asks for it
  kLeak    ///< free one object in vain, as a free may without memory
};

/// What the areas of one run share.
struct ModelWorld {
  ModelWorld(Choices& from, const tcmalloc::EngineOptions& options,
             const std::optional<std::string>& directory, const Faults::Kinds& kinds)
      : choices(from), store(options, directory), faults(kinds, store) {}

  QRTVirtualMemoryMgr& manager() { return store.manager(); }

  /// Ends the run unless `holds`.
  template <typename... Parts>
  void require(bool holds, const Parts&... parts) const {
    if (!holds) {
      std::ostringstream os;
      (os << ... << parts);
      throw Mismatch(os.str());
    }
  }

  /// Makes a call of the library, which fails only if a fault was injected, and then with an error
  /// that is documented.
  template <class Call>
  Attempt attempt(Call&& call, May may = May::kNothing) {
    Attempt result;
    const std::uint64_t faultsBefore = faults.injected();
    const std::size_t refused = faults.takeMemoryFault();
    std::size_t asked = 0;
    const auto fail = [&](Ended ended, const char* text) {
      result.ended = ended;
      result.text = text != nullptr ? text : "";
    };
    try {
      // What the call asks for is counted, and refused, until it has returned or raised an error.
      const Refusal refusal(refused, asked);
      call();
    } catch (const QRTOutOfMemoryError& error) {
      fail(Ended::kOutOfMemory, error.getText());
    } catch (const QRTAssertError& error) {
      fail(Ended::kAssert, error.getText());
    } catch (const QRTIllegalStateError& error) {
      fail(Ended::kIllegalState, error.getText());
    } catch (const std::bad_alloc&) {
      fail(Ended::kOutOfMemory, "std::bad_alloc");
    }
    result.memoryFaulted = refused != 0 && asked >= refused;
    if (result.memoryFaulted) {
      faults.noteMemoryFault();
      leaks += may == May::kLeak ? 1 : 0;
    }
    result.faulted = faults.injected() != faultsBefore || faults.diskIsShort();
    failedCalls += result.well() ? 0 : 1;
    require(result.well() || result.faulted || may == May::kRaise,
            "a call failed although nothing was made to fail: ", result.text, "; ",
            manager().getLastStoreError());
    return result;
  }

  /// Whether an object is an area's.
  bool isOwned(std::uint64_t offset) const { return owners && owners(offset); }

  Choices& choices;
  std::function<bool(std::uint64_t)> owners;  // asks the areas
  bool hidesObjects = false;  // whether there are objects that no area is asked about
  History history;
  ModelStore store;
  Faults faults;
  std::uint64_t leaks = 0;        // objects at most that could not be freed
  std::uint64_t failedCalls = 0;  // calls that raised an error

 private:
  // Refuses memory, and tells how often it was asked for.
  class Refusal {
   public:
    Refusal(std::size_t nth, std::size_t& asked) : m_failing(nth), m_asked(asked) {}
    ~Refusal() { m_asked = m_failing.count(); }
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

   private:
    FailingNew m_failing;
    std::size_t& m_asked;
  };
};

}  // namespace model

#endif  // TESTS_MODEL_MODELWORLD_H
