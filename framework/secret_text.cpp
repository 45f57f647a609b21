#include "framework/secret_text.h"

#include <sodium.h>

#include <cstddef>

namespace mgr_proc {

namespace {

constexpr std::string_view kBlank = "***";
constexpr std::size_t kShort = 4;

bool IsOfWord(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool StandsAlone(const std::string& text, std::size_t at, std::size_t size) {
  return (at == 0 || !IsOfWord(text[at - 1])) &&
         (at + size == text.size() || !IsOfWord(text[at + size]));
}

void Blank(std::string& text, std::string_view secret) {
  for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos;) {
    if (secret.size() < kShort && !StandsAlone(text, at, secret.size())) {
      ++at;
      continue;
    }
    text.replace(at, secret.size(), kBlank);
    at += kBlank.size();
  }
}

}  // namespace

MaskedSecret::MaskedSecret(std::string_view secret)
    : mask_(secret.size(), '\0'), masked_(secret.size(), '\0') {
  randombytes_buf(mask_.data(), mask_.size());
  // Byte by byte, so that no vector register takes the secret to the stack.
  const volatile char* const from = secret.data();
  for (std::size_t at = 0; at < masked_.size(); ++at) {
    masked_[at] = static_cast<char>(from[at] ^ mask_[at]);
  }
}

void MaskedSecret::Reveal(SecretBuffer& to) const {
  for (std::size_t at = 0; at < masked_.size(); ++at) {
    to.sputc(static_cast<char>(masked_[at] ^ mask_[at]));
  }
}

std::string WithoutSecrets(std::string text, std::string_view secrets) {
  std::string_view last;  // a tool is often told a secret twice
  while (!secrets.empty()) {
    const std::size_t end = secrets.find('\n');
    const std::string_view secret = secrets.substr(0, end);
    secrets.remove_prefix(end == std::string_view::npos ? secrets.size() : end + 1);
    if (!secret.empty() && secret != last) {
      Blank(text, secret);
    }
    last = secret;
  }
  return text;
}

}  // namespace mgr_proc
