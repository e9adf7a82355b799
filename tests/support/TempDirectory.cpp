#include "support/TempDirectory.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace drovel::testing {

std::string fileContents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TempDirectory::TempDirectory(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) throw std::runtime_error("mkdtemp failed for " + pattern);
    path_ = buffer.data();
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace drovel::testing
