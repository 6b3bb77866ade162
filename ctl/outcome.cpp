#include "ctl/outcome.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "ctl/json.h"

namespace quenby {
namespace {

using Kind = Outcome::Kind;

const char* word(Kind kind) {
  switch (kind) {
    case Kind::applied:
      return "applied";
    case Kind::waiting:
      return "waiting";
    case Kind::confirmed:
      return "confirmed";
    case Kind::taken_back:
      return "taken back";
    case Kind::refused:
      return "refused";
    case Kind::none:
      return "none";
    case Kind::stuck:
      return "stuck";
  }
  return "";
}

nlohmann::json or_null(const std::string& text) {
  return text.empty() ? nlohmann::json() : nlohmann::json(text);
}

nlohmann::json to_json(const Outcome& outcome) {
  return {{"outcome", word(outcome.kind)},
          {"command", or_null(outcome.command)},
          {"reason", or_null(outcome.reason)},
          {"differences", outcome.differences},
          {"seconds", outcome.seconds ? nlohmann::json(*outcome.seconds) : nlohmann::json()}};
}

std::string good_news(const Outcome& outcome) {
  if (outcome.kind != Kind::waiting) return word(outcome.kind);
  return "applied; taken back in " + std::to_string(*outcome.seconds) +
         " s unless \"quenbyctl confirm\" comes";
}

std::string bad_news(const Outcome& outcome) {
  switch (outcome.kind) {
    case Kind::refused:
      return "quenby refuses this: " + outcome.reason;
    case Kind::none:
      return "no change waits";
    case Kind::taken_back:
      return outcome.reason + "\nquenbyctl: taken back: files and kernel are the former ones";
    default:
      return outcome.reason;
  }
}

bool is_good(const Outcome& outcome) {
  return outcome.kind == Kind::applied || outcome.kind == Kind::waiting ||
         outcome.kind == Kind::confirmed ||
         (outcome.kind == Kind::taken_back && outcome.reason.empty());
}

}  // namespace

void show(const Outcome& outcome, bool json) {
  if (json) {
    std::cout << printed(to_json(outcome));
  } else if (is_good(outcome)) {
    std::cout << good_news(outcome) << '\n';
  } else {
    for (const std::string& line : outcome.differences) std::cerr << line << '\n';
    std::cerr << "quenbyctl: " << bad_news(outcome) << '\n';
  }
}

}  // namespace quenby
