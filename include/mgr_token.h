#pragma once

#include <string>

#include "brisq_export.h"

/// Syntax of configuration files.
namespace mgr_token {

/// How the lines of a file are read.
struct BRISQ_API Params {
  /// Between two columns; the last column takes the rest of the line, separators included.
  char separator = ':';
  /// A line that begins with one of these holds no record.
  std::string comment = "#";
};

}  // namespace mgr_token
