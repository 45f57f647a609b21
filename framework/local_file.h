#pragma once

#include "brisq_export.h"

/// True for a file on a file system that this machine alone works on: it keeps everybody who would
/// write from passing a lease, and takes the times of changes from this machine's clock. False for
/// all others, and where that can't be told.
BRISQ_API bool IsLocalFile(int fd) noexcept;
