#include "model/ModelMachine.h"

#include <algorithm>
#include <sstream>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmDir.h"
#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "model/ArenaArea.h"
#include "model/FileArea.h"
#include "model/FixedPoolArea.h"
#include "model/MapArea.h"
#include "model/MemoryPoolArea.h"
#include "model/ObjectArea.h"
#include "model/SharedArea.h"
#include "model/StringArea.h"
#include "model/TreeArea.h"
#include "model/VectorArea.h"

namespace model {

namespace {

constexpr std::uint64_t kCheckEvery = 200;   // steps
constexpr std::uint64_t kVerifyEvery = 900;  // steps

std::string tempDirectory() {
  I18NString directory;
  QRTFmDir::getTempPath(directory);
  return QRTFmDir::getNarrowPath(directory);
}

template <class Area>
std::unique_ptr<ModelArea> make(ModelWorld& world) {
  return std::make_unique<Area>(world);
}

constexpr std::unique_ptr<ModelArea> (*kMakers[])(ModelWorld&) = {
    make<ObjectArea>,    make<SharedArea>,     make<TreeArea>,  make<StringArea>, make<FileArea>,
    make<FixedPoolArea>, make<MemoryPoolArea>, make<ArenaArea>, make<VectorArea>, make<MapArea>};

}  // namespace

RunCounts& RunCounts::operator+=(const RunCounts& other) {
  runs += other.runs;
  operations += other.operations;
  faults += other.faults;
  failedCalls += other.failedCalls;
  return *this;
}

ModelMachine::ModelMachine(Choices& choices, const RunSettings& settings)
    : m_choices(choices), m_settings(settings) {
  static constexpr std::uint32_t kFrames[] = {1, 2, 3, 8, 32, 64, 256, 2000};
  static constexpr std::uint32_t kPageSizes[] = {4096, 4096, 8192, 16384};
  tcmalloc::EngineOptions options;
  options.minimumFrames = 1;
  options.budgetBytes = kFrames[choices.below(8)] * std::uint64_t{4096};
  options.pageSize = kPageSizes[choices.below(4)];
  options.tableLeaves = choices.oneIn(3) ? 1 + choices.below(3) : 0;
  options.moveOnUnpin = choices.oneIn(6);
  options.batch = 1 + choices.below(16);
  options.readAhead = 1 + choices.below(64);
  const bool retires = choices.oneIn(4);
  options.firstGeneration = static_cast<std::uint16_t>(
      retires ? tcmalloc::kNoGeneration - 15 : choices.below(tcmalloc::kFirstGenerations));
  Faults::Kinds kinds;  // the choice is made in any case, so that a seed's other choices stay
  const std::uint32_t faulty = choices.below(6);
  kinds.memory = m_settings.mayFault && (faulty == 1 || faulty == 2);
  kinds.transfers = m_settings.mayFault && faulty >= 2 && faulty <= 4;
  kinds.disk = m_settings.directory.has_value();
  std::optional<std::string> directory = m_settings.directory;
  if (kinds.disk) {
    kinds.transfers = false;
  } else if (choices.oneIn(4) && !kinds.transfers && m_settings.realFiles) {
    directory = tempDirectory();
  }
  const std::uint32_t parts = choices.below(1024);

  std::ostringstream os;
  os << "budget " << options.budgetBytes << ", pages of " << options.pageSize << ", leaves "
     << options.tableLeaves << (options.moveOnUnpin ? ", moving" : "")
     << (retires ? ", pages retire" : "") << (directory ? ", real file" : ", scripted file")
     << (kinds.transfers ? ", failing transfers" : "") << (kinds.memory ? ", failing memory" : "")
     << ", parts " << parts;
  m_setup = os.str();
  m_world = std::make_unique<ModelWorld>(choices, options, directory, kinds);
  // A part in two takes part, objects always.
  for (std::size_t i = 0; i < std::size(kMakers); ++i) {
    if (i == 0 || (parts >> i & 1U) != 0) {
      m_areas.push_back(kMakers[i](*m_world));
    }
  }
  m_world->hidesObjects = std::any_of(m_areas.begin(), m_areas.end(),
                                      [](const auto& area) { return area->hidesOffsets(); });
  m_world->owners = [this](std::uint64_t offset) {
    return std::any_of(m_areas.begin(), m_areas.end(),
                       [&](const auto& area) { return area->owns(offset); });
  };
}

ModelMachine::~ModelMachine() = default;

std::string ModelMachine::run() {
  try {
    while (!m_choices.atEnd() && m_world->history.step < m_settings.mostSteps) {
      step();
    }
    end();
    return {};
  } catch (const std::exception& error) {
    return std::string(error.what()) + "\n  at step " + std::to_string(m_world->history.step) +
           " with " + m_setup + "\n" + m_world->history.text();
  }
}

void ModelMachine::step() {
  ++m_world->history.step;
  m_world->faults.draw(m_choices);
  m_areas[m_choices.below(static_cast<std::uint32_t>(m_areas.size()))]->step();
  if (m_world->history.step % kCheckEvery == 0) {
    check(false);
  }
  if (m_world->history.step % kVerifyEvery == 0) {
    verify();
  }
}

// The engine agrees with itself, and with the model about pins and objects; when all is over, about
// those of areas that do not know how many they have as well.
void ModelMachine::check(bool isOver) {
  m_world->faults.mend();
  const std::string findings = m_world->store.engine().Check(m_world->faults.ofMemory() != 0);
  m_world->require(findings.empty(), findings);
  comparePins();
  std::uint64_t objects = 0;
  bool moreMayBeThere = false;
  for (const auto& area : m_areas) {
    objects += area->objects();
    moreMayBeThere = moreMayBeThere || (area->hidesCount() && !isOver);
  }
  const std::uint64_t found = m_world->store.objects();
  m_world->require(found >= objects && (found <= objects + m_world->leaks || moreMayBeThere),
                   "the store has ", found, " objects, not ", objects, " and at most ",
                   m_world->leaks, " that could not be freed");
}

void ModelMachine::comparePins() {
  ModelArea::Pins expected;
  std::size_t hidden = 0;
  for (const auto& area : m_areas) {
    area->addPins(expected);
    hidden += area->hiddenPins();
  }
  for (const auto& [offset, pins] : m_world->store.pins()) {
    const auto known = expected.find(offset);
    if (known == expected.end()) {
      m_world->require(pins == 1 && hidden-- != 0 && !m_world->isOwned(offset), "the object at ",
                       offset, " has ", pins, " pins");
    } else {
      m_world->require(pins == known->second, "the object at ", offset, " has ", pins,
                       " pins, not ", known->second);
      expected.erase(known);
    }
  }
  m_world->require(expected.empty(), "an object has lost its pins");
}

void ModelMachine::verify() {
  m_world->faults.mend();
  for (const auto& area : m_areas) {
    area->verify();
  }
  if (m_choices.oneIn(4)) {
    unpin();
  }
}

// Without pins nothing exceeds the budget, unless it could not be written when it should have left.
void ModelMachine::unpin() {
  for (const auto& area : m_areas) {
    area->unpin();
  }
  m_world->require(m_world->store.pins().empty(), "a pin is left");
  const std::uint64_t bytes = m_world->store.bytesBeyondBudget();
  m_world->require(bytes == 0 || m_world->faults.injected() != 0 || m_world->faults.diskIsShort(),
                   bytes, " bytes beyond the budget");
}

void ModelMachine::end() {
  verify();
  unpin();
  check(false);
  for (const auto& area : m_areas) {
    area->clear();
  }
  check(true);
  m_areas.clear();
}

RunCounts ModelMachine::counts() const {
  return {1, m_world->history.count(), m_world->faults.injected(), m_world->failedCalls};
}

}  // namespace model
