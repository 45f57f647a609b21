// A library like any other: it registers nothing.
#include "brisq_export.h"

extern "C" BRISQ_API int brisq_test_no_plugin() { return 0; }
