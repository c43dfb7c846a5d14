#include "QRTChunkIndex.h"

#include <algorithm>
#include <new>

QRTChunkIndex::~QRTChunkIndex() {
  for (QRTChunkRecord* record : m_records) {
    QRTChunkRecord::release(record);
  }
}

bool QRTChunkIndex::add(QRTChunkRecord* record) noexcept {
  // Ages of removed chunks are won back when they are the majority.
  if (m_records.size() == m_records.capacity() && m_live < m_records.size() / 2) {
    renumber();
  }
  const auto age = static_cast<unsigned>(m_records.size());
  try {
    m_mayHave.resize(age / kBits + 1);
    m_summary.resize(age / kBits / kBits + 1);
    m_records.push_back(record);
  } catch (const std::bad_alloc&) {
    return false;
  }
  record->age = age;
  m_top = static_cast<unsigned>(m_summary.size()) - 1;
  ++m_live;
  setBit(age);
  return true;
}

void QRTChunkIndex::remove(QRTChunkRecord* record) noexcept {
  noteFull(record);
  m_records[record->age] = nullptr;
  --m_live;
  QRTChunkRecord::release(record);
}

/// The search when the highest bit is out of date: clears bits until one is not.
QRTChunkRecord* QRTChunkIndex::searchNewest() noexcept {
  for (std::size_t top = m_summary.size(); top-- > 0;) {
    while (m_summary[top] != 0) {
      const unsigned word = static_cast<unsigned>(top) * kBits + highest(m_summary[top]);
      while (m_mayHave[word] != 0) {
        QRTChunkRecord* const record = m_records[word * kBits + highest(m_mayHave[word])];
        if (record->free != 0) {
          return record;
        }
        noteFull(record);
      }
      m_summary[top] &= ~bitOf(word);
    }
  }
  return nullptr;
}

/// Gives the chunks new ages without holes; all of them may have free elements.
void QRTChunkIndex::renumber() noexcept {
  m_records.erase(std::remove(m_records.begin(), m_records.end(), nullptr), m_records.end());
  std::fill(m_mayHave.begin(), m_mayHave.end(), 0);
  std::fill(m_summary.begin(), m_summary.end(), 0);
  unsigned age = 0;
  for (QRTChunkRecord* record : m_records) {
    record->age = age++;
    setBit(record->age);
  }
}
