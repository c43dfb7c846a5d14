#ifndef BENCH_SUITE_STRINGS_STRINGWORK_H
#define BENCH_SUITE_STRINGS_STRINGWORK_H

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Corpus.h"
#include "QRTCore/I18NString.h"
#include "common/Amount.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/WarmMemory.h"

struct StringOptions {
  suite::Amount strings{"1e6"};
  suite::Amount reads;  // none for as many as suit the budget
  suite::Budget budget;
};

/// Stores the strings of a corpus and reads them in order and at random; prints what each took.
/// `Strings` has
///  - `add(text)`, which stores a string behind the others;
///  - `read(i, use)`, which hands the text of one to `use` without a copy;
///  - `equal(i, text)` and `convert(i)`.
template <class Strings>
void measureStrings(const char* peer, const StringOptions& options) {
  const std::size_t count = options.strings.value;
  const std::size_t randomReads = options.reads.value != 0   ? options.reads.value
                                  : options.budget.isAmple() ? 1'000'000
                                                             : 100'000;
  std::optional<Corpus> corpus(count);
  const auto data = static_cast<double>(corpus->bytes());
  const auto ends = [](std::string_view text) {
    return text.size() * 1000 + static_cast<unsigned char>(text.back());
  };
  std::uint64_t sumOfHashes = 0;
  std::uint64_t sumOfEnds = 0;
  for (const std::string_view text : corpus->pieces()) {
    sumOfHashes += XXH3_64bits(text.data(), text.size());
    sumOfEnds += ends(text);
  }
  std::vector<std::uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0U);

  const auto print = [&](const std::string& what, const char* unit, double value) {
    const std::string variant = options.budget.label(what);
    suite::print({"strings", peer, variant, options.strings.text, unit, value});
  };
  const auto check = [&](bool right) {
    if (!right) {
      suite::fail(std::string(peer) + ": a string came back different");
    }
  };

  if (options.budget.isAmple()) {
    suite::warmMemory(corpus->bytes() * 3 / 2);
  }
  const std::uint64_t before = suite::residentBytes();
  const suite::Meter filling;
  Strings strings(count, options.budget.bytes(corpus->bytes()));
  for (const std::string_view text : corpus->pieces()) {
    strings.add(text);
  }
  print("fill", "ns", options.budget.seconds(filling) * 1e9 / static_cast<double>(count));
  print("resident", "bytes/byte", static_cast<double>(suite::residentBytes() - before) / data);
  if (!options.budget.isAmple()) {
    corpus.reset();  // the machine's memory is for the peer
  }

  // Each reads as many strings as asked for, all of them again and again if need be.
  const auto measure = [&](const std::string& what, std::size_t reads, auto read) {
    const suite::Meter meter;
    for (std::size_t done = 0; done < reads;) {
      for (std::size_t i = 0; i < count && done < reads; ++i, ++done) {
        read(order[i]);
      }
    }
    print(what, "ns", options.budget.seconds(meter) * 1e9 / static_cast<double>(reads));
  };
  const auto readAll = [&](const char* how, std::size_t reads) {
    std::uint64_t sum = 0;
    measure(std::string("hash ") + how, reads, [&](std::uint32_t i) {
      strings.read(i, [&](std::string_view text) { sum += XXH3_64bits(text.data(), text.size()); });
    });
    check(reads % count != 0 || sum == reads / count * sumOfHashes);
    sum = 0;
    measure(std::string("copy ") + how, reads, [&](std::uint32_t i) {
      std::string copy;
      strings.read(i, [&](std::string_view text) { copy = text; });
      sum += ends(copy);
    });
    check(reads % count != 0 || sum == reads / count * sumOfEnds);
  };
  readAll("in order", count * std::max<std::size_t>(1, 1'000'000 / count));
  std::shuffle(order.begin(), order.end(), std::mt19937(7));
  readAll("at random", randomReads);
  if (options.budget.isAmple()) {
    std::size_t wrong = 0;
    measure("convert at random", randomReads,
            [&](std::uint32_t i) { wrong += strings.convert(i).size() == 0 ? 1 : 0; });
    measure("compare at random", randomReads,
            [&](std::uint32_t i) { wrong += strings.equal(i, corpus->pieces()[i]) ? 0 : 1; });
    measure("compare other length", randomReads, [&](std::uint32_t i) {
      wrong += strings.equal(i, std::string_view("shorter")) ? 1 : 0;
    });
    check(wrong == 0);
  }
}

void measureBerkeley(const StringOptions& options);

#endif  // BENCH_SUITE_STRINGS_STRINGWORK_H
