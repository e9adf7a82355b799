#pragma once
// Templates built to make the engine work hard, scaled by a repetition count. Shared by the
// rendering tests (which count the work) and the hostile-template benchmark (which times it).

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace drovel::templating::testing {

inline std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    out.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) out += piece;
    return out;
}

struct Hostile {
    const char* name;
    std::function<std::string(std::size_t)> make;  // a template of roughly n repetitions
};

// Shapes whose size grows with n; rendered with a = 1 in the context.
inline const std::vector<Hostile>& hostileTemplates() {
    static const std::vector<Hostile> shapes{
        {"plain text", [](std::size_t n) { return repeated("lorem ipsum ", n); }},
        {"nested ifs", [](std::size_t n) { return repeated("{% if true %}", n) + "x" + repeated("{% endif %}", n); }},
        {"unclosed nested ifs", [](std::size_t n) { return repeated("{% if true %}<", n); }},
        {"elsif chain", [](std::size_t n) { return "{% if false %}" + repeated("{% elsif false %}-", n) + "{% else %}e{% endif %}"; }},
        {"unclosed output", [](std::size_t n) { return "a" + repeated("{{ x ", n); }},
        {"lone braces", [](std::size_t n) { return repeated("{x}%{ ", n); }},
        {"unterminated raw", [](std::size_t n) { return "{% raw %}" + repeated("{{ x }}{% endraw%}", n); }},
        {"statements", [](std::size_t n) { return repeated("{{ a | plus: 1 }} {% assign a = a | plus: 1 %}", n); }},
        {"long expression", [](std::size_t n) { return "{{ a == 1" + repeated(" and a == 1", n) + " }}"; }},
        {"range-like operand", [](std::size_t n) { return "{{ " + repeated("(a..(", n) + " }}"; }},
        {"deep key path", [](std::size_t n) { return "{{ a" + repeated(".a", n) + " }}"; }},
        {"combining marks", [](std::size_t n) { return "{{ x " + repeated("}}\xCC\x81{{\xCC\x81", n); }},
        {"invalid UTF-8", [](std::size_t n) { return repeated("\xFF{{\xC3 x\xE2\x82 }}\x80{%\xF0 if \xC0 %}", n); }},
    };
    return shapes;
}

}  // namespace drovel::templating::testing
