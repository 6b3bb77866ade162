#include <iostream>

#include "ctl/check.h"
#include "ctl/plan.h"

namespace {

using namespace quenby;

// What CLI11 has to say of a call: help on standard output, a complaint on standard error.
Status answer(const CLI::App& app, const CLI::ParseError& error) {
  return app.exit(error) == 0 ? kFine : kNotRun;
}

Status run(int argc, const char* const* argv) {
  CLI::App app("Checks, foresees and watches what quenby does.", "quenbyctl");
  app.require_subcommand(1);
  Work work;
  add_check(app, work);
  add_plan(app, work);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return answer(app, error);
  }
  return work();
}

}  // namespace

int main(int argc, char* argv[]) {
  Status status = kNotRun;
  try {
    status = run(argc, argv);
    std::cout << std::flush;
  } catch (const std::exception& e) {
    std::cerr << "quenbyctl: " << e.what() << '\n';
  }
  // What was not printed was not said.
  return std::cout.good() ? status : kNotRun;
}
