#include <cerrno>
#include <cmath>
#include <map>
#include <random>

#include "engine/EngineFixture.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// Random operations, side by side with a model that cannot page.

namespace {

struct Setup {
  std::uint32_t frames;
  std::uint32_t pageSize;
  bool moveOnUnpin;
  enum class File { kGood, kShort, kFailing, kReal } file;
  std::uint32_t tableLeaves = 0;
  bool encrypted = false;
};

std::ostream& operator<<(std::ostream& os, const Setup& setup) {
  return os << setup.frames << " frames, pages of " << setup.pageSize
            << (setup.moveOnUnpin ? ", moving" : "") << ", file " << static_cast<int>(setup.file)
            << ", leaves " << setup.tableLeaves << (setup.encrypted ? ", encrypted" : "");
}

class RandomOperationsTest : public EngineFixture, public testing::WithParamInterface<Setup> {
 protected:
  struct Live : Object {
    std::vector<bool> pins;  // one per pin: whether it is for writing
    void* address = nullptr;
  };

  static constexpr std::uint64_t kMostBytes = 3 << 20;

  std::uint32_t Random() { return static_cast<std::uint32_t>(m_random()); }
  std::uint32_t Below(std::uint32_t end) { return Random() % end; }
  Live& Any() { return m_live[Below(static_cast<std::uint32_t>(m_live.size()))]; }

  /// Any size from 0 bytes to 400 KiB, all magnitudes alike.
  std::uint32_t AnySize() {
    return static_cast<std::uint32_t>(std::exp2(Random() * (18.65 / 4294967296.0))) - Below(2);
  }

  std::size_t Failures() const {
    return file->reads.failed + file->writes.failed + tableFile->reads.failed;
  }

  void Allocate() {
    Live object;
    object.size = AnySize();
    object.seed = Random();
    const std::size_t failures = Failures();
    object.address = engine->Allocate(object.size, object.offset);
    if (object.address == nullptr) {
      ASSERT_GT(Failures(), failures) << engine->GetLastError();
      ASSERT_EQ(object.offset, 0U) << "unchanged";
      return;
    }
    ++m_allocated;
    m_bytes += object.size;
    object.size = std::max(object.size, 1U);
    object.pins.push_back(true);
    Fill(object.address, object.size, object.seed);
    m_live.push_back(std::move(object));
    m_most = std::max(m_most, m_live.size());
  }

  void Pin(Live& object) {
    const bool forWriting = Below(2) == 0;
    const std::size_t failures = Failures();
    Pinned(object, forWriting, failures, engine->GetAddress(object.offset, forWriting));
  }

  // Moves a pin, at times one just taken, which often has a neighbour to go to.
  void MovePin(Live& from, Live& to) {
    if (Below(4) != 0) {
      Pin(from);
    }
    if (!from.pins.empty()) {
      from.pins.pop_back();
    }
    const std::size_t failures = Failures();
    Pinned(to, true, failures, engine->MovePin(from.offset, to.offset));
  }

  // Reads and changes an object without a pin of its own, if the engine has it at hand.
  void ChangeUnpinned(Live& object) {
    engine->Prefetch(object.offset);
    if (const void* address = engine->GetUnpinned(object.offset, false)) {
      ASSERT_TRUE(object.pins.empty() || address == object.address);
      ASSERT_TRUE(Holds(address, object.size, object.seed)) << "size " << object.size;
    }
    if (void* address = engine->GetUnpinned(object.offset, true)) {
      ASSERT_EQ(address, engine->GetUnpinned(object.offset, false));
      ASSERT_TRUE(object.pins.empty() || address == object.address);
      ASSERT_TRUE(Holds(address, object.size, object.seed)) << "size " << object.size;
      object.seed = Random();
      Fill(address, object.size, object.seed);
    }
  }

  // Pins several objects at once, some of them twice, or unpins them.
  void PinMany() {
    std::vector<std::size_t> places;
    std::vector<unsigned long long> offsets;
    for (std::uint32_t left = 1 + Below(Below(8) == 0 ? 300 : 12); left > 0; --left) {
      places.push_back(Below(static_cast<std::uint32_t>(m_live.size())));
      offsets.push_back(m_live[places.back()].offset);
    }
    const auto count = static_cast<std::uint32_t>(places.size());
    if (Below(2) == 0) {
      engine->DismissAll(offsets.data(), count);
      for (const std::size_t place : places) {
        if (!m_live[place].pins.empty()) {
          m_live[place].pins.pop_back();
        }
      }
      return;
    }
    const bool forWriting = Below(2) == 0;
    const std::size_t failures = Failures();
    std::vector<void*> addresses(count);
    const std::uint32_t pinned =
        engine->GetAddresses(offsets.data(), addresses.data(), count, forWriting);
    ASSERT_EQ(pinned, count - std::count(addresses.begin(), addresses.end(), nullptr));
    // What came in memory first was pinned first: a null may stand before an address.
    for (std::uint32_t i = 0; i < count; ++i) {
      if (addresses[i] != nullptr) {
        Pinned(m_live[places[i]], forWriting, failures, addresses[i]);
      } else {
        ASSERT_TRUE(m_live[places[i]].pins.empty());
        ASSERT_GT(Failures(), failures) << engine->GetLastError();
      }
    }
  }

  // Notes in the model what came of a pin.
  void Pinned(Live& object, bool forWriting, std::size_t failures, void* address) {
    if (address == nullptr) {
      ASSERT_TRUE(object.pins.empty());
      ASSERT_GT(Failures(), failures) << engine->GetLastError();
      return;
    }
    ASSERT_TRUE(object.pins.empty() || address == object.address);
    object.address = address;
    object.pins.push_back(forWriting);
    ASSERT_TRUE(Holds(address, object.size, object.seed)) << "size " << object.size;
  }

  void Change(Live& object) {
    if (object.pins.empty()) {
      return;
    }
    object.seed = Random();
    Fill(object.address, object.size, object.seed);
    if (std::find(object.pins.begin(), object.pins.end(), true) == object.pins.end()) {
      engine->Dirty(object.offset);
    }
  }

  void Dismiss(Live& object) {
    engine->Dismiss(object.offset);  // at times one too many
    if (!object.pins.empty()) {
      object.pins.pop_back();
    }
  }

  void Deallocate(Live& object) {
    engine->Deallocate(object.offset);
    ASSERT_EQ(GetStats().currentObjects, m_live.size() - 1) << "also what cannot be read is freed";
    m_stale.push_back(object.offset);
    m_bytes -= object.size;
    std::swap(object, m_live.back());
    m_live.pop_back();
  }

  void UseStale() {
    const std::uint64_t offset = m_stale[Below(static_cast<std::uint32_t>(m_stale.size()))];
    ASSERT_EQ(engine->GetAddress(offset, true), nullptr);
    engine->Dismiss(offset);
    engine->Dirty(offset);
    file->reads.Mend();  // else nobody can tell that it is stale, and it counts for a while
    tableFile->reads.Mend();
    engine->Deallocate(offset);
  }

  void Step() {
    const std::uint32_t choice = Below(100);
    if (m_live.empty() || (choice < 25 && m_bytes < kMostBytes)) {
      Allocate();
    } else if (choice < 40) {
      Pin(Any());
    } else if (choice < 50) {
      MovePin(Any(), Any());
    } else if (choice < 51) {
      PinMany();
    } else if (choice < 55) {
      Change(Any());
    } else if (choice < 60) {
      ChangeUnpinned(Any());
    } else if (choice < 85) {
      Dismiss(Any());
    } else if (choice < 98) {
      Deallocate(Any());
    } else if (!m_stale.empty()) {
      UseStale();
    }
    if (Below(300) == 0) {
      UnpinAll();
    }
    if (Below(200) == 0) {
      ChangeBudget();
    }
  }

  // Any budget from one frame to a mebibyte.
  void ChangeBudget() {
    const std::uint64_t bytes = std::uint64_t{4096} << Below(9);
    const std::size_t failures = Failures();
    if (!engine->SetMemorySize(bytes)) {
      ASSERT_GT(Failures(), failures) << engine->GetLastError();
    }
    ASSERT_EQ(engine->Check(), "");
  }

  void UnpinAll() {
    for (Live& object : m_live) {
      while (!object.pins.empty()) {
        Dismiss(object);
      }
    }
    if (file->writes.failed == 0) {
      ASSERT_LE(GetStats().residentBytes, GetStats().budgetBytes);
    }
  }

  void CompareReports() {
    References expected;
    const tcmalloc::SizeClasses classes(GetParam().pageSize);
    std::map<std::uint32_t, std::uint64_t> perPool;
    std::uint64_t large = 0;
    std::uint64_t largePages = 0;
    for (const Live& object : m_live) {
      if (!object.pins.empty()) {
        expected.emplace_back(object.offset, object.size, object.pins.size());
      }
      const std::uint8_t sizeClass = classes.ClassFor(object.size);
      if (sizeClass == tcmalloc::SizeClasses::kLarge) {
        ++large;
        largePages += (object.size + GetParam().pageSize - 1) / GetParam().pageSize;
      } else {
        perPool[classes[sizeClass].capacity] += classes[sizeClass].capacity;
      }
    }
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(GetReferences(), expected);

    tableFile->reads.Mend();  // which tells of what kind the objects are whose frees are pending
    const Stats stats = GetStats();
    ASSERT_EQ(stats.currentObjects, m_live.size());
    ASSERT_EQ(stats.maxObjects, m_most);
    ASSERT_EQ(stats.cumulativeObjects, m_allocated);
    ASSERT_EQ(stats.largeSpans, large);
    ASSERT_EQ(stats.largePages, largePages);
    for (const tcmalloc::FixedPoolStats& pool : stats.pools) {
      ASSERT_EQ(pool.allocBytes, perPool[pool.objectSize]) << "pool " << pool.objectSize;
      ASSERT_LE(pool.allocBytes + pool.freeBytes, std::uint64_t{pool.pages} * GetParam().pageSize);
      perPool.erase(pool.objectSize);
    }
    ASSERT_TRUE(perPool.empty());
    ASSERT_GE(stats.pageOuts, stats.pageWrites);
  }

  std::mt19937 m_random;
  std::vector<Live> m_live;            // the model: every object there is
  std::vector<std::uint64_t> m_stale;  // handles of objects that ended
  std::uint64_t m_bytes = 0;           // in objects
  std::uint64_t m_allocated = 0;       // objects ever
  std::size_t m_most = 0;              // objects at one time
};

TEST_P(RandomOperationsTest, AgreeWithAModelThatCannotPage) {
  SCOPED_TRACE(testing::Message() << GetParam());
  m_random.seed(testSeed());
  if (GetParam().frames == 8) {
    firstGeneration = tcmalloc::kNoGeneration - 15;  // pages are retired after 15 frees
  }
  encrypted = GetParam().encrypted;
  const TempDirectory directory;
  if (GetParam().file == Setup::File::kReal) {
    MakeReal(GetParam().frames, directory.path().string(), GetParam().tableLeaves);
  } else {
    Make(GetParam().frames, GetParam().pageSize, GetParam().moveOnUnpin, GetParam().tableLeaves);
  }
  if (GetParam().file == Setup::File::kShort) {
    file->interrupted = tableFile->interrupted = true;
    file->transferLimit = 5000;
    tableFile->transferLimit = 500;
  }
  for (int step = 0; step < 8000; ++step) {
    SCOPED_TRACE(testing::Message() << "step " << step);
    if (GetParam().file == Setup::File::kFailing && Below(40) == 0) {
      file->transferLimit = 1 + Below(20000);  // so that images tear
      file->reads.Fail(EIO, 1 + Below(4), Below(3));
      file->writes.Fail(EIO, 1 + Below(4), Below(30));
      tableFile->transferLimit = 300 + Below(2000);
      tableFile->reads.Fail(EIO, 1 + Below(4), Below(3));
      tableFile->writes.Fail(EIO, 1 + Below(4), Below(3));
    }
    ASSERT_NO_FATAL_FAILURE(Step());
    if (step % 250 == 0) {
      ASSERT_EQ(engine->Check(), "");
    }
    if (step % 100 == 0) {
      ASSERT_NO_FATAL_FAILURE(CompareReports());
    }
  }
  for (ScriptedPagingFile* each : {file, tableFile}) {
    each->reads.Mend();
    each->writes.Mend();
  }
  if (GetParam().file == Setup::File::kGood || GetParam().file == Setup::File::kShort) {
    // A failing file can keep all leaves in memory.
    EXPECT_EQ(tableFile->reads.made > 0, GetParam().tableLeaves != 0);
  }
  ASSERT_NO_FATAL_FAILURE(UnpinAll());
  ASSERT_NO_FATAL_FAILURE(CompareReports());
  ASSERT_EQ(engine->Check(), "");
  EXPECT_EQ(engine->DamagedReads(), 0U);
  while (!m_live.empty()) {
    ASSERT_EQ(Look(m_live.back()), Read::kIntact) << engine->GetLastError();
    Deallocate(m_live.back());
  }
  ASSERT_NO_FATAL_FAILURE(CompareReports());
  ASSERT_EQ(engine->Check(), "");
  EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
}

std::vector<Setup> AllSetups() {
  std::vector<Setup> setups;
  for (const std::uint32_t frames : {1U, 8U, 256U}) {
    for (const std::uint32_t pageSize : {4096U, 8192U, 16384U}) {
      for (const bool moveOnUnpin : {false, true}) {
        setups.push_back({frames, pageSize, moveOnUnpin, Setup::File::kGood});
      }
      setups.push_back({frames, pageSize, false, Setup::File::kFailing});
    }
    setups.push_back({frames, 4096, true, Setup::File::kFailing});
    setups.push_back({frames, 4096, false, Setup::File::kShort});
    for (const Setup::File file :
         {Setup::File::kGood, Setup::File::kShort, Setup::File::kFailing}) {
      setups.push_back({frames, 4096, false, file, 1});
    }
  }
  for (const bool encrypted : WithAndWithoutEncryption()) {
    setups.push_back({8, 4096, false, Setup::File::kReal, 1, encrypted});
    setups.push_back({256, 4096, false, Setup::File::kReal, 0, encrypted});
    if (encrypted) {
      setups.push_back({8, 16384, true, Setup::File::kGood, 1, true});
      setups.push_back({8, 4096, false, Setup::File::kShort, 1, true});
      setups.push_back({64, 8192, false, Setup::File::kFailing, 1, true});
    }
  }
  return setups;
}

INSTANTIATE_TEST_SUITE_P(Engine, RandomOperationsTest, testing::ValuesIn(AllSetups()));

}  // namespace
