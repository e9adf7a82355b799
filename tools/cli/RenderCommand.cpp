// drovel-notify render: renders a template text the way notification texts are rendered.

#include <iostream>
#include <map>
#include <string>

#include "cli/Command.h"
#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "template/Render.h"

namespace drovel::cli {

namespace {

using templating::Token;

// JSON to template values: a number written without fraction or exponent is an integer (a
// decimal when it does not fit in 64 bits), any other number a decimal read from its text.
Token::Value readValue(core::JsonReader& reader, core::JsonValue value) {
    switch (reader.check(value.type(), "malformed value")) {
        case simdjson::ondemand::json_type::object: {
            Token::Value::Dictionary entries;
            reader.object(value, [&](std::string_view key, core::JsonValue member) {
                entries.set(key, readValue(reader, member));
            });
            return Token::Value::dictionary(std::move(entries));
        }
        case simdjson::ondemand::json_type::array: {
            Token::Value::Array elements;
            reader.array(value, [&](core::JsonValue element) { elements.push_back(readValue(reader, element)); });
            return Token::Value::array(std::move(elements));
        }
        case simdjson::ondemand::json_type::string:
            return Token::Value::string(std::string(reader.string(value)));
        case simdjson::ondemand::json_type::number: {
            std::string_view text = reader.rawJson(value);
            if (text.find_first_of(".eE") == std::string_view::npos)
                if (auto integer = templating::parseInteger(text)) return Token::Value::integer(*integer);
            auto number = templating::Decimal::parse(text);
            if (!number) reader.fail("number out of the decimal range");
            return Token::Value::decimal(*number);
        }
        case simdjson::ondemand::json_type::boolean:
            return Token::Value::boolean(reader.boolean(value));
        case simdjson::ondemand::json_type::null:
            reader.isNull(value);
            return Token::Value::nil();
    }
    return Token::Value::nil();
}

core::Result<Token::Value::Dictionary> parseVariables(const std::string& json) {
    return core::decodeJson<Token::Value::Dictionary>(json, [](core::JsonReader& reader, core::JsonValue root) {
        Token::Value::Dictionary variables;
        reader.object(root, [&](std::string_view key, core::JsonValue member) {
            variables.set(key, readValue(reader, member));
        });
        return variables;
    });
}

core::Result<std::map<std::string, std::string>> parseApp(const std::string& json) {
    return core::decodeJson<std::map<std::string, std::string>>(json, [](core::JsonReader& reader, core::JsonValue root) {
        std::map<std::string, std::string> app;
        reader.object(root, [&](std::string_view key, core::JsonValue member) {
            app[std::string(key)] = std::string(reader.string(member));
        });
        return app;
    });
}

void setup(CLI::App& app, int& exitCode) {
    struct Arguments {
        std::string vars, app, text;
        bool json = false;
        int repeat = 1;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = app.add_subcommand("render", "Render a template text as notification texts are rendered");
    command->add_option("--vars", arguments->vars, "A JSON object whose members become the template's variables");
    command->add_option("--app", arguments->app,
                        "A JSON object of strings, given to the template as \"app\" like the custom template content");
    command->add_flag("--json", arguments->json, "Print {\"output\", \"rendered\", \"parse_errors\"} as JSON");
    command->add_option("--repeat", arguments->repeat, "Render this many times and print once")
        ->check(CLI::Range(1, 1'000'000'000));
    command->add_option("TEMPLATE", arguments->text, "The template text, or - for standard input")->required();
    command->callback([arguments, &exitCode] {
        auto fail = [&](const std::string& what, const core::ErrorPtr& error) {
            std::cerr << "drovel-notify render: " << what << ": " << error->description() << '\n';
            exitCode = 2;
        };
        Token::Value::Dictionary variables;
        if (!arguments->vars.empty()) {
            auto parsed = parseVariables(arguments->vars);
            if (!parsed) return fail("--vars", parsed.error());
            variables = std::move(parsed.value());
        }
        if (!arguments->app.empty()) {
            auto parsed = parseApp(arguments->app);
            if (!parsed) return fail("--app", parsed.error());
            // Exactly the notification set-up's "app" variable.
            variables.set("app", *templating::makeAppContext(parsed.value())->getValue("app"));
        }
        auto input = textOrStandardInput(arguments->text);
        if (!input) {
            exitCode = 1;
            return;
        }
        const std::string& text = *input;

        templating::Rendering rendering;
        for (int pass = 0; pass < arguments->repeat; ++pass) {
            // A fresh context each time: tags may change it, and every pass should print alike.
            rendering = templating::renderTemplate(text, std::make_shared<templating::Context>(variables));
        }
        if (arguments->json) {
            core::JsonWriter json;
            json.beginObject().key("output").value(rendering.output).key("rendered").value(rendering.rendered);
            json.key("parse_errors").beginArray();
            for (const auto& message : rendering.parseErrors) json.value(message);
            json.endArray().endObject();
            std::cout << json.str() << '\n';
        } else {
            std::cout << rendering.rendered << '\n';
        }
        exitCode = 0;
    });
}

const CommandRegistration registration(30, setup);

}  // namespace

}  // namespace drovel::cli
