#include "panel/libcrypto.h"

#include "framework/shared_library.h"

namespace brisq_panel {

namespace {

// The types of the functions are those of the headers.
static_assert(OPENSSL_VERSION_MAJOR == 3);
constexpr const char* kLibrary = "libcrypto.so.3";

}  // namespace

const Libcrypto& Libcrypto::Get() {
  static const Libcrypto libcrypto(kLibrary);
  return libcrypto;
}

Libcrypto::Libcrypto(const std::string& library) {
  const SharedLibrary loaded(library);
#define BRISQ_FIND(name) loaded.Find(#name, name);
  BRISQ_LIBCRYPTO_FUNCTIONS(BRISQ_FIND)
#undef BRISQ_FIND
}

}  // namespace brisq_panel
