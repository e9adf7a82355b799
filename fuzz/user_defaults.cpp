// The user-defaults file reader; what it reads is written back and read again alike.

#include <cstdlib>

#include "FuzzInput.h"
#include "linux/UserDefaultsJson.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::platform;
    auto values = decodeUserDefaults(drovel::fuzz::text(data, size));
    if (!values) return 0;
    auto again = decodeUserDefaults(encodeUserDefaults(values.value()));
    if (!again) std::abort();
    return 0;
}
