#pragma once

#include <string>

#include "brisq_export.h"
#include "str.h"

/// Tests of values. All take a text that they may put into its canonical form, so that each can be
/// the check of a field.
namespace test {

/// True for one or more decimal digits and nothing else; never changes the text.
BRISQ_API bool Numeric(std::string& value);

/// True for an IPv4 address in dotted form or an IPv6 address without brackets and zone; puts an
/// IPv6 address into its canonical form.
BRISQ_API bool Ip(std::string& value);

/// Removes white space at both ends, in place, and then applies `Check`.
template <bool (*Check)(std::string&)>
bool Trim(std::string& value) {
  value = str::Trim(value);
  return Check(value);
}

}  // namespace test
