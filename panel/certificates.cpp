#include "panel/certificates.h"

#include <arpa/inet.h>

#include <memory>

#include "framework/read_at_most.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "panel/libcrypto.h"
#include "panel/state_at.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

const Libcrypto& Crypto() { return Libcrypto::Get(); }

template <auto Free>
struct Freeing {
  template <class T>
  void operator()(T* object) const {
    (Crypto().*Free)(object);
  }
};
using Bio = std::unique_ptr<BIO, Freeing<&Libcrypto::BIO_free>>;
using X509Ptr = std::unique_ptr<X509, Freeing<&Libcrypto::X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freeing<&Libcrypto::EVP_PKEY_free>>;
using Names = std::unique_ptr<GENERAL_NAMES, Freeing<&Libcrypto::GENERAL_NAMES_free>>;

// Leaves the thread's queue of errors as it found it: somebody else may look at it.
class OwnErrors {
 public:
  OwnErrors() { Crypto().ERR_set_mark(); }
  ~OwnErrors() { Crypto().ERR_pop_to_mark(); }
  OwnErrors(const OwnErrors&) = delete;
  OwnErrors& operator=(const OwnErrors&) = delete;
};

// Certificates and keys may belong to users, who could make them as long as they like.
constexpr std::size_t kMostBytes = 1 << 20;

std::string FileContent(const std::string& object, const std::string& path) {
  try {
    return mgr_file::ReadAtMost(path, kMostBytes);
  } catch (const mgr_err::Error& error) {
    throw Refused(object, path + ": " + error.value());
  }
}

Bio Memory(const std::string& text) {
  return Bio(Crypto().BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::time_t TimeOf(const ASN1_TIME* time) {
  std::tm parts{};
  return Crypto().ASN1_TIME_to_tm(time, &parts) == 1 ? ::timegm(&parts) : 0;
}

std::string TextOf(const ASN1_STRING* text) {
  return std::string(reinterpret_cast<const char*>(Crypto().ASN1_STRING_get0_data(text)),
                     static_cast<std::size_t>(Crypto().ASN1_STRING_length(text)));
}

std::string AddressText(const std::string& bytes) {
  char text[INET6_ADDRSTRLEN] = "";
  const int family = bytes.size() == 4 ? AF_INET : AF_INET6;
  if (bytes.size() != 4 && bytes.size() != 16) {
    return "address of unknown kind";
  }
  ::inet_ntop(family, bytes.data(), text, sizeof text);
  return text;
}

std::vector<std::string> AlternativeNames(const X509& certificate) {
  std::vector<std::string> texts;
  const Names names(static_cast<GENERAL_NAMES*>(
      Crypto().X509_get_ext_d2i(&certificate, NID_subject_alt_name, nullptr, nullptr)));
  const auto* stack = reinterpret_cast<const OPENSSL_STACK*>(names.get());
  for (int i = 0; names && i < Crypto().OPENSSL_sk_num(stack); ++i) {
    const auto* name = static_cast<const GENERAL_NAME*>(Crypto().OPENSSL_sk_value(stack, i));
    if (name->type == GEN_DNS) {
      texts.push_back(TextOf(name->d.dNSName));
    } else if (name->type == GEN_IPADD) {
      texts.push_back(AddressText(TextOf(name->d.iPAddress)));
    }
  }
  return texts;
}

// Counts only without alternative names.
std::vector<std::string> CommonName(const X509& certificate) {
  const X509_NAME* subject = Crypto().X509_get_subject_name(&certificate);
  const int at = Crypto().X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  if (at < 0) {
    return {};
  }
  return {TextOf(Crypto().X509_NAME_ENTRY_get_data(Crypto().X509_NAME_get_entry(subject, at)))};
}

std::string Der(const X509& certificate) {
  unsigned char* bytes = nullptr;
  const int length = Crypto().i2d_X509(&certificate, &bytes);
  std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  Crypto().CRYPTO_free(bytes, __FILE__, __LINE__);
  return der;
}

X509Ptr FromDer(const std::string& der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  return X509Ptr(Crypto().d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
}

// Never a question on the terminal: notes that one would have been asked.
int NoPassphrase(char*, int, int, void* asked) {
  *static_cast<bool*>(asked) = true;
  return 0;
}

KeyPtr ReadKey(const std::string& path) {
  mgr_seal::Secret text(FileContent("key", path));
  bool asked = false;
  KeyPtr key(
      Crypto().PEM_read_bio_PrivateKey(Memory(text.text()).get(), nullptr, &NoPassphrase, &asked));
  if (!key) {
    throw Refused("key",
                  path + ": " + (asked ? "is locked by a passphrase" : "holds no PEM private key"));
  }
  return key;
}

}  // namespace

bool Certificate::Covers(const std::string& domain) const {
  const X509Ptr certificate = FromDer(der);
  const OwnErrors own;
  return Crypto().X509_check_host(certificate.get(), domain.data(), domain.size(), 0, nullptr) ==
             1 ||
         Crypto().X509_check_ip_asc(certificate.get(), domain.c_str(), 0) == 1;
}

Certificate ReadCertificate(const std::string& path) {
  const OwnErrors own;
  const std::string text = FileContent("certificate", path);
  const X509Ptr x509(Crypto().PEM_read_bio_X509(Memory(text).get(), nullptr, nullptr, nullptr));
  if (!x509) {
    throw Refused("certificate", path + ": holds no PEM certificate");
  }
  Certificate certificate;
  certificate.names = AlternativeNames(*x509);
  if (certificate.names.empty()) {
    certificate.names = CommonName(*x509);
  }
  certificate.valid_from = TimeOf(Crypto().X509_get0_notBefore(x509.get()));
  certificate.valid_until = TimeOf(Crypto().X509_get0_notAfter(x509.get()));
  certificate.der = Der(*x509);
  return certificate;
}

bool KeyBelongsTo(const std::string& path, const Certificate& certificate) {
  const OwnErrors own;
  const KeyPtr key = ReadKey(path);
  return Crypto().X509_check_private_key(FromDer(certificate.der).get(), key.get()) == 1;
}

bool IsOpenToOthers(const std::string& path) {
  const auto state = StateAt(path, Links::kFollow);
  return state && (state->st_mode & (S_IRWXG | S_IRWXO)) != 0;
}

}  // namespace brisq_panel
