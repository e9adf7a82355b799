// drovel-notify db migrate PATH: opens the Notify database at PATH (creating the file and its
// folder when missing) and migrates it exactly as the module does at start-up.
//
// Success: exit 0 and {"db_version": <n>, "needs_init": <bool>} on standard output. A migration
// that fails is logged on standard error and skipped, as in the module; the printed version then
// shows how far the database got.
// Failure to open (a file that is not a SQLite database, a folder that cannot be made): exit 1,
// nothing on standard output, the message on standard error; the file is left untouched.

#include <iostream>

#include "cli/Command.h"
#include "data/NotifyDBManager.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::cli {

namespace {

int migrate(const std::string& path) {
    try {
        notify::NotifyDBManager manager(path, true);
        const int version = manager.dbManager().dbVersion();
        core::JsonWriter json;
        json.beginObject().key("db_version").value(version).key("needs_init").value(manager.needsInit()).endObject();
        std::cout << json.str() << '\n' << std::flush;
        return 0;
    } catch (const core::DatabaseError& error) {
        std::cerr << error.description() << '\n';
        return 1;
    }
}

void setup(CLI::App& app, int& exitCode) {
    // The path must outlive the parse; the app lives until the process ends.
    static std::string path;
    auto* db = app.add_subcommand("db", "Work with a Notify database file");
    db->require_subcommand(1);
    auto* migrateCommand = db->add_subcommand("migrate", "Open (creating if needed) and migrate a Notify database");
    migrateCommand->add_option("PATH", path, "The database file")->required();
    migrateCommand->callback([&exitCode] { exitCode = migrate(path); });
}

const CommandRegistration registration(21, setup);

}  // namespace

}  // namespace drovel::cli
