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

// Templates of at most 64 KB whose work lies inside the visits: values that double, big values
// printed or sorted in long loops, huge ranges, expensive Unicode filters, and an error message
// per pass. Each must be abandoned by the rendering budget.
struct Expensive {
    const char* name;
    std::string text;
};

inline const std::vector<Expensive>& expensiveTemplates() {
    static const std::vector<Expensive> shapes = [] {
        std::string sixtyKilobytes = repeated("abcdefghij", 6000);
        std::string commaList;
        for (int i = 0; commaList.size() < 60000; ++i) commaList += std::to_string(i * 7919 % 10007) + ",";
        // "é" doubled `times` times, then a filter chain printed in a long loop.
        auto accents = [](int times, std::string_view chain) {
            return "{% assign x = \"\xC3\xA9\" %}{% for i in (1.." + std::to_string(times) +
                   ") %}{% assign x = x | append: x %}{% endfor %}{% for i in (1..300000) %}{{ x | " + std::string(chain) +
                   " }}{% endfor %}";
        };
        return std::vector<Expensive>{
            {"doubling append",
             "{% assign x = \"ab\" %}{% for i in (1..40) %}{% assign x = x | append: x %}{% endfor %}{{ x | size }}"},
            {"doubling capture",
             "{% assign x = \"ab\" %}{% for i in (1..40) %}{% capture x %}{{ x }}{{ x }}{% endcapture %}{% endfor %}"
             "{{ x | size }}"},
            {"big value printed",
             "{% assign x = \"" + sixtyKilobytes + "\" %}{% for i in (1..300000) %}{{ x }}{% endfor %}"},
            {"big list sorted",
             "{% assign s = \"" + commaList + "\" %}{% for i in (1..300000) %}{{ s | split: \",\" | sort | size }}{% endfor %}"},
            {"huge range", "{% for i in (1..9223372036854775807) %}{% endfor %}"},
            {"loops with cycles and captures",
             "{% for i in (1..90000000) %}{% cycle 'a', 'b', 'c' %}{% capture c %}{{ i }}{% cycle g: 1, 2 %}{% endcapture %}"
             "{% for j in (1..90000000) %}{{ c }}{% increment n %}{% endfor %}{% endfor %}"},
            {"accents doubled 16 times", accents(16, "upcase | size")},
            {"accents upcased", accents(15, "upcase | size")},
            {"accents split and sorted", accents(15, "split: \"\" | sort | size")},
            {"accents replaced", accents(15, "replace: \"\xC3\xA9\", \"e\" | size")},
            {"accents escaped", accents(15, "escape | size")},
            {"replacement at every match",
             "{% assign x = \"" + repeated("a", 30000) + "\" %}{{ x | replace: \"a\", x | size }}"},
            {"long separator", "{% assign x = \"" + repeated(",", 30000) + "\" %}{{ x | split: \"\" | join: x | size }}"},
            {"error per pass", "{% for i in (1..400000) %}{{ 1 == " + repeated("v", 4000) + " }}{% endfor %}"},
        };
    }();
    return shapes;
}

}  // namespace drovel::templating::testing
