#pragma once

/// Marks what a shared library offers to others; everything without it stays inside its library.
#define BRISQ_API __attribute__((visibility("default")))
