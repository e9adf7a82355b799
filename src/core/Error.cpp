#include "drovel/core/Error.h"

#include <cstdio>
#include <cstdlib>

namespace drovel::core {

void programmingError(std::string_view message) {
    std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(message.size()), message.data());
    std::fflush(stderr);
    std::abort();
}

}  // namespace drovel::core
