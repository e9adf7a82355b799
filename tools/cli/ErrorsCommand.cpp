// drovel-notify errors: the module's error kinds as JSON lines, in raw-value order.

#include <iostream>

#include "cli/Command.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyError.h"

namespace drovel::cli {

namespace {

void setup(CLI::App& app, int& exitCode) {
    auto* command = app.add_subcommand("errors", "Print every error kind as a JSON line");
    command->callback([&exitCode] {
        using namespace drovel::notify;
        for (int raw = 0; raw < notifyErrorTypeCount; ++raw) {
            auto type = *notifyErrorTypeFromRawValue(raw);
            core::JsonWriter json;
            json.beginObject()
                .key("raw").value(raw)
                .key("case").value(string(type))
                .key("string").value(string(type))
                .key("description").value(description(type))
                .endObject();
            std::cout << json.str() << '\n';
        }
        exitCode = 0;
    });
}

const CommandRegistration registration(90, setup);

}  // namespace

}  // namespace drovel::cli
