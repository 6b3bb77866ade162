#include "ctl/command_line.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "cli/version.h"
#include "ctl/apply.h"
#include "ctl/check.h"
#include "ctl/confirm.h"
#include "ctl/export.h"
#include "ctl/plan.h"
#include "ctl/repair.h"
#include "ctl/top.h"
#include "ctl/verify.h"
#include "ctl/who.h"

// The library takes longer to compile than all else: it is included here alone.
namespace quenby {
namespace {

// Has the subcommand call `function` with what it has read.
template <typename Options>
void calls(CLI::App& command, const std::shared_ptr<Options>& options,
           Status (*function)(const Options&), Work& work) {
  command.callback(
      [options, function, &work] { work = [options, function] { return function(*options); }; });
}

void add_json(CLI::App& command, bool& json) { command.add_flag("--json", json, "Print JSON"); }

void add_check(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand(
      "check", "Say where the program would refuse a file, and what is surely not meant");
  const auto options = std::make_shared<CheckOptions>();
  command.add_option("--global", options->global, "A global file, in the stored one's place")
      ->type_name("FILE");
  command.add_option("--tariffs", options->tariffs, "A tariff file, in the stored one's place")
      ->type_name("FILE");
  command.add_option("--kind", options->kind, "How the program would be given the files")
      ->check(CLI::IsMember({"named", "stored"}));
  add_json(command, options->json);
  calls(command, options, check, work);
}

// The command is what it returns.
CLI::Option* add_command(CLI::App& command, Command& what, const std::string& description) {
  CLI::Option* const option =
      command.add_option("command", what.name, description)->check(CLI::IsMember(command_names()));
  command.add_option("argument", what.argument, "Its file, or the tariff's name");
  return option;
}

void add_plan(CLI::App& app, Work& work) {
  CLI::App& command =
      *app.add_subcommand("plan", "Say what a command of quenby would do, and do nothing");
  const auto options = std::make_shared<PlanOptions>();
  add_command(command, options->command, "The command, load if none is given");
  add_json(command, options->json);
  calls(command, options, plan, work);
}

void add_verify(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand(
      "verify", "Say in what the kernel differs from what the stored files ask for");
  const auto options = std::make_shared<VerifyOptions>();
  add_json(command, options->json);
  calls(command, options, verify, work);
}

void add_repair(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand(
      "repair", "Bring the kernel to what the stored files ask for, and touch nothing else");
  const auto options = std::make_shared<RepairOptions>();
  command.add_flag("--no-connections", options->no_connections,
                   "Leave the marks of open connections as they are");
  add_json(command, options->json);
  calls(command, options, repair, work);
}

void expect_command(const ApplyOptions& options) {
  if (!options.take_back && options.command.name.empty()) throw CLI::RequiredError("command");
}

void add_apply(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand(
      "apply", "Do what a command of quenby would do, and take it back if anything fails");
  const auto options = std::make_shared<ApplyOptions>();
  CLI::Option* const name = add_command(command, options->command, "The command");
  CLI::Option* const confirm =
      command
          .add_option("--confirm", options->confirm, "Take it back unless it is confirmed in time")
          ->type_name("SECONDS")
          ->check(CLI::Range(1U, kLongestConfirmation));
  CLI::Option* const back =
      command
          .add_flag("--take-back", options->take_back, "Take back what waits or was interrupted")
          ->excludes(name)
          ->excludes(confirm);
  command
      .add_flag("--when-due", options->when_due, "Only when its time has come, which is waited for")
      ->needs(back);
  add_json(command, options->json);
  command.callback([options, &work] {
    expect_command(*options);
    work = [options] { return apply(*options); };
  });
}

void add_confirm(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand("confirm", "Keep the change that waits for it");
  const auto options = std::make_shared<ConfirmOptions>();
  add_json(command, options->json);
  calls(command, options, confirm, work);
}

void add_who(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand("who", "Say whose an address is, and where that differs");
  const auto options = std::make_shared<WhoOptions>();
  command.add_option("address", options->addresses, "IPv4 or IPv6 addresses")->required();
  add_json(command, options->json);
  calls(command, options, who, work);
}

void add_export(CLI::App& app, Work& work) {
  CLI::App& command =
      *app.add_subcommand("export", "Print the counters and rates of all classes for programs");
  const auto options = std::make_shared<ExportOptions>();
  CLI::Option* const format =
      command.add_option("--format", options->format, "The format, prometheus if none is given")
          ->check(CLI::IsMember(export_formats()));
  command
      .add_flag_callback(
          "--json", [options] { options->format = "json"; }, "The same as --format json")
      ->excludes(format);
  command.add_option("--output", options->output, "Write a file in place of standard output")
      ->type_name("FILE");
  calls(command, options, export_counters, work);
}

void add_top(CLI::App& app, Work& work) {
  CLI::App& command = *app.add_subcommand("top", "Show live what every tariff uses");
  const auto options = std::make_shared<TopOptions>();
  command.add_option("--interval", options->interval, "Seconds between two looks, 1 if not given")
      ->check(CLI::Range(0.1, 3600.0));
  command.add_option("--sort", options->order, "What comes first, the rate if not given")
      ->check(CLI::IsMember(top_orders()));
  command.add_option("--filter", options->filter, "Only tariffs with this name or address")
      ->type_name("TEXT");
  command.add_flag("--once", options->once, "Print one screen with all rows, and end");
  command.add_flag("--json", options->json, "Print JSON, and end");
  calls(command, options, top, work);
}

}  // namespace

Work read_command_line(int argc, const char* const* argv) {
  CLI::App app("Checks, foresees, watches and takes back what quenby does.", "quenbyctl");
  app.set_version_flag("--version", std::string("quenbyctl ") + version());
  app.require_subcommand(1);
  Work work;
  add_check(app, work);
  add_plan(app, work);
  add_apply(app, work);
  add_confirm(app, work);
  add_verify(app, work);
  add_repair(app, work);
  add_who(app, work);
  add_export(app, work);
  add_top(app, work);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const Status status = app.exit(error) == 0 ? kFine : kNotRun;
    return [status] { return status; };
  }
  return work;
}

}  // namespace quenby
