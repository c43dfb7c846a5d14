#include "StoreStatistics.h"

#include <charconv>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "QRTVirtualMemoryMgr.h"

namespace example {

namespace {

/// The number that follows the first occurrence of `label` in the dump, if there is one.
std::optional<std::uint64_t> numberAfter(std::string_view dump, std::string_view label) {
  const std::size_t place = dump.find(label);
  if (place == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view rest = dump.substr(place + label.size());
  std::uint64_t number = 0;
  const auto parsed = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (parsed.ec != std::errc()) {
    return std::nullopt;
  }
  return number;
}

std::uint64_t requiredNumber(std::string_view dump, std::string_view label) {
  const std::optional<std::uint64_t> number = numberAfter(dump, label);
  if (!number) {
    throw std::runtime_error("the statistics dump has no '" + std::string(label) + "'");
  }
  return *number;
}

}  // namespace

StoreStatistics parseStatistics(const std::string& dump) {
  StoreStatistics statistics;
  statistics.pageSize = requiredNumber(dump, "\nPage size: ");
  statistics.currentObjects =
      requiredNumber(dump, "\nMapping Statistics - Virtual Objects (Current/Max/Cumulative): ");
  statistics.pageReads = requiredNumber(dump, "\nPaging Statistics - Reads: ");
  statistics.pageWrites = requiredNumber(dump, ", Writes: ");
  statistics.pageOuts = requiredNumber(dump, ", Page Outs: ");
  // These two lines stand in the dump only when there is something to tell.
  statistics.pagingFileSize = numberAfter(dump, "\nPage file size: ").value_or(0);
  statistics.pinnedObjects =
      numberAfter(dump, "\nTotal Objects with reference count > 0 : ").value_or(0);
  return statistics;
}

StoreStatistics readStatistics(QRTVirtualMemoryMgr& manager) {
  std::ostringstream dump;
  dump.imbue(std::locale::classic());  // plain digits, whatever the host's locale
  manager.dumpMapper(dump, QRTVirtualMemoryMgr::eDumpStatistics);
  return parseStatistics(dump.str());
}

}  // namespace example
