// Stands in for the programs that the monitors run, by defining the class that runs them: whoever
// links this has no process started.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ov::fuzz {

/// What the program named first prints when it is run with the arguments that follow.
using Answer = std::function<std::string(const std::vector<std::string> &command)>;

/// From here on every program answers like this.
void SetAnswer(Answer answer);

/// The text that the monitors make of an output: UTF-8 up to the first zero byte.
std::string OutputText(std::string_view output);

}  // namespace ov::fuzz
