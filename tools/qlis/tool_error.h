// The one error type of the host tool. Its message is a complete sentence
// about the user's input; main prints it as the single line
// "qlis: <message>" and exits with status 1.
#pragma once

#include <stdexcept>

namespace qlis::tool {

class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace qlis::tool
