#pragma once

#include <string>

namespace brisq {

/// The commands and exit codes as a page in Markdown, made from the tables that the program works
/// by.
std::string Manual();

}  // namespace brisq
