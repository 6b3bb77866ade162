#pragma once

namespace quenby {

/// Whether standard output is a terminal that shows colours, and the operator has not asked for
/// none with the environment variable NO_COLOR.
bool stdout_has_colours();

}  // namespace quenby
