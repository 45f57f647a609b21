#pragma once

#include <map>
#include <string>
#include <string_view>

/// The text of a passwd-file as a test sees it that looks at the disk and asks no engine.
namespace soak {

/// The second column of each line that has a name, by name. A name that comes twice has the value
/// of its first line, with "+" and that of the next behind it.
using Passwords = std::map<std::string, std::string, std::less<>>;

/// What `Passwords` tells of a name that has no line.
inline const std::string kAbsent = "(absent)";

Passwords Parse(std::string_view content);
const std::string& ValueOf(const Passwords& passwords, std::string_view name);

/// A whole line, its end included.
std::string LineOf(std::string_view name, std::string_view password);

/// The file's content, read in one go by plain system calls; throws std::runtime_error.
std::string ReadRaw(const std::string& path);
/// All that is to be read from the start of an open file.
std::string ReadRaw(int fd);
/// Writes all of `text` at the descriptor's place; throws std::runtime_error.
void WriteRaw(int fd, std::string_view text);
/// Throws std::runtime_error with the call and the reason in errno unless `holds`.
void Require(bool holds, const char* call);

}  // namespace soak
