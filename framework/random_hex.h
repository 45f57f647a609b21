#pragma once

#include <string>

#include "brisq_export.h"

/// 16 hexadecimal digits by chance, for names that nobody can guess or has taken.
/// @throws mgr_err::Error "internal" when the system has no random numbers
BRISQ_API std::string RandomHex();
