#pragma once

#include <cstdint>
#include <string>

/// What is written down of a change while it can be taken back.
namespace quenby {

enum class ChangeState {
  /// The command that makes it has not ended, or has died.
  under_way,
  /// It is made and waits for its confirmation.
  waiting,
  /// It is being taken back, or that has failed.
  taking_back,
};

struct ChangeRecord {
  /// Tells it from any other.
  std::string id;
  /// The command, for people.
  std::string command;
  ChangeState state = ChangeState::under_way;
  /// The boot that the change was made in.
  std::string boot;
  /// When it is taken back, in milliseconds of `now_ms`; in the same boot alone.
  std::int64_t deadline = 0;
  /// Which stored files there were.
  bool had_global = false;
  bool had_tariffs = false;
  /// The WAN interface before the change and after; empty for none.
  std::string former_wan;
  std::string wan;
  /// Whether the kernel held what the stored files ask for, or was to; somebody had stopped the
  /// shaping if not.
  bool was_wanted = false;
  /// Whether there was a note of that.
  bool had_note = false;
};

/// Of a change that begins now: a new id, and this boot.
ChangeRecord new_record(const std::string& command);

/// The record without its state, as JSON.
std::string to_text(const ChangeRecord& record);
/// Throws `NotRun` for a text that is none; `path` is named then.
ChangeRecord record_from(const std::string& text, const std::string& path);

/// Milliseconds since boot, those of a suspended machine too.
std::int64_t now_ms();

bool is_of_this_boot(const ChangeRecord& record);

/// What waits, or what was interrupted, and which commands end that.
std::string describe(const ChangeRecord& record);

}  // namespace quenby
