/// A bad option. The text, one line, says what was wrong and what would be right.

#pragma once

#include <stdexcept>

namespace VeloAgent {

class OptionsError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

} // namespace VeloAgent
