#pragma once

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string>

/// A symbol of C++ as it stands in the source; what is none stays as it is.
inline std::string Demangled(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? name.get() : symbol;
}
