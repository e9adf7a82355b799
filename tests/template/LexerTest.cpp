// The lexer: statements, raw blocks, unclosed delimiters, and matching on character boundaries.

#include <gtest/gtest.h>

#include "template/Lexer.h"

namespace drovel::templating {
namespace {

std::vector<Token> lex(std::string_view text) {
    auto tokens = Lexer(text).tokenize();
    return {tokens.begin(), tokens.end()};
}

std::string show(const std::vector<Token>& tokens) {
    std::string out;
    for (const auto& token : tokens) out += std::string(kindName(token.kind)) + "[" + std::string(token.value) + "] ";
    return out;
}

TEST(Lexer, Tokens) {
    const auto T = Token::text, V = Token::variable, G = Token::tag;
    const std::pair<std::string_view, std::vector<Token>> cases[] = {
        {"", {}}, {"plain text", {T("plain text")}}, {"Hi {{ name }}!", {T("Hi "), V("name"), T("!")}},
        {"{{name}}", {V("name")}}, {"{{   name  }}", {V("name")}}, {"{{ name\n}}", {V("name\n")}},
        {"{{\tname }}", {V("\tname")}}, {"{{}}", {V("")}}, {"{%}", {G("")}}, {"{%- if x -%}", {G("- if x -")}},
        {"{{   }}", {V("")}}, {"{%  %}", {G("")}},
        {"a{% if x %}b{% endif %}", {T("a"), G("if x"), T("b"), G("endif")}}, {"{{{ x }}}", {V("{ x"), T("}")}},
        {"line 1\n{{ x }}\r\n", {T("line 1\n"), V("x"), T("\r\n")}},
        {"{% raw %}{{ x }}{% endraw %}", {T("{{ x }}"), G("endraw")}}, {"{% raw %}{{ x }}{%endraw%}", {T("")}},
        {"{% raw %}{% endraw %}tail", {T(""), G("endraw"), T("tail")}}, {"a {{ b", {T("a "), T("")}},
        {"a {% b", {T("a "), T("")}}, {"a }} b", {T("a }} b")}}, {"{{ 'x}}y' }}", {V("'x"), T("y' }}")}},
        {"{{ a }}{% b %}", {V("a"), G("b")}}, {"{%}}", {G(""), T("}")}}, {"{% a } b %}", {G("a } b")}},
        {"{{ a } }}}", {V("a }"), T("}")}}, {"{% a %%}", {G("a %")}}, {"{{ a %}", {T("")}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(show(lex(text)), show(expected)) << text;
}

TEST(Lexer, DelimitersMatchOnlyOnCharacterBoundaries) {
    const auto T = Token::text, V = Token::variable, G = Token::tag;
    const std::pair<std::string_view, std::vector<Token>> cases[] = {
        // "{{" followed by a combining acute accent is "{" and "{́", not an opening delimiter.
        {"a{{\xCC\x81 x }}", {T("a{{\xCC\x81 x }}")}},
        // A closing brace joined to a following combining mark does not close.
        {"{{ x }}\xCC\x81 y }}", {V("x }}\xCC\x81 y")}},
        // An Arabic number sign (a prepended character) swallows the brace after it.
        {"\xD8\x80{{ x }}", {T("\xD8\x80{{ x }}")}}, {"é{{ x }}", {T("é"), V("x")}},
        {"{% if x %}\xCC\x81 %}b", {G("if x %}\xCC\x81"), T("b")}},
        {"{% raw %}a\xD8\x80{% endraw %}{% endraw %}", {T("a\xD8\x80{% endraw %}"), G("endraw")}},
        // Ill-formed UTF-8 is carried through untouched.
        {"\xFF{{ \xC3 }}\x80", {T("\xFF"), V("\xC3"), T("\x80")}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(show(lex(text)), show(expected)) << text;
}

}  // namespace
}  // namespace drovel::templating
