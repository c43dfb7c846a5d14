#include "model/Faults.h"

#include <cerrno>
#include <utility>

namespace model {

Faults::Faults(const Kinds& kinds, ModelStore& store) : m_kinds(kinds), m_store(store) {}

void Faults::draw(Choices& choices) {
  m_memoryFault = m_kinds.memory && choices.oneIn(12) ? 1 + choices.below(4) : 0;
  if (!m_kinds.transfers) {
    return;
  }
  if (choices.oneIn(24)) {
    mend();
  } else if (choices.oneIn(24)) {
    ScriptedPagingFile& file = *m_store.file();
    ScriptedPagingFile& tableFile = *m_store.tableFile();
    file.transferLimit = 1 + choices.below(20000);  // so that images tear
    file.interrupted = choices.oneIn(2);
    const auto fail = [&](ScriptedPagingFile::Calls& calls, int error, std::uint32_t most) {
      const std::size_t nth = 1 + choices.below(4);
      calls.Fail(error, nth, choices.below(most));
    };
    fail(file.reads, EIO, 4);
    fail(file.writes, EIO, 30);
    fail(file.opens, EMFILE, 3);
    file.reserveSupported = !choices.oneIn(4);
    file.discardSupported = !choices.oneIn(4);
    if (choices.oneIn(4)) {
      file.diskBytes = file.Size() + choices.below(65536);
      m_diskIsShort = true;
    }
    tableFile.transferLimit = 300 + choices.below(2000);
    fail(tableFile.reads, EIO, 3);
    fail(tableFile.writes, EIO, 3);
  }
}

void Faults::mend() {
  m_memoryFault = 0;
  m_diskIsShort = false;
  for (ScriptedPagingFile* file : {m_store.file(), m_store.tableFile()}) {
    if (file != nullptr) {
      file->reads.Mend();
      file->writes.Mend();
      file->opens.Mend();
      file->diskBytes = UINT64_MAX;
    }
  }
}

std::size_t Faults::takeMemoryFault() {
  return std::exchange(m_memoryFault, 0);
}

std::uint64_t Faults::injected() const {
  std::uint64_t count = m_memoryFaults;
  for (const ScriptedPagingFile* file : {m_store.file(), m_store.tableFile()}) {
    if (file != nullptr) {
      count += file->reads.failed + file->writes.failed + file->opens.failed;
    }
  }
  return count;
}

}  // namespace model
