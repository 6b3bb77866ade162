#pragma once

#include <chrono>
#include <string>

/// A timer of systemd that takes a change back when its time has come. It lives in neither the
/// terminal nor the session of whoever began the change.
namespace quenby {

/// Whether systemd runs this router.
bool has_timers();

/// Starts the timer of the change with this id. Throws `NotRun`.
void start_timer(const std::string& id, std::chrono::seconds time);

/// Stops it, if that is possible. One that finds no change does nothing.
void stop_timer(const std::string& id);

}  // namespace quenby
