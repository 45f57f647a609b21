#pragma once

#include <optional>
#include <string>
#include <vector>

#include "brisq/command.h"

namespace brisq {

/// A command line that was understood.
struct CommandLine {
  const Command* command = nullptr;
  Arguments arguments;
  std::string config;  ///< path of the configuration file
  bool json = false;
};

/// Reads the words behind the program's name. Help and version are written to the console.
/// @return nothing when help or the version was asked for
/// @throws mgr_err::Error "usage"
std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& words,
                                            const Console& console);

}  // namespace brisq
