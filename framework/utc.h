#pragma once

#include <chrono>
#include <string>

#include "brisq_export.h"

/// A time as text in UTC, "2024-01-31T23:59:59Z". Texts order as their times do.
BRISQ_API std::string UtcText(std::chrono::system_clock::time_point time);
