#pragma once

namespace quenby {

/// This program's version, as "0.7".
const char* version();

/// Prints the version block: copyright, this program's version, the netlink library's version.
void print_version();

/// Prints the version of the netlink library.
void libnl_version();

}  // namespace quenby
