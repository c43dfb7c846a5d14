// Files on Windows.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstring>
#include <string>

#include "QRTCore/QRTFmFileSystem.h"

namespace qrtfile {

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "names are UTF-16 on Windows");

HANDLE handleOf(Handle handle) {
  return reinterpret_cast<HANDLE>(handle);
}

unsigned int errorOf(BOOL succeeded) {
  return succeeded ? 0 : lastError();
}

DWORD dispositionOf(QRTFmFile::createmode mode) {
  switch (mode) {
    case QRTFmFile::eCreateNew:
      return CREATE_NEW;
    case QRTFmFile::eCreateAlways:
      return CREATE_ALWAYS;
    case QRTFmFile::eOpenAlways:
      return OPEN_ALWAYS;
    case QRTFmFile::eTruncateExisting:
      return TRUNCATE_EXISTING;
    default:
      return OPEN_EXISTING;
  }
}

/// The external buffer as the system takes it, zero-terminated.
std::wstring wide(const I18NString& text) {
  std::wstring units(static_cast<std::size_t>(text.size()) / sizeof(wchar_t), L'\0');
  std::memcpy(units.data(), text.getExternalBuffer(), units.size() * sizeof(wchar_t));
  return units;
}

}  // namespace

unsigned int lastError() {
  return GetLastError();
}

unsigned int invalidArgument() {
  return ERROR_INVALID_PARAMETER;
}

unsigned int invalidHandle() {
  return ERROR_INVALID_HANDLE;
}

unsigned int transferFailed() {
  return ERROR_WRITE_FAULT;
}

I18NString message(unsigned int error) {
  wchar_t text[512];
  DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                     text, static_cast<DWORD>(sizeof text / sizeof text[0]), nullptr);
  while (length > 0 && (text[length - 1] == L'\r' || text[length - 1] == L'\n')) {
    --length;  // the system's messages are whole lines
  }
  return I18NString(static_cast<const void*>(text), static_cast<int>(length * sizeof(wchar_t)),
                    nullptr, nullptr);
}

unsigned int open(const I18NString& path, QRTFmFile::createmode mode, bool readOnly,
                  Handle& handle) {
  const std::wstring name = wide(path);
  if (name.find(L'\0') != std::wstring::npos) {
    return ERROR_INVALID_NAME;  // a zero unit would cut the name short
  }
  // No security attributes: children do not inherit the handle. Others may open, rename and delete
  // the file meanwhile, as on other systems. Directories are refused by the system itself.
  const HANDLE file =
      CreateFileW(name.c_str(), readOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  dispositionOf(mode), FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return lastError();
  }
  handle = reinterpret_cast<Handle>(file);
  return 0;
}

unsigned int openStandard(QRTFmFile::stdiotypes type, Handle& handle) {
  static constexpr DWORD kStreams[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
  if (type < QRTFmFile::eStdIn || type > QRTFmFile::eStdErr) {
    return ERROR_INVALID_PARAMETER;
  }
  const HANDLE stream = GetStdHandle(kStreams[type]);
  if (stream == INVALID_HANDLE_VALUE) {
    return lastError();
  }
  if (stream == nullptr) {
    return ERROR_INVALID_HANDLE;  // a process without a console has no streams
  }
  handle = reinterpret_cast<Handle>(stream);
  return 0;
}

unsigned int close(Handle handle) {
  return errorOf(CloseHandle(handleOf(handle)));
}

unsigned int readSome(Handle handle, void* data, unsigned int n, unsigned int& moved) {
  DWORD got = 0;
  const unsigned int error = errorOf(ReadFile(handleOf(handle), data, n, &got, nullptr));
  moved = got;
  // The writer of a pipe is gone: that is its end.
  return error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF ? 0 : error;
}

unsigned int writeSome(Handle handle, const void* data, unsigned int n, unsigned int& moved) {
  DWORD put = 0;
  const unsigned int error = errorOf(WriteFile(handleOf(handle), data, n, &put, nullptr));
  moved = put;
  return error;
}

unsigned int seek(Handle handle, std::int64_t offset, QRTFmFile::seekorigin origin,
                  std::int64_t& position) {
  static constexpr DWORD kOrigins[] = {FILE_BEGIN, FILE_CURRENT, FILE_END};
  if (origin < QRTFmFile::eSeekSet || origin > QRTFmFile::eSeekEnd) {
    return ERROR_INVALID_PARAMETER;
  }
  if (GetFileType(handleOf(handle)) != FILE_TYPE_DISK) {
    return ERROR_SEEK_ON_DEVICE;  // on pipes and consoles the system's call succeeds in vain
  }
  LARGE_INTEGER distance;
  LARGE_INTEGER reached;
  distance.QuadPart = offset;
  reached.QuadPart = 0;
  const unsigned int error =
      errorOf(SetFilePointerEx(handleOf(handle), distance, &reached, kOrigins[origin]));
  position = reached.QuadPart;
  return error;
}

unsigned int length(Handle handle, std::int64_t& bytes) {
  if (GetFileType(handleOf(handle)) != FILE_TYPE_DISK) {
    return ERROR_SEEK_ON_DEVICE;
  }
  LARGE_INTEGER size;
  size.QuadPart = 0;
  const unsigned int error = errorOf(GetFileSizeEx(handleOf(handle), &size));
  bytes = size.QuadPart;
  return error;
}

unsigned int flush(Handle handle) {
  return errorOf(FlushFileBuffers(handleOf(handle)));
}

unsigned int truncate(Handle handle, std::int64_t bytes) {
  FILE_END_OF_FILE_INFO end;
  end.EndOfFile.QuadPart = bytes;
  return errorOf(SetFileInformationByHandle(handleOf(handle), FileEndOfFileInfo, &end, sizeof end));
}

}  // namespace qrtfile
