#ifndef FUZZ_FUZZER_H
#define FUZZ_FUZZER_H

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

/// What libFuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process, for libFuzzer to keep the input, unless something holds.
inline void require(bool holds, std::string_view what) {
  if (!holds) {
    std::cerr << "FOUND: " << what << std::endl;
    std::abort();
  }
}

#endif  // FUZZ_FUZZER_H
