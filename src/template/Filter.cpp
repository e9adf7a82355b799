#include "template/Filter.h"

#include "template/FilterLibrary.h"

namespace drovel::templating {

namespace {

// Registration order is the table's order.
constexpr filters::Row filterTable[] = {
    {"plus", filters::plus},
};

}  // namespace

const std::vector<Filter>& builtinFilters() {
    static const std::vector<Filter> library = [] {
        std::vector<Filter> out;
        for (const auto& row : filterTable) out.emplace_back(std::string(row.name), row.function);
        return out;
    }();
    return library;
}

}  // namespace drovel::templating
