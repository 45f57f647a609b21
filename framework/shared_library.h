#pragma once

#include <string>

#include "brisq_export.h"

/// Why the last call of the loader on this thread failed, in its words: without the file's name in
/// front, and with a missing symbol in readable form.
BRISQ_API std::string LoaderWords(const std::string& file);

/// A shared library that is loaded when it is first needed and never let go. Any thread.
class BRISQ_API SharedLibrary {
 public:
  /// Loads it unless this process has it already.
  /// @param file  path, or a name, which the loader looks for in LD_LIBRARY_PATH, beside the
  ///              framework's own library and where the system keeps libraries
  /// @throws mgr_err::Error "file" with the library as object when it can't be loaded
  explicit SharedLibrary(const std::string& file);

  /// Sets `function` to the one of this name; the type is for the caller to know.
  /// @throws mgr_err::Error "file" with the library as object when there is none
  template <class Function>
  void Find(const char* name, Function*& function) const {
    function = reinterpret_cast<Function*>(Symbol(name));
  }

 private:
  void* Symbol(const char* name) const;

  std::string file_;
  void* handle_;
};
