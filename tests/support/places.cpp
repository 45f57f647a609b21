#include "tests/support/places.h"

namespace support {

std::string BuildFolder() { return BRISQ_TEST_BUILD_DIR; }
std::string SourceFolder() { return BRISQ_TEST_SOURCE_DIR; }
std::string TestPluginFolder() { return BRISQ_TEST_PLUGIN_DIR; }

}  // namespace support
