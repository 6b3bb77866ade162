#include "config/paths.h"

#include <boost/filesystem.hpp>

namespace quenby {

void make_config_directory() { boost::filesystem::create_directories(kConfigDirectory); }

}  // namespace quenby
