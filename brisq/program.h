#pragma once

#include <string>
#include <vector>

#include "brisq/command.h"

namespace brisq {

/// Runs the program: reads the words behind its name, does what they say in process, writes data to
/// the console's output and all else to its error stream.
/// @return the exit code
int RunProgram(const std::vector<std::string>& words, const Console& console);

}  // namespace brisq
