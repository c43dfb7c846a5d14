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
    m_records.erase(std::remove(m_records.begin(), m_records.end(), nullptr), m_records.end());
    placeAll();
  }
  const std::size_t age = m_records.size();
  try {
    m_records.push_back(nullptr);
    if (m_has.size() * kBits <= age) {
      m_has.resize(age / kBits + 1);
      m_summary.resize(age / kBits / kBits + 1);
      placeAll();  // the words may have moved
    }
  } catch (const std::bad_alloc&) {
    m_records.resize(age);
    placeAll();
    return false;
  }
  m_records[age] = record;
  place(record, age);
  m_top = static_cast<unsigned>(m_summary.size()) - 1;
  ++m_live;
  return true;
}

void QRTChunkIndex::remove(QRTChunkRecord* record) noexcept {
  record->noteFull();
  m_records[record->age] = nullptr;
  --m_live;
  QRTChunkRecord::release(record);
}

/// Tells a chunk its age and its bits, and sets them.
void QRTChunkIndex::place(QRTChunkRecord* record, std::size_t age) noexcept {
  const std::size_t word = age / kBits;
  record->age = static_cast<unsigned>(age);
  record->has = &m_has[word];
  record->hasBit = std::size_t{1} << bitOf(age);
  record->summary = &m_summary[word / kBits];
  record->summaryBit = std::size_t{1} << bitOf(word);
  if (record->head() != 0) {
    record->noteFree();
  }
}

/// The same for all, when ages or words have changed.
void QRTChunkIndex::placeAll() noexcept {
  std::fill(m_has.begin(), m_has.end(), 0);
  std::fill(m_summary.begin(), m_summary.end(), 0);
  for (std::size_t age = 0; age < m_records.size(); ++age) {
    if (m_records[age] != nullptr) {
      place(m_records[age], age);
    }
  }
}
