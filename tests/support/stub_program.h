#pragma once

#include <string>
#include <string_view>

namespace support {

/// Makes an executable file at `path` that runs `body` by /bin/sh, for a test that needs a program
/// of known behaviour, and returns `path`. Its folder must exist.
///
/// The file is written by another process: a child that is being born in some other thread would
/// otherwise inherit it open for writing, and starting it would fail with ETXTBSY.
std::string WriteStub(const std::string& path, std::string_view body);

}  // namespace support
