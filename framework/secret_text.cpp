#include "framework/secret_text.h"

#include <sodium.h>

#include <algorithm>
#include <cstddef>
#include <vector>

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

// Each once: a tool is often told a secret twice.
std::vector<std::string_view> LinesOf(std::string_view secrets) {
  std::vector<std::string_view> lines;
  while (!secrets.empty()) {
    const std::size_t end = std::min(secrets.find('\n'), secrets.size());
    const std::string_view line = secrets.substr(0, end);
    secrets.remove_prefix(std::min(end + 1, secrets.size()));
    if (!line.empty() && (lines.empty() || line != lines.back())) {
      lines.push_back(line);
    }
  }
  return lines;
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

bool MaskedSecret::Is(std::string_view text) const noexcept {
  if (text.size() != masked_.size()) {
    return false;
  }
  const volatile char* const given = text.data();
  int difference = 0;
  for (std::size_t at = 0; at < masked_.size(); ++at) {
    difference |= masked_[at] ^ (given[at] ^ mask_[at]);
  }
  return difference == 0;
}

std::string WithoutSecrets(std::string text, std::string_view secrets) {
  for (const std::string_view secret : LinesOf(secrets)) {
    Blank(text, secret);
  }
  return text;
}

std::string WithoutTornSecret(std::string text, std::string_view secrets) {
  for (const std::string_view secret : LinesOf(secrets)) {
    for (std::size_t size = secret.size(); size >= kShort; --size) {
      if (text.ends_with(secret.substr(0, size))) {
        text.replace(text.size() - size, size, kBlank);
        return text;
      }
    }
  }
  return text;
}

}  // namespace mgr_proc
