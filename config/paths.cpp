#include "config/paths.h"

#include "config/durable_file.h"
#include "config/file_error.h"

namespace quenby {

void make_config_directory(const std::string& folder) {
  if (!boost::filesystem::create_directories(folder)) return;
  const std::string parent = boost::filesystem::path(folder).parent_path().string();
  for (const std::string& made : {folder, parent}) {
    if (!sync_folder_of(made)) throw_file_error("cannot sync folder", made);
  }
}

}  // namespace quenby
