#ifndef EXAMPLES_COMMON_CHECKEDBY_H
#define EXAMPLES_COMMON_CHECKEDBY_H

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

namespace example {

/// Lets a command line take a size only if a function reads it.
/// @param parse  raises std::invalid_argument with a text for the user, as parseBudget does
template <class Parse>
CLI::Validator checkedBy(Parse parse) {
  return {[parse](const std::string& text) -> std::string {
            try {
              parse(text);
              return {};
            } catch (const std::invalid_argument& error) {
              return error.what();
            }
          },
          "SIZE"};
}

}  // namespace example

#endif  // EXAMPLES_COMMON_CHECKEDBY_H
