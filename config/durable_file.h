#pragma once

#include <string>

/// Changes of files that outlast a crash, whenever it comes.
namespace quenby {

/// Brings the names in the folder that holds `path` to the disk. False with `errno` set when that
/// fails; a file system that syncs no folders is no failure.
bool sync_folder_of(const std::string& path);

/// Writes what `from` holds to `to`, which stands and is empty. Throws
/// `boost::filesystem::filesystem_error`.
void copy_contents(const std::string& from, const std::string& to);

/// Makes `path` ready to take the place of `target`: with its owner and mode, or the mode of any
/// new file where there is no `target`, and on the disk. Throws
/// `boost::filesystem::filesystem_error`.
void finish_file(const std::string& path, const std::string& target);

/// Removes the file, on the disk too. False when there was none. Throws
/// `boost::filesystem::filesystem_error`.
bool remove_file(const std::string& path);

/// Appends `text` on a line of its own, with one write, and brings it to the disk; makes a file
/// that is missing. False when not all of that succeeded; then the file is as it was before.
bool append_text(const std::string& path, const std::string& text);

}  // namespace quenby
