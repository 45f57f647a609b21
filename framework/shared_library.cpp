#include "framework/shared_library.h"

#include <dlfcn.h>

#include "framework/demangle.h"
#include "mgr_err.h"

std::string LoaderWords(const std::string& file) {
  const char* words = ::dlerror();
  std::string text = words == nullptr ? "can't be loaded" : words;
  if (text.starts_with(file + ": ")) text.erase(0, file.size() + 2);
  const std::string label = "undefined symbol: ";
  const std::size_t at = text.find(label);
  if (at != std::string::npos) text += " (" + Demangled(text.substr(at + label.size())) + ")";
  return text;
}

SharedLibrary::SharedLibrary(const std::string& file)
    : file_(file), handle_(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
  if (handle_ == nullptr) throw mgr_err::Error("file", file, LoaderWords(file));
}

void* SharedLibrary::Symbol(const char* name) const {
  void* const symbol = ::dlsym(handle_, name);
  if (symbol == nullptr) throw mgr_err::Error("file", file_, LoaderWords(file_));
  return symbol;
}
