// The paging file on Windows.

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <string>

#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

namespace {

/// The errno value for what a call of the system reported last.
int LastError() {
  switch (GetLastError()) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return ENOSPC;
    case ERROR_FILE_TOO_LARGE:
      return EFBIG;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_NO_SYSTEM_RESOURCES:
    case ERROR_COMMITMENT_LIMIT:
      return ENOMEM;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_WRITE_PROTECT:
      return EACCES;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_PATHNAME:
      return ENOENT;
    case ERROR_DIRECTORY:
    case ERROR_INVALID_NAME:
      return ENOTDIR;
    case ERROR_FILENAME_EXCED_RANGE:
      return ENAMETOOLONG;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return EEXIST;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
    case ERROR_CALL_NOT_IMPLEMENTED:
      return EOPNOTSUPP;
    default:
      return EIO;
  }
}

std::wstring ToWide(const char* utf8) {
  const int length = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(std::max(length, 1)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide.data(), length);
  wide.pop_back();  // the terminating zero
  return wide;
}

class WindowsPagingFile final : public PagingFile {
 public:
  explicit WindowsPagingFile(const char* directory)
      : m_path(directory != nullptr && directory[0] != '\0' ? directory : ".") {
    if (m_path.back() != '\\' && m_path.back() != '/') {
      m_path += '\\';
    }
    // Made and named now, so that opening it later cannot run out of memory.
    m_name = ToWide(m_path.c_str());
    m_directoryLength = m_name.size();
    m_name.resize(m_directoryLength + kNameRoom);
    m_path.reserve(m_path.size() + kNameRoom);
  }

  ~WindowsPagingFile() override {
    if (m_handle != INVALID_HANDLE_VALUE) {
      CloseHandle(m_handle);
    }
  }

  WindowsPagingFile(const WindowsPagingFile&) = delete;
  WindowsPagingFile& operator=(const WindowsPagingFile&) = delete;

  /// The name only has to be new: until it is closed nobody else can open the file, and the system
  /// deletes it when the handle goes, whether the process closes it or is killed.
  int Open() override {
    int error = EEXIST;
    for (int attempt = 0; error == EEXIST && attempt < kAttempts; ++attempt) {
      LARGE_INTEGER now;
      QueryPerformanceCounter(&now);
      std::swprintf(m_name.data() + m_directoryLength, kNameRoom, L"QRTPaging-%lx-%llx.tmp",
                    GetCurrentProcessId(), now.QuadPart);
      m_handle =
          CreateFileW(m_name.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                      FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED |
                          FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_RANDOM_ACCESS,
                      nullptr);
      error = m_handle != INVALID_HANDLE_VALUE ? 0 : LastError();
    }
    if (error == 0) {
      for (const wchar_t* c = m_name.data() + m_directoryLength; *c != L'\0'; ++c) {
        m_path += static_cast<char>(*c);  // the name is ASCII
      }
    }
    return error;
  }

  const char* Path() const override { return m_path.c_str(); }

  /// There is no fork here, and the handle is not inherited.
  bool InForeignProcess() const override { return false; }

  std::int64_t ReadSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    return Transfer(offset, slices, count, [](HANDLE file, const IoSlice& slice, OVERLAPPED& at) {
      DWORD bytes = 0;
      const BOOL done = ReadFile(file, slice.data, Limited(slice.size), &bytes, &at);
      const bool atEnd = done == FALSE && GetLastError() == ERROR_HANDLE_EOF;
      return done != FALSE || atEnd ? std::int64_t{bytes} : -LastError();
    });
  }

  std::int64_t WriteSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    return Transfer(offset, slices, count, [](HANDLE file, const IoSlice& slice, OVERLAPPED& at) {
      DWORD bytes = 0;
      const BOOL done = WriteFile(file, slice.data, Limited(slice.size), &bytes, &at);
      return done != FALSE ? std::int64_t{bytes} : -LastError();
    });
  }

  int Reserve(std::uint64_t /*begin*/, std::uint64_t end) override {
    FILE_ALLOCATION_INFO allocation{};
    allocation.AllocationSize.QuadPart = static_cast<LONGLONG>(end);
    if (SetFileInformationByHandle(m_handle, FileAllocationInfo, &allocation, sizeof allocation) ==
        FALSE) {
      // A file system that cannot do it says so in many ways; only a full disk is a refusal.
      const int error = LastError();
      return error == ENOSPC ? error : EOPNOTSUPP;
    }
    return Truncate(end);
  }

  int Truncate(std::uint64_t size) override {
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    const BOOL done = SetFileInformationByHandle(m_handle, FileEndOfFileInfo, &end, sizeof end);
    return done != FALSE ? 0 : LastError();
  }

 private:
  static constexpr std::size_t kNameRoom = 48;
  static constexpr int kAttempts = 1000;

  static DWORD Limited(std::size_t bytes) {
    return static_cast<DWORD>(std::min<std::size_t>(bytes, 1U << 30));
  }

  /// Moves slice after slice: the calls that take several want unbuffered files.
  template <typename Move>
  std::int64_t Transfer(std::uint64_t offset, const IoSlice* slices, std::size_t count, Move move) {
    std::int64_t total = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t place = offset + static_cast<std::uint64_t>(total);
      OVERLAPPED at{};
      at.Offset = static_cast<DWORD>(place);
      at.OffsetHigh = static_cast<DWORD>(place >> 32);
      const std::int64_t moved = move(m_handle, slices[i], at);
      if (moved < 0) {
        return total > 0 ? total : moved;
      }
      total += moved;
      if (static_cast<std::uint64_t>(moved) < slices[i].size) {
        break;
      }
    }
    return total;
  }

  std::string m_path;                      // what Path tells, UTF-8
  std::wstring m_name;                     // directory, then room for the file's name
  std::size_t m_directoryLength = 0;       // of m_name, with the separator
  HANDLE m_handle = INVALID_HANDLE_VALUE;  // the open file
};

}  // namespace

std::unique_ptr<PagingFile> MakePagingFile(const char* directory) {
  return std::make_unique<WindowsPagingFile>(directory);
}

void DescribeSystemError(int error, char* text, std::size_t size) noexcept {
  if (size > 0 && strerror_s(text, size, error) != 0) {
    text[0] = '\0';
  }
}

}  // namespace tcmalloc
