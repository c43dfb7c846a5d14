#include "FilePieces.h"

#include "XmlError.h"

namespace example {

FilePieces::FilePieces(const std::string& path)
    : m_path(path), m_buffer(std::make_unique_for_overwrite<std::byte[]>(kPieceBytes)) {
  if (!m_file.open(path)) {
    throw XmlError(m_path + ": " + m_file.error());
  }
}

std::string_view FilePieces::next() {
  const std::size_t size = m_file.read(m_offset, m_buffer.get(), kPieceBytes);
  if (!m_file.error().empty()) {
    throw XmlError(m_path + ": " + m_file.error());
  }
  m_offset += size;
  return {reinterpret_cast<const char*>(m_buffer.get()), size};
}

}  // namespace example
