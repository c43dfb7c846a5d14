#include "libtcmalloc_virtualmm/StoreError.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

namespace {

// A path is cut before it can push the figures out of the text.
constexpr int kPathRoom = 600;

constexpr const char* kCipherReason =
    "libcrypto, which encrypts it, refused; it does so when the system has no memory left";

}  // namespace

void StoreError::NoteSystem(const char* operation, const char* path, int error) noexcept {
  char reason[128];
  DescribeSystemError(error, reason, sizeof reason);
  NoteReason(operation, path, error == kCipherFailed ? kCipherReason : reason);
}

void StoreError::NoteReason(const char* operation, const char* path, const char* reason) noexcept {
  const int length = path != nullptr
                         ? std::snprintf(m_text, sizeof m_text, "cannot %s \"%.*s\": %s", operation,
                                         kPathRoom, path, reason)
                         : std::snprintf(m_text, sizeof m_text, "cannot %s: %s", operation, reason);
  m_noted = length < 0 ? 0 : std::min(static_cast<std::size_t>(length), sizeof m_text - 1);
}

void StoreError::NoteObject(std::uint64_t offset, const char* reason) noexcept {
  char operation[64];
  std::snprintf(operation, sizeof operation, "reach the object at offset %" PRIu64, offset);
  NoteReason(operation, nullptr, reason);
}

void StoreError::Complete(std::uint64_t askedBytes, std::uint64_t usedBytes,
                          std::uint64_t budgetBytes) noexcept {
  std::snprintf(m_text + m_noted, sizeof m_text - m_noted,
                " (%" PRIu64 " bytes asked for, %" PRIu64 " of %" PRIu64
                " bytes of the memory budget in use)",
                askedBytes, usedBytes, budgetBytes);
}

}  // namespace tcmalloc
