#include "framework/shared_library.h"

#include <dlfcn.h>

#include "mgr_err.h"

namespace {

mgr_err::Error LoaderError(const std::string& file) {
  const char* const words = ::dlerror();
  std::string why = words == nullptr ? "can't be loaded" : words;
  if (why.starts_with(file + ": ")) why.erase(0, file.size() + 2);
  return mgr_err::Error("file", file, why);
}

}  // namespace

SharedLibrary::SharedLibrary(const std::string& file)
    : file_(file), handle_(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
  if (handle_ == nullptr) throw LoaderError(file);
}

void* SharedLibrary::Symbol(const char* name) const {
  void* const symbol = ::dlsym(handle_, name);
  if (symbol == nullptr) throw LoaderError(file_);
  return symbol;
}
