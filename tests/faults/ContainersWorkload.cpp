#include <cstring>
#include <map>

#include "QRTVirtualHashMap.h"
#include "QRTVirtualHashSeed.h"
#include "QRTVirtualStringMap.h"
#include "QRTVirtualVector.h"
#include "faults/FaultPlan.h"
#include "faults/RandomWorkload.h"

// Seeds that are the same in every run, in the place of the library's: calls can be counted.
QRTVirtualHashSeed::QRTVirtualHashSeed() noexcept : m_seed(17) {}

unsigned long long QRTVirtualHashSeed::ofNumber(unsigned long long number) const noexcept {
  unsigned long long mixed = (number + m_seed) * 0x9E3779B97F4A7C15U;
  mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9U;
  return mixed ^ mixed >> 32;
}

unsigned long long QRTVirtualHashSeed::ofBytes(const void* bytes, std::size_t size) const noexcept {
  unsigned long long hash = size;
  for (std::size_t i = 0; i < size; ++i) {
    hash = ofNumber(hash ^ static_cast<const unsigned char*>(bytes)[i]);
  }
  return hash;
}

namespace {

struct Record {
  unsigned int number;
  char text[76];
};

bool operator==(const Record& a, const Record& b) {
  return a.number == b.number && std::memcmp(a.text, b.text, sizeof a.text) == 0;
}

Record recordOf(unsigned int number) {
  Record record{number, {}};
  std::memset(record.text, static_cast<int>(number % 251), sizeof record.text);
  return record;
}

/// An array and two maps. What fails has changed nothing, but the order of what was to be sorted.
class Containers : public RandomWorkload {
 public:
  explicit Containers(QRTVirtualMemoryMgr& manager)
      : RandomWorkload(manager), m_vector(manager), m_map(manager), m_strings(manager) {}

  void run(Trial& trial) override {
    for (int step = 0; step < 50; ++step) {
      editVector(trial);
      for (int i = 0; i < 6; ++i) {
        editMaps(trial);
      }
    }
    sort(trial);
  }

  void change(Trial& trial) override {
    for (std::size_t i = 0; i < m_records.size(); i += 40) {
      write(trial, i, std::min<std::size_t>(40, m_records.size() - i));
    }
    for (auto& [key, value] : m_pairs) {
      const Record record = recordOf(++m_seed);
      if (trial.attempt([&, at = key] { return m_map.insertOrAssign(at, record), true; })) {
        value = record;
      }
    }
    for (auto& [key, value] : m_texts) {
      const unsigned int number = ++m_seed;
      if (trial.attempt([&, &at = key] { return m_strings.insertOrAssign(at, number), true; })) {
        value = number;
      }
    }
  }

  void check(Trial& trial) override {
    expectSizes();
    for (std::size_t i = 0; i < m_records.size(); i += 40) {
      const std::size_t count = std::min<std::size_t>(40, m_records.size() - i);
      std::vector<Record> found(count);
      if (trial.attempt([&] { return m_vector.read(i, found.data(), count), true; })) {
        EXPECT_TRUE(std::equal(found.begin(), found.end(), m_records.begin() + at(i)));
      }
    }
    for (const auto& [key, value] : m_pairs) {
      Record found{};
      bool isThere = false;
      if (trial.attempt([&, wanted = key] { return isThere = m_map.find(wanted, found), true; })) {
        EXPECT_TRUE(isThere && found == value) << key;
      }
    }
    for (const auto& [key, value] : m_texts) {
      unsigned int found = 0;
      bool isThere = false;
      if (trial.attempt(
              [&, &wanted = key] { return isThere = m_strings.find(wanted, found), true; })) {
        EXPECT_TRUE(isThere && found == value) << key;
      }
    }
    std::size_t visited = 0;
    if (trial.attempt([&] {
          m_map.forEach([&](unsigned int key, const Record& value) {
            visited += m_pairs.count(key) == 1 && m_pairs[key] == value ? 1 : 1000000;
          });
          return true;
        })) {
      EXPECT_EQ(visited, m_pairs.size());
    }
  }

  // A map keeps what it cannot read to the end of the manager: it is cleared when all can be read.
  void end(Trial& trial) override {
    m_vector.clear();
    m_records.clear();
    if (!trial.mayFail) {
      trial.attempt([&] { return m_map.clear(), m_strings.clear(), true; });
      m_pairs.clear();
      m_texts.clear();
    }
  }

  bool leavesUnreadable() const override { return true; }

 private:
  static std::ptrdiff_t at(std::size_t i) { return static_cast<std::ptrdiff_t>(i); }

  void expectSizes() const {
    EXPECT_EQ(m_vector.size(), m_records.size());
    EXPECT_EQ(m_map.size(), m_pairs.size());
    EXPECT_EQ(m_strings.size(), m_texts.size());
  }

  static std::vector<Record> recordsOf(std::size_t count, unsigned int first) {
    std::vector<Record> records;
    for (std::size_t i = 0; i < count; ++i) {
      records.push_back(recordOf(first + static_cast<unsigned int>(i)));
    }
    return records;
  }

  void write(Trial& trial, std::size_t from, std::size_t count) {
    const std::vector<Record> records = recordsOf(count, m_seed += 1000);
    if (trial.attempt([&] { return m_vector.write(from, records.data(), count), true; })) {
      std::copy(records.begin(), records.end(), m_records.begin() + at(from));
    }
  }

  void editVector(Trial& trial) {
    const Record record = recordOf(++m_seed);
    const std::size_t size = m_records.size();
    switch (size < 50 ? 0 : draw(6)) {
      case 0: {
        const std::vector<Record> more = recordsOf(1 + draw(300), m_seed += 1000);
        if (trial.attempt([&] { return m_vector.append(more.data(), more.size()), true; })) {
          m_records.insert(m_records.end(), more.begin(), more.end());
        }
        break;
      }
      case 1:
        if (trial.attempt([&] { return m_vector.push_back(record), true; })) {
          m_records.push_back(record);
        }
        break;
      case 2: {
        const std::size_t place = draw(size);
        if (trial.attempt([&] { return m_vector.set(place, record), true; })) {
          m_records[place] = record;
        }
        break;
      }
      case 3: {
        const std::size_t from = draw(size);
        write(trial, from, draw(size - from));
        break;
      }
      case 4: {  // shorter, or longer by zeros
        const std::size_t wanted = size / 2 + draw(size);
        if (trial.attempt([&] { return m_vector.resize(wanted), true; })) {
          m_records.resize(wanted);
        }
        break;
      }
      default:
        if (trial.attempt([&] { return m_vector.pop_back(), true; })) {
          m_records.pop_back();
        }
    }
    expectSizes();
  }

  void editMaps(Trial& trial) {
    const unsigned int key = draw(300);
    const Record record = recordOf(++m_seed);
    const std::string text(key % 7 == 0 ? 300 + key : 5 + key % 40,
                           static_cast<char>('a' + key % 26));
    bool changed = false;
    if (draw(3) != 0) {
      if (trial.attempt([&] { return changed = m_map.insert(key, record), true; })) {
        EXPECT_EQ(changed, m_pairs.emplace(key, record).second);
      }
      if (trial.attempt([&] { return m_strings.insertOrAssign(text, key), true; })) {
        m_texts[text] = key;
      }
    } else {
      if (trial.attempt([&] { return changed = m_map.erase(key), true; })) {
        EXPECT_EQ(changed, m_pairs.erase(key) == 1);
      }
      if (trial.attempt([&] { return changed = m_strings.erase(text), true; })) {
        EXPECT_EQ(changed, m_texts.erase(text) == 1);
      }
    }
    expectSizes();
  }

  void sort(Trial& trial) {
    const auto before = [](const Record& a, const Record& b) {
      return std::memcmp(&a, &b, sizeof a) < 0;
    };
    const bool done = trial.attempt([&] { return m_vector.sort(before), true; });
    std::vector<Record> found;
    {
      // What it holds now is read without faults.
      const FaultPlan::Pause pause;
      found.resize(m_records.size());
      m_vector.read(0, found.data(), found.size());
    }
    std::vector<Record> sorted = found;
    std::sort(sorted.begin(), sorted.end(), before);
    std::sort(m_records.begin(), m_records.end(), before);
    EXPECT_TRUE(sorted == m_records) << "the same elements";
    EXPECT_TRUE(!done || found == sorted);
    m_records = std::move(found);
  }

  QRTVirtualVector<Record> m_vector;
  QRTVirtualHashMap<unsigned int, Record> m_map;
  QRTVirtualStringMap<unsigned int> m_strings;
  std::vector<Record> m_records;
  std::map<unsigned int, Record> m_pairs;
  std::map<std::string, unsigned int> m_texts;
};

}  // namespace

std::unique_ptr<Workload> makeContainers(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<Containers>(manager);
}
