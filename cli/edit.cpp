#include "cli/edit.h"

#include "cli/config_input.h"
#include "cli/refused.h"
#include "config/read_config.h"

namespace quenby {
namespace {

constexpr const char* kWrongTariffs = "wrong tariff configuration";
constexpr const char* kWrongNewTariffs = "wrong new tariff configuration";

void read_given(const std::string& path, Edit& edit, const char* message) {
  if (auto error = read_named(path, edit.given)) throw Refused(message, std::move(error));
}

// Both stored files. False when there is no tariff file.
bool read_stored_files(Edit& edit) {
  Stored stored = load_stored();
  edit.line_before = edit.line = std::move(stored.global);
  edit.stored = edit.tariffs = std::move(stored.tariffs);
  return stored.has_tariffs;
}

void number_new(Edit& edit) {
  if (!edit.tariffs.addIDs(edit.added)) throw Refused("wrong tariff configuration: already exists");
}

// To a list that is new or renumbered, which everything is built from, enabled or not.
void start(Edit& edit) {
  renumber(edit.tariffs);
  number_new(edit);
  edit.tariffs.update(edit.added, false, true);
  edit.work = KernelWork::rebuild_always;
  edit.save = TariffSave::whole;
}

// To a list whose class numbers fit.
void extend(Edit& edit) {
  number_new(edit);
  if (edit.line.global.enabled) {
    edit.work = KernelWork::change;
    edit.save = TariffSave::append;
  } else {
    prepare_whole_save(edit.tariffs);
    edit.save = TariffSave::whole;
  }
  edit.tariffs.update(edit.added, false, false);
}

// What an enabled line does where the stored numbers do not fit.
void rebuild_renumbered(Edit& edit) {
  renumber(edit.tariffs);
  edit.work = KernelWork::rebuild;
  edit.save = TariffSave::whole;
}

KernelWork change_if_enabled(const Edit& edit) {
  return edit.line.global.enabled ? KernelWork::change : KernelWork::none;
}

}  // namespace

bool is_shaped(const GlobalSet& line, const TariffSet& tariffs) {
  return line.global.enabled && (line.has_global || line.has_default || !tariffs.empty());
}

Edit edit_of_load() {
  Edit edit;
  read_stored_files(edit);
  if (renumber_unfit(edit.tariffs)) edit.save = TariffSave::whole_first;
  edit.work = KernelWork::build;
  return edit;
}

Edit edit_of_reload() {
  Edit edit;
  read_stored_files(edit);
  rebuild_renumbered(edit);
  return edit;
}

Edit edit_of_add(const std::string& path) {
  Edit edit;
  read_given(path, edit, kWrongTariffs);
  edit.added = edit.given;
  if (read_stored_files(edit) && edit.stored.numbersFit()) {
    extend(edit);
  } else {
    start(edit);
  }
  return edit;
}

Edit edit_of_delete(const std::string& name) {
  Edit edit;
  read_stored_files(edit);
  for (const TariffSettings& tariff : edit.stored.allOf(name)) edit.removed.addTariff(tariff);
  if (edit.removed.empty()) throw Refused("tariff does not exist");
  edit.tariffs.remove(edit.removed);
  if (edit.line.global.enabled && !edit.stored.numbersFit()) {
    rebuild_renumbered(edit);
  } else {
    edit.work = change_if_enabled(edit);
    edit.save = TariffSave::remove;
  }
  return edit;
}

Edit edit_of_tariff_update(const std::string& path) {
  Edit edit;
  read_given(path, edit, kWrongNewTariffs);
  read_stored_files(edit);
  if (!edit.tariffs.fillIDs(edit.given, false)) throw Refused(kWrongNewTariffs);
  collect_differences(edit.stored, edit.given, edit.line.global.shapes_ipv6(), edit.removed,
                      edit.added);
  edit.tariffs.update(edit.given, false, false);
  if (edit.line.global.enabled && !edit.stored.numbersFit()) {
    rebuild_renumbered(edit);
  } else {
    edit.work = change_if_enabled(edit);
    edit.save = TariffSave::replace;
  }
  return edit;
}

Edit edit_of_update(const std::string& path) {
  Edit edit;
  read_given(path, edit, kWrongTariffs);
  const bool stored = read_stored_files(edit);
  if (!edit.tariffs.fillIDs(edit.given, true)) throw Refused(kWrongNewTariffs);
  const bool fit = stored && edit.tariffs.numbersFit();
  if (!fit && !edit.tariffs.refillIDs()) throw Refused(kWrongTariffs);
  collect_differences(edit.stored, edit.given, edit.line.global.shapes_ipv6(), edit.removed,
                      edit.added);
  for (const TariffSettings& tariff : edit.stored.tariffs()) {
    if (!edit.given.exists(tariff.name)) edit.removed.addTariff(tariff);
  }
  edit.removed.sort();
  edit.tariffs.update(edit.given, true, false);
  if (fit) {
    edit.work = change_if_enabled(edit);
    edit.save = TariffSave::whole;
  } else {
    rebuild_renumbered(edit);
  }
  return edit;
}

Edit edit_of_global_update(const std::string& path) {
  Edit edit;
  if (auto error = read_named(path, edit.line))
    throw Refused("wrong new global configuration", std::move(error));
  load_tariff_config(edit.stored);
  edit.tariffs = edit.stored;
  if (renumber_unfit(edit.tariffs)) edit.save = TariffSave::whole;
  load_global_config(edit.line_before);
  edit.work = KernelWork::rebuild;
  edit.save_line = true;
  return edit;
}

}  // namespace quenby
