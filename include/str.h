#pragma once

#include <list>
#include <string>

#include "brisq_export.h"

/// Text operations. White space is space, tab, line feed, vertical tab, form feed and carriage
/// return, whatever the locale.
namespace str {

/// Copy without white space at both ends.
BRISQ_API std::string Trim(const std::string& text);

/// Appends to `list` each piece between separators that is not empty, trimmed. A piece of white
/// space only becomes an empty entry; `list` is not cleared.
BRISQ_API void Split(const std::string& text, const std::string& separator,
                     std::list<std::string>& list);

/// Takes the text up to the first `separator` off the front of `text`, drops the separator and
/// returns what was taken; all of it when there is no separator. With a blank as separator, blanks
/// before the word are dropped first.
BRISQ_API std::string GetWord(std::string& text, char separator = ' ');

/// Text after the last occurrence of `separator`; the whole text when there is none.
BRISQ_API std::string RGetWord(const std::string& text, const std::string& separator);

BRISQ_API bool StartsWith(const std::string& text, const std::string& prefix);

/// The decimal number at the beginning of `text`, after white space and a sign; 0 when there is
/// none, the nearest bound when it does not fit.
BRISQ_API int Int(const std::string& text);

/// Decimal text of a number.
BRISQ_API std::string Str(long number);

/// Text of `length` bytes from the system's random source, each of the 256 values as likely as any
/// other.
BRISQ_API std::string Random(std::size_t length);

}  // namespace str
