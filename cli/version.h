#pragma once

namespace quenby {

/// Prints the version block: copyright, this program's version, the netlink library's version.
void print_version();

/// Prints the version of the netlink library.
void libnl_version();

}  // namespace quenby
