#pragma once

#include <functional>

#include "brisq_export.h"

/// Runs both calls, at the same time when the system gives a thread for the second, and returns
/// when both have ended.
/// @throws what one of them throws, the first one's before the second's
BRISQ_API void InTwo(const std::function<void()>& first, const std::function<void()>& second);
