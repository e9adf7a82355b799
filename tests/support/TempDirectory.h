#pragma once
// A fresh folder under the system's temporary folder, removed with its contents when destroyed.

#include <string>

namespace drovel::testing {

// The bytes of a file; empty when it cannot be read.
std::string fileContents(const std::string& path);

class TempDirectory {
public:
    // prefix names the folder ("/tmp/<prefix>XXXXXX").
    explicit TempDirectory(const std::string& prefix = "drovel-test-");
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& path() const { return path_; }
    // path() + "/" + name
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace drovel::testing
