#pragma once

#include <chrono>
#include <ctime>
#include <string>

#include "brisq_export.h"

// Times as text in UTC, "2024-01-31T23:59:59Z". Texts order as their times do. Any thread.

BRISQ_API std::string UtcText(std::time_t time);
BRISQ_API std::string UtcText(std::chrono::system_clock::time_point time);
BRISQ_API std::string UtcNow();

/// The time that such a text names.
/// @throws mgr_err::Error "internal" for any other text
BRISQ_API std::time_t UtcTime(const std::string& text);
