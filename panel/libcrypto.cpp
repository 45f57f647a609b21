#include "panel/libcrypto.h"

#include <dlfcn.h>

#include "mgr_err.h"

namespace brisq_panel {

namespace {

// The types of the functions are those of the headers.
static_assert(OPENSSL_VERSION_MAJOR == 3);
constexpr const char* kLibrary = "libcrypto.so.3";

mgr_err::Error LoaderError(const std::string& library) {
  const char* const why = ::dlerror();
  return mgr_err::Error("file", library, why == nullptr ? "can't be loaded" : why);
}

void* Load(const std::string& library) {
  if (void* const handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
    return handle;
  }
  throw LoaderError(library);
}

template <class Function>
void Find(Function& function, void* handle, const char* name, const std::string& library) {
  function = reinterpret_cast<Function>(::dlsym(handle, name));
  if (function == nullptr) {
    throw LoaderError(library);
  }
}

}  // namespace

const Libcrypto& Libcrypto::Get() {
  static const Libcrypto libcrypto(kLibrary);
  return libcrypto;
}

Libcrypto::Libcrypto(const std::string& library) {
  void* const handle = Load(library);
#define BRISQ_FIND(name) Find(name, handle, #name, library);
  BRISQ_LIBCRYPTO_FUNCTIONS(BRISQ_FIND)
#undef BRISQ_FIND
}

}  // namespace brisq_panel
