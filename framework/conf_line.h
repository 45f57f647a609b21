#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "brisq_export.h"

/// One line of a configuration file and its columns. Columns count from 1; the last of `columns`
/// columns takes the rest of the line, separators included. Texts are without the end of line.
namespace conf_line {

/// Length of the end of line at the end of `raw`: CR LF, LF, or a CR that the end of the file has
/// cut off its LF.
BRISQ_API std::size_t EndLength(std::string_view raw) noexcept;

/// What is missing behind a line so that it has an end, its own or else `end`, and its text stays
/// what it is.
BRISQ_API std::string_view EndFor(std::string_view raw, std::string_view end) noexcept;

/// A line with its end, as EndFor says.
BRISQ_API std::string WithEnd(std::string_view raw, std::string_view end);

/// How many columns a text has: one more than separators, so never none.
BRISQ_API unsigned long CountColumns(std::string_view text, char separator) noexcept;

/// True when the text has at least `columns` columns.
BRISQ_API bool HasColumns(std::string_view text, char separator, unsigned long columns) noexcept;

/// As HasColumns, of the first line of some bytes, of which only as much is looked at as it takes.
BRISQ_API bool BeginsWithColumns(std::string_view bytes, char separator,
                                 unsigned long columns) noexcept;

/// One column of a text; empty when the text has fewer.
BRISQ_API std::string_view Column(std::string_view text, char separator, unsigned long columns,
                                  unsigned long column) noexcept;

/// A line that was cut off the front of some bytes.
struct Cut {
  std::size_t length;   // its end included
  std::size_t columns;  // how many of those asked for it has
};
/// Cuts the first line off `bytes`, which are not empty, and parts it into columns in one pass.
/// @param columns  at least one; get the line's columns, and what the line lacks stays as it was
BRISQ_API Cut CutFirst(std::string_view bytes, char separator,
                       std::span<std::string_view> columns) noexcept;

/// True when the value holds a line break (LF, CR), a NUL or the separator.
BRISQ_API bool HasSpecial(std::string_view value, char separator) noexcept;

/// The text with some columns replaced; it must have `columns` columns. Everything else stays byte
/// for byte.
BRISQ_API std::string WithColumns(std::string_view text, char separator, unsigned long columns,
                                  const std::map<unsigned long, std::string>& values);

}  // namespace conf_line
