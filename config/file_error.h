#pragma once

#include <boost/filesystem.hpp>
#include <cerrno>
#include <string>

namespace quenby {

/// Throws what the system's error number says about `path`.
[[noreturn]] inline void throw_file_error(const char* what, const std::string& path,
                                          int error = errno) {
  throw boost::filesystem::filesystem_error(
      what, path, boost::system::error_code(error, boost::system::system_category()));
}

}  // namespace quenby
