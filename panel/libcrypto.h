#pragma once

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// Those of its functions that are called.
#define BRISQ_LIBCRYPTO_FUNCTIONS(X) \
  X(ASN1_STRING_get0_data)           \
  X(ASN1_STRING_length)              \
  X(ASN1_TIME_to_tm)                 \
  X(BIO_free)                        \
  X(BIO_new_mem_buf)                 \
  X(CRYPTO_free)                     \
  X(ERR_pop_to_mark)                 \
  X(ERR_set_mark)                    \
  X(EVP_PKEY_free)                   \
  X(GENERAL_NAMES_free)              \
  X(OPENSSL_sk_num)                  \
  X(OPENSSL_sk_value)                \
  X(PEM_read_bio_PrivateKey)         \
  X(PEM_read_bio_X509)               \
  X(X509_NAME_ENTRY_get_data)        \
  X(X509_NAME_get_entry)             \
  X(X509_NAME_get_index_by_NID)      \
  X(X509_check_host)                 \
  X(X509_check_ip_asc)               \
  X(X509_check_private_key)          \
  X(X509_free)                       \
  X(X509_get0_notAfter)              \
  X(X509_get0_notBefore)             \
  X(X509_get_ext_d2i)                \
  X(X509_get_subject_name)           \
  X(d2i_X509)                        \
  X(i2d_X509)

/// OpenSSL's libcrypto, loaded when it is first needed and never let go: few commands look into a
/// certificate, and binding its own functions would take 0.8 ms of the start of each. One member
/// for each function, by its name and of its type. Any thread.
struct BRISQ_API Libcrypto {
  /// The one of this process.
  /// @throws as the constructor, and tries it anew the next time
  static const Libcrypto& Get();

  /// @param library  file name, looked for where the system keeps libraries, or path
  /// @throws mgr_err::Error "file" with the library as object when it, or a function, is missing
  explicit Libcrypto(const std::string& library);

// NOLINTNEXTLINE(bugprone-macro-parentheses): a member is declared
#define BRISQ_MEMBER(function) decltype(&::function) function = nullptr;
  BRISQ_LIBCRYPTO_FUNCTIONS(BRISQ_MEMBER)
#undef BRISQ_MEMBER
};

}  // namespace brisq_panel
