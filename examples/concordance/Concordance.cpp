#include "Concordance.h"

#include <stdexcept>

#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"
#include "Words.h"

namespace example {

Concordance::Concordance(QRTVirtualMemoryMgr& manager)
    : m_manager(manager), m_files(manager), m_lines(manager), m_words(manager) {}

void Concordance::addFile(const std::string& path) {
  QRTVirtualUTF8String stored;
  stored.setString(path, &m_manager);
  m_files.push_back(stored);
}

void Concordance::addLine(std::string_view text, std::uint32_t number) {
  if (m_lines.size() == WordIndex::kNone) {
    throw std::length_error("a concordance is limited to 4294967295 lines");
  }
  QRTVirtualUTF8String stored;
  stored.setString(text, &m_manager);
  LineRecord record;
  record.text = stored;
  record.file = static_cast<std::uint32_t>(m_files.size() - 1);
  record.number = number;
  const auto line = static_cast<std::uint32_t>(m_lines.size());
  m_lines.push_back(record);
  m_textBytes += text.size();
  // The words are those of the text as it is stored: what was ill-formed in the file is not.
  const QRTVirtualUTF8Reader reader(stored, &m_manager);
  if (!reader.isPinned() && !text.empty()) {
    throw std::runtime_error(std::string("the store cannot read back a line: ") +
                             m_manager.getLastStoreError());
  }
  for (Words words(reader.view()); words.next();) {
    m_words.add(words.word(), line);
    ++m_occurrences;
  }
}

Concordance::Line Concordance::line(std::uint32_t line) const {
  const LineRecord record = m_lines.get(line);
  const QRTVirtualUTF8String text(record.text);
  const QRTVirtualUTF8String file(m_files.get(record.file));
  return {std::string(QRTVirtualUTF8Reader(text, &m_manager).view()),
          std::string(QRTVirtualUTF8Reader(file, &m_manager).view()), record.number};
}

}  // namespace example
