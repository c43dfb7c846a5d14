#include "QRTVirtualMapper.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>

#include "QRTVirtualMemoryMgr.h"
#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

// What a manager tells about single objects: getMapper and dumpReferences.

namespace {

// Objects that dumpReferences lists: enough to recognise a leak, few enough to read.
constexpr unsigned int kMaxListed = 100;

// Bytes shown of each object.
constexpr unsigned int kShownBytes = 16;

using Reference = tcmalloc::VirtualMemoryReferenceInfo;

// Writes past the stream's format, so that a host's width, base or fill neither shows nor changes.
template <class... Values>
void writeLine(std::ostream& os, const char* format, Values... values) {
  char line[320];
  const int length = std::snprintf(line, sizeof line, format, values...);
  os.write(line, std::min<std::streamsize>(length, sizeof line - 1));
}

void writeBytes(std::ostream& os, const unsigned char* bytes, unsigned int count) {
  char line[kShownBytes * 4 + 6];
  char* out = line;
  for (unsigned int i = 0; i < count; ++i) {
    static constexpr char kDigits[] = "0123456789abcdef";
    *out++ = ' ';
    *out++ = kDigits[bytes[i] >> 4U];
    *out++ = kDigits[bytes[i] & 15U];
  }
  *out++ = ' ';
  *out++ = ' ';
  *out++ = '|';
  for (unsigned int i = 0; i < count; ++i) {
    const bool printable = bytes[i] >= 0x20 && bytes[i] < 0x7F;
    *out++ = printable ? static_cast<char>(bytes[i]) : '.';
  }
  *out++ = '|';
  *out++ = '\n';
  os.write(line, out - line);
}

}  // namespace

QRTVirtualMapper* QRTVirtualMemoryMgr::getMapper(unsigned long long) const {
  return nullptr;
}

// 1. Ask how many objects are pinned.
// 2. Find room for the engine's list. Memory may be what has run out: ask for less until something
//    can be had, and in the end do with the stack.
// 3. Bring the objects with the most pins to the front, equal ones in the order of their offsets.
// 4. Write them. The bytes are copied out under a pin that is dropped before the stream, which may
//    throw, is touched.
// 5. Count what is not listed.
// 6. Tell of pins beyond the memory size, if there were any.
void QRTVirtualMemoryMgr::dumpReferences(std::ostream& os) {
  // Step 1
  const unsigned int pinned = m_pool->GetOutstandingReferences(nullptr, 0, nullptr);
  writeLine(os, "Objects with reference count > 0: %u\n", pinned);

  // Step 2
  Reference onStack[kMaxListed];
  std::unique_ptr<Reference[]> onHeap;
  unsigned int capacity = pinned;
  while (capacity > kMaxListed && onHeap == nullptr) {
    onHeap.reset(new (std::nothrow) Reference[capacity]);
    if (onHeap == nullptr) {
      capacity /= 2;
    }
  }
  if (onHeap == nullptr) {
    capacity = kMaxListed;
  }
  Reference* const list = onHeap != nullptr ? onHeap.get() : onStack;
  unsigned int known = 0;
  m_pool->GetOutstandingReferences(list, capacity, &known);

  // Step 3
  const unsigned int listed = std::min(known, kMaxListed);
  std::partial_sort(list, list + listed, list + known, [](const Reference& a, const Reference& b) {
    return a.pins != b.pins ? a.pins > b.pins : a.offset < b.offset;
  });

  // Step 4
  for (unsigned int i = 0; i < listed; ++i) {
    const Reference& object = list[i];
    unsigned char bytes[kShownBytes];
    const unsigned int count = std::min(object.size, kShownBytes);
    const void* const address = getAddress(object.offset, 0);
    if (address != nullptr) {
      std::memcpy(bytes, address, count);
      dismiss(object.offset);
    }
    writeLine(os,
              "  offset %llu, %u bytes, pins %u:", static_cast<unsigned long long>(object.offset),
              object.size, object.pins);
    if (address != nullptr) {
      writeBytes(os, bytes, count);
    } else {
      writeLine(os, " %s\n", "not readable");
    }
  }

  // Step 5
  if (pinned > listed) {
    writeLine(os, "  ... and %u more\n", pinned - listed);
  }
  if (known < pinned) {
    writeLine(os, "  (memory was short: only %u objects were looked at)\n", known);
  }

  // Step 6
  if (const char* const beyond = getPinsBeyondMemorySize(); beyond[0] != '\0') {
    writeLine(os, "%s\n", beyond);
  }
}
