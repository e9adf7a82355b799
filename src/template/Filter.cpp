#include "template/Filter.h"

#include "template/FilterLibrary.h"

namespace drovel::templating {

namespace {

// Registration order is the table's order ("concat" before "compact" included).
constexpr filters::Row filterTable[] = {
    {"abs", filters::abs},
    {"append", filters::append},
    {"at_least", filters::atLeast},
    {"at_most", filters::atMost},
    {"capitalize", filters::capitalize},
    {"ceil", filters::ceil},
    {"concat", filters::concat},
    {"compact", filters::compact},
    {"date", filters::date},
    {"default", filters::defaultValue},
    {"divided_by", filters::dividedBy},
    {"downcase", filters::downcase},
    {"escape", filters::escape},
    {"escape_once", filters::escapeOnce},
    {"first", filters::first},
    {"floor", filters::floor},
    {"join", filters::join},
    {"last", filters::last},
    {"lstrip", filters::lstrip},
    {"map", filters::map},
    {"minus", filters::minus},
    {"modulo", filters::modulo},
    {"newline_to_br", filters::newlineToBr},
    {"plus", filters::plus},
    {"prepend", filters::prepend},
    {"remove", filters::remove},
    {"remove_first", filters::removeFirst},
    {"replace", filters::replace},
    {"replace_first", filters::replaceFirst},
    {"reverse", filters::reverse},
    {"round", filters::round},
    {"rstrip", filters::rstrip},
    {"size", filters::size},
    {"slice", filters::slice},
    {"sort", filters::sort},
    {"sort_natural", filters::sortNatural},
    {"split", filters::split},
    {"strip", filters::strip},
    {"strip_html", filters::stripHtml},
    {"strip_newlines", filters::stripNewlines},
    {"times", filters::times},
    {"truncate", filters::truncate},
    {"truncatewords", filters::truncatewords},
    {"uniq", filters::uniq},
    {"upcase", filters::upcase},
    {"url_decode", filters::urlDecode},
    {"url_encode", filters::urlEncode},
};
static_assert(std::size(filterTable) == 47);

}  // namespace

const std::vector<Filter>& builtinFilters() {
    static const std::vector<Filter> library = [] {
        std::vector<Filter> out;
        out.reserve(std::size(filterTable));
        for (const auto& row : filterTable) out.emplace_back(std::string(row.name), row.function);
        return out;
    }();
    return library;
}

}  // namespace drovel::templating
