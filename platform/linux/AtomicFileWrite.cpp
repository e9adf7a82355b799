#include "linux/AtomicFileWrite.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace drovel::platform {

namespace {

// Writes all of text to fd; false on failure, with errno set.
bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

std::optional<std::string> writeFileAtomically(const std::string& path, std::string_view text) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    const std::string temporary = path + ".tmp";
    auto fail = [&](const std::string& step, int error) -> std::optional<std::string> {
        ::unlink(temporary.c_str());
        return step + ": " + std::strerror(error);
    };

    fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    std::error_code folderError;
    fs::create_directories(folder, folderError);
    if (folderError) return fail("creating " + folder.string(), folderError.value());

    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return fail("creating " + temporary, errno);
    bool written = writeAll(fd, text) && ::fsync(fd) == 0;
    int writeError = errno;
    if (::close(fd) != 0 && written) {
        written = false;
        writeError = errno;
    }
    if (!written) return fail("writing " + temporary, writeError);
    if (::rename(temporary.c_str(), path.c_str()) != 0) return fail("renaming " + temporary, errno);
    // The rename is durable only once the folder's entry is on disk.
    int folderFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd >= 0) {
        ::fsync(folderFd);
        ::close(folderFd);
    }
    return std::nullopt;
}

}  // namespace drovel::platform
