#pragma once

#include <string>

#include "brisq_export.h"

/// Who this process works for, for lists that people read: the name of the user who logged in, as
/// the system's audit knows it, else of the real user; a number where there is no name. "alice as
/// root" when the two differ.
BRISQ_API std::string ActingUser();
