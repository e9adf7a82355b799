#include "linux/FileUserDefaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/core/Logger.h"

namespace drovel::platform {

namespace {

constexpr int maxNestingDepth = 64;
// A defaults file holds small values; a larger file is treated as damaged rather than read.
constexpr std::uintmax_t maxFileBytes = 64u << 20;

const core::Logger& logger() {
    static auto* instance = new core::Logger("DrovelPlatform");
    return *instance;
}

// ---- base64 (standard alphabet, padded) ----

constexpr char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(const DefaultsBytes& bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t chunk = std::uint32_t{bytes[i]} << 16;
        if (i + 1 < bytes.size()) chunk |= std::uint32_t{bytes[i + 1]} << 8;
        if (i + 2 < bytes.size()) chunk |= bytes[i + 2];
        out.push_back(base64Alphabet[(chunk >> 18) & 63]);
        out.push_back(base64Alphabet[(chunk >> 12) & 63]);
        out.push_back(i + 1 < bytes.size() ? base64Alphabet[(chunk >> 6) & 63] : '=');
        out.push_back(i + 2 < bytes.size() ? base64Alphabet[chunk & 63] : '=');
    }
    return out;
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

std::optional<DefaultsBytes> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    DefaultsBytes out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::uint32_t chunk = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            bool isPadding = i + j >= text.size() - padding;
            int digit = isPadding ? 0 : base64Digit(text[i + j]);
            if (digit < 0) return std::nullopt;
            chunk = chunk << 6 | static_cast<std::uint32_t>(digit);
        }
        out.push_back(static_cast<std::uint8_t>(chunk >> 16));
        out.push_back(static_cast<std::uint8_t>(chunk >> 8));
        out.push_back(static_cast<std::uint8_t>(chunk));
    }
    out.resize(out.size() - padding);
    return out;
}

// ---- dates: "2026-11-21T10:00:00.123456789Z" (UTC, nine fraction digits) ----

// The text holds four-digit years. A date beyond them (a host's "distant future") is kept as the
// nearest date the text can hold, so that the file always reads back.
constexpr Date earliestDateText{std::chrono::sys_days{std::chrono::year{0} / 1 / 1}};
constexpr Date latestDateText{std::chrono::sys_days{std::chrono::year{9999} / 12 / 31} + std::chrono::days{1} -
                              Date::duration{1}};

std::string dateText(Date date) {
    date = std::clamp(date, earliestDateText, latestDateText);
    std::time_t t = timeT(date);
    // Microseconds past the whole second (never negative: timeT rounds down).
    long long fraction = (date - std::chrono::floor<std::chrono::seconds>(date)).count();
    std::tm utc{};
    gmtime_r(&t, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06lld000Z", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, fraction);
    return text;
}

std::optional<Date> parseDate(std::string_view text) {
    // Fixed layout: digits where digits belong, separators where they belong.
    constexpr std::string_view layout = "dddd-dd-ddTdd:dd:dd.dddddddddZ";
    if (text.size() != layout.size()) return std::nullopt;
    for (std::size_t i = 0; i < layout.size(); ++i) {
        bool digit = text[i] >= '0' && text[i] <= '9';
        if (layout[i] == 'd' ? !digit : text[i] != layout[i]) return std::nullopt;
    }
    auto number = [&](std::size_t at, std::size_t length) {
        long long value = 0;
        for (std::size_t i = at; i < at + length; ++i) value = value * 10 + (text[i] - '0');
        return value;
    };
    std::tm utc{};
    utc.tm_year = static_cast<int>(number(0, 4)) - 1900;
    utc.tm_mon = static_cast<int>(number(5, 2)) - 1;
    utc.tm_mday = static_cast<int>(number(8, 2));
    utc.tm_hour = static_cast<int>(number(11, 2));
    utc.tm_min = static_cast<int>(number(14, 2));
    utc.tm_sec = static_cast<int>(number(17, 2));
    if (utc.tm_mon > 11 || utc.tm_mday < 1 || utc.tm_mday > 31 || utc.tm_hour > 23 || utc.tm_min > 59 ||
        utc.tm_sec > 60)
        return std::nullopt;
    // Four-digit years are far inside what a Date holds; nanoseconds beyond the microsecond are dropped.
    long long seconds = timegm(&utc);
    return Date(std::chrono::seconds(seconds)) + std::chrono::microseconds(number(20, 6));
}

// ---- encoding ----

void writeTagged(core::JsonWriter& writer, const DefaultsValue& value);

void writeDictionary(core::JsonWriter& writer, const DefaultsDictionary& values) {
    writer.beginObject();
    for (const auto& [key, value] : values) {
        writer.key(key);
        writeTagged(writer, value);
    }
    writer.endObject();
}

void writeTagged(core::JsonWriter& writer, const DefaultsValue& value) {
    writer.beginObject();
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::string>) {
                writer.key("string").value(v);
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                writer.key("integer").value(static_cast<long long>(v));
            } else if constexpr (std::is_same_v<T, double>) {
                writer.key("double");
                if (std::isnan(v)) {
                    writer.value("nan");
                } else if (std::isinf(v)) {
                    writer.value(v > 0 ? "inf" : "-inf");
                } else {
                    writer.value(v);
                }
            } else if constexpr (std::is_same_v<T, bool>) {
                writer.key("bool").value(v);
            } else if constexpr (std::is_same_v<T, Date>) {
                writer.key("date").value(dateText(v));
            } else if constexpr (std::is_same_v<T, DefaultsBytes>) {
                writer.key("data").value(base64Encode(v));
            } else if constexpr (std::is_same_v<T, DefaultsDictionary>) {
                writer.key("dictionary");
                writeDictionary(writer, v);
            } else {
                writer.key("array").beginArray();
                for (const auto& element : v) writeTagged(writer, element);
                writer.endArray();
            }
        },
        value.storage);
    writer.endObject();
}

// ---- decoding ----

DefaultsValue readTagged(core::JsonReader& reader, core::JsonValue value, int depth);

DefaultsDictionary readDictionary(core::JsonReader& reader, core::JsonValue value, int depth) {
    if (depth > maxNestingDepth) reader.fail("nested too deeply");
    DefaultsDictionary values;
    reader.object(value, [&](std::string_view key, core::JsonValue member) {
        values.insert_or_assign(std::string(key), readTagged(reader, member, depth + 1));
    });
    return values;
}

DefaultsValue readDouble(core::JsonReader& reader, core::JsonValue value) {
    if (reader.check(value.type(), "malformed value") == simdjson::ondemand::json_type::string) {
        std::string_view text = reader.string(value);
        if (text == "nan") return DefaultsValue(std::nan(""));
        if (text == "inf") return DefaultsValue(HUGE_VAL);
        if (text == "-inf") return DefaultsValue(-HUGE_VAL);
        reader.fail("expected a number, \"nan\", \"inf\" or \"-inf\"");
    }
    return DefaultsValue(reader.number(value));
}

DefaultsValue readTagged(core::JsonReader& reader, core::JsonValue value, int depth) {
    if (depth > maxNestingDepth) reader.fail("nested too deeply");
    std::optional<DefaultsValue> result;
    reader.object(value, [&](std::string_view kind, core::JsonValue inner) {
        if (result) reader.fail("a value has exactly one kind");
        if (kind == "string") {
            result.emplace(std::string(reader.string(inner)));
        } else if (kind == "integer") {
            result.emplace(reader.int64(inner));
        } else if (kind == "double") {
            result = readDouble(reader, inner);
        } else if (kind == "bool") {
            result.emplace(reader.boolean(inner));
        } else if (kind == "date") {
            auto date = parseDate(reader.string(inner));
            if (!date) reader.fail("expected a date like \"2026-11-21T10:00:00.000000000Z\"");
            result.emplace(*date);
        } else if (kind == "data") {
            auto bytes = base64Decode(reader.string(inner));
            if (!bytes) reader.fail("expected base64 text");
            result.emplace(std::move(*bytes));
        } else if (kind == "dictionary") {
            result.emplace(readDictionary(reader, inner, depth + 1));
        } else if (kind == "array") {
            DefaultsArray array;
            reader.array(inner, [&](core::JsonValue element) { array.push_back(readTagged(reader, element, depth + 1)); });
            result.emplace(std::move(array));
        } else {
            reader.fail("unknown kind of value '" + std::string(kind) + "'");
        }
    });
    if (!result) reader.fail("a value needs a kind");
    return std::move(*result);
}

std::string systemErrorText(int error) { return std::strerror(error); }

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

// Replaces the file at path with text, atomically; logs and returns false on failure.
bool writeAtomically(const std::string& path, std::string_view text) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    const std::string temporary = path + ".tmp";
    auto fail = [&](const std::string& step, int error) {
        ::unlink(temporary.c_str());
        logger().error("Failed to write user defaults to " + path + ": " + step + ": " + systemErrorText(error),
                       DROVEL_SOURCE("FileUserDefaults", "flush()"));
        return false;
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
    return true;
}

class LiveInstances;
LiveInstances& liveInstances();

// The instances alive in the process, so that a normal exit writes what they have pending even
// when an instance is never destroyed (the default platform lives until the process ends).
class LiveInstances {
public:
    LiveInstances() { std::atexit([] { liveInstances().flushAll(); }); }
    void add(FileUserDefaults* instance) {
        std::lock_guard lock(mutex_);
        instances_.insert(instance);
    }
    void remove(FileUserDefaults* instance) {
        std::lock_guard lock(mutex_);
        instances_.erase(instance);
    }
    void flushAll() {
        std::lock_guard lock(mutex_);
        for (auto* instance : instances_) instance->synchronize();
    }

private:
    std::mutex mutex_;
    std::set<FileUserDefaults*> instances_;
};

LiveInstances& liveInstances() {
    static auto* instances = new LiveInstances;  // never destroyed: used at exit
    return *instances;
}

}  // namespace

std::string encodeUserDefaults(const DefaultsDictionary& values) {
    core::JsonWriter writer;
    writeDictionary(writer, values);
    return writer.take();
}

core::Result<DefaultsDictionary> decodeUserDefaults(std::string_view json) {
    return core::decodeJson<DefaultsDictionary>(
        json, [](core::JsonReader& reader, core::JsonValue root) { return readDictionary(reader, root, 1); });
}

FileUserDefaults::FileUserDefaults(std::string path, std::chrono::milliseconds flushDelay)
    : path_(std::move(path)), flushDelay_(flushDelay) {
    load();
    liveInstances().add(this);
    writer_ = std::thread([this] { writerLoop(); });
}

FileUserDefaults::~FileUserDefaults() {
    liveInstances().remove(this);
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    writer_.join();
    flush();
}

void FileUserDefaults::load() {
    namespace fs = std::filesystem;
    std::error_code error;
    std::string problem;
    if (!fs::exists(path_, error)) {
        if (!error) return;  // a first start: nothing stored yet
        // Not even its existence can be checked; the first write will tell whether it can be replaced.
        logger().error("User defaults file " + path_ + " is unreadable, starting empty (" + error.message() + ")",
                       DROVEL_SOURCE("FileUserDefaults", "init(path:)"));
        return;
    }

    auto size = fs::file_size(path_, error);
    if (error) {
        problem = error.message();
    } else if (size > maxFileBytes) {
        problem = "the file is too large (" + std::to_string(size) + " bytes)";
    } else {
        std::ifstream in(path_, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        if (!in.good() && !in.eof()) {
            problem = "reading failed";
        } else if (auto decoded = decodeUserDefaults(text.str())) {
            values_ = std::move(decoded).value();
            return;
        } else {
            problem = decoded.error()->description();
        }
    }
    // Keep the damaged file for inspection instead of overwriting it with the next change.
    std::string aside = path_ + ".corrupt";
    fs::rename(path_, aside, error);
    logger().error("User defaults file " + path_ + " is unreadable, starting empty (" + problem + ")" +
                       (error ? "" : "; the file was moved to " + aside),
                   DROVEL_SOURCE("FileUserDefaults", "init(path:)"));
}

std::optional<DefaultsValue> FileUserDefaults::object(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void FileUserDefaults::set(std::string_view key, DefaultsValue value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
    changed();
}

void FileUserDefaults::removeObject(std::string_view key) {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return;
    values_.erase(it);
    changed();
}

DefaultsDictionary FileUserDefaults::dictionaryRepresentation() const {
    std::lock_guard lock(mutex_);
    return values_;
}

bool FileUserDefaults::synchronize() { return flush(); }

void FileUserDefaults::changed() {
    ++version_;
    changed_.notify_all();
}

void FileUserDefaults::writerLoop() {
    std::unique_lock lock(mutex_);
    // Changes made before this thread got going count too: start from the loaded state.
    std::uint64_t seen = 0;
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || version_ != seen; });
        if (stopping_) return;  // the destructor writes what is pending
        // Let a burst of changes settle into one write.
        changed_.wait_for(lock, flushDelay_, [&] { return stopping_; });
        if (stopping_) return;
        seen = version_;
        lock.unlock();
        flush();
        lock.lock();
    }
}

bool FileUserDefaults::flush() {
    std::lock_guard writeLock(writeMutex_);
    std::string text;
    std::uint64_t version;
    {
        std::lock_guard lock(mutex_);
        if (version_ == writtenVersion_) return true;
        version = version_;
        text = encodeUserDefaults(values_);
    }
    // A failed write leaves writtenVersion_ behind, so the next flush tries again.
    if (!writeAtomically(path_, text)) return false;
    writtenVersion_ = version;
    return true;
}

}  // namespace drovel::platform
