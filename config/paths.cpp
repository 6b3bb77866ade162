#include "config/paths.h"

#include "config/durable_file.h"
#include "config/file_error.h"

namespace quenby {

void make_config_directory() {
  if (!boost::filesystem::create_directories(kConfigDirectory)) return;
  for (const char* made : {kConfigDirectory, kConfigParent}) {
    if (!sync_folder_of(made)) throw_file_error("cannot sync folder", made);
  }
}

}  // namespace quenby
