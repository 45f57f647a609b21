#include "str.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <system_error>

#include "mgr_err.h"

namespace str {

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";

}  // namespace

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

void Split(const std::string& text, const std::string& separator, std::list<std::string>& list) {
  const std::size_t step = separator.size();
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end =
        step == 0 ? text.size() : std::min(text.find(separator, begin), text.size());
    if (end > begin) {
      list.push_back(Trim(text.substr(begin, end - begin)));
    }
    begin = end + step;
  }
}

std::string GetWord(std::string& text, char separator) {
  if (separator == ' ') {
    text.erase(0, text.find_first_not_of(' '));
  }
  const std::size_t end = text.find(separator);
  std::string word = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return word;
}

std::string RGetWord(const std::string& text, const std::string& separator) {
  const std::size_t last = separator.empty() ? std::string::npos : text.rfind(separator);
  return last == std::string::npos ? text : text.substr(last + separator.size());
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.starts_with(prefix);
}

int Int(const std::string& text) {
  const std::size_t first = std::min(text.find_first_not_of(kWhiteSpace), text.size());
  const char* begin = text.data() + first;
  const char* const end = text.data() + text.size();
  const bool negative = begin != end && *begin == '-';
  // from_chars knows no plus sign, and must not see the minus of "+-1".
  if (begin != end && *begin == '+' && (begin + 1 == end || begin[1] != '-')) {
    ++begin;
  }
  int number = 0;
  if (std::from_chars(begin, end, number).ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
  }
  return number;
}

std::string Str(long number) { return std::to_string(number); }

std::string Random(std::size_t length) {
  std::string bytes(length, '\0');
  for (std::size_t done = 0; done < length;) {
    const ssize_t got = ::getrandom(bytes.data() + done, length - done, 0);
    if (got < 0 && errno != EINTR) {
      throw mgr_err::Error("internal", "getrandom", std::generic_category().message(errno));
    }
    done += got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  return bytes;
}

}  // namespace str
