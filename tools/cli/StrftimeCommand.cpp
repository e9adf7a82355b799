// drovel-notify strftime: a date formatted the way the "date" filter formats it.

#include <charconv>
#include <cmath>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "template/STRFTimeFormatter.h"

namespace drovel::cli {

namespace {

void setup(CLI::App& app, int& exitCode) {
    struct Arguments {
        bool utc = false;
        std::string format, seconds;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = app.add_subcommand("strftime", "Format a date with a C strftime format");
    command->add_flag("--utc", arguments->utc, "Use UTC instead of the local time zone (TZ)");
    command->add_option("FORMAT", arguments->format, "The strftime format")->required();
    command->add_option("EPOCH_SECONDS", arguments->seconds, "Seconds since 1970-01-01 00:00:00 UTC")->required();
    command->callback([arguments, &exitCode] {
        const std::string& text = arguments->seconds;
        double seconds = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
        // The formatter only takes times that fit a 64-bit count of seconds.
        if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(seconds) ||
            seconds < -0x1p63 || seconds >= 0x1p63) {
            std::cerr << "EPOCH_SECONDS must be a number of seconds within the 64-bit range: " << text << '\n';
            exitCode = 2;
            return;
        }
        templating::STRFTimeFormatter formatter;
        formatter.formatString = arguments->format;
        formatter.useUniversalTimeLocale = arguments->utc;
        std::optional<std::string> formatted;
        try {
            formatted = formatter.string(seconds);
        } catch (const std::exception& error) {
            // The range check above keeps this from happening; no exception may leave a command.
            std::cerr << error.what() << '\n';
            exitCode = 2;
            return;
        }
        if (!formatted) {
            std::cerr << "The format gives no text for this date\n";
            exitCode = 1;
            return;
        }
        std::cout << *formatted << '\n';
        exitCode = 0;
    });
}

const CommandRegistration registration(62, setup);

}  // namespace

}  // namespace drovel::cli
