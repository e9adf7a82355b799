#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "linux/FileUserDefaults.h"
#include "linux/UserDefaultsJson.h"
#include "support/CapturingLogSink.h"
#include "support/TempDirectory.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;
using testing::ScopedLogCapture;
using testing::TempDirectory;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

DefaultsDictionary sampleValues() {
    return {
        {"text", std::string("caf\u00e9 \"quoted\"\n")},
        {"empty", std::string()},
        {"integer", std::int64_t{-9007199254740993}},
        {"max", std::int64_t{INT64_MAX}},
        {"double", 52.1},
        {"wholeDouble", 3600.0},  // must come back as a double, not an integer
        {"infinity", HUGE_VAL},
        {"bool", false},
        {"date", Date(std::chrono::microseconds(1773489600123456))},
        {"before1970", Date(std::chrono::microseconds(-1500001))},
        {"data", DefaultsBytes{0, 1, 2, 0xfe, 0xff}},
        {"data1", DefaultsBytes{0x41}},
        {"data2", DefaultsBytes{0x41, 0x42}},
        {"noData", DefaultsBytes{}},
        {"lastLocation", DefaultsDictionary{{"lat", 52.1}, {"lon", 4.3},
                                            {"timestamp", Date(std::chrono::seconds(1773489600))}}},
        {"list", DefaultsArray{std::string("a"), std::int64_t{1}, DefaultsArray{true}, DefaultsDictionary{}}},
    };
}

TEST(FileUserDefaultsTest, EveryKindOfValueSurvivesARestart) {
    TempDirectory directory;
    const std::string path = directory.file("sub/UserDefaults.json");  // the folder is created on write
    {
        FileUserDefaults defaults(path);
        for (const auto& [key, value] : sampleValues()) defaults.set(key, value);
        defaults.set("nan", std::nan(""));
        defaults.set("gone", std::string("x"));
        defaults.removeObject("gone");
    }
    FileUserDefaults reopened(path);
    auto values = reopened.dictionaryRepresentation();
    auto nan = reopened.doubleValue("nan");
    ASSERT_TRUE(nan && std::isnan(*nan));
    values.erase("nan");
    EXPECT_EQ(values, sampleValues());
    EXPECT_FALSE(reopened.object("gone"));
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
}

TEST(FileUserDefaultsTest, ChangesReachTheFileWithoutSynchronize) {
    TempDirectory directory;
    const std::string path = directory.file("d.json");
    FileUserDefaults defaults(path);
    for (int i = 0; i < 100; ++i) defaults.setInteger("n", i);
    ASSERT_TRUE(defaults.waitUntilWritten(30s));
    EXPECT_EQ(FileUserDefaults(path).integer("n"), 99);
}

TEST(FileUserDefaultsTest, ANormalExitWritesPendingChangesOfInstancesNeverDestroyed) {
    TempDirectory directory;
    const std::string path = directory.file("d.json");
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Leaked, like the default platform's, and with a delay that outlasts the process.
        auto* defaults = new FileUserDefaults(path, std::chrono::minutes(10));
        defaults->setString("k", "written at exit");
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(FileUserDefaults(path).string("k"), "written at exit");
}

TEST(FileUserDefaultsTest, TypedReadsGiveNothingForMissingOrOtherKinds) {
    TempDirectory directory;
    FileUserDefaults defaults(directory.file("d.json"));
    for (const auto& [key, value] : sampleValues()) defaults.set(key, value);

    EXPECT_EQ(defaults.doubleValue("integer"), -9007199254740993.0);  // integers read as doubles
    EXPECT_EQ(defaults.boolValue("bool"), false);

    // Which typed reads answer for each key, in the order string, integer, double, bool, date, data,
    // dictionary, array.
    const std::pair<const char*, const char*> cases[] = {
        {"missing", "........"}, {"text", "s......."}, {"double", "..d....."},       {"bool", "...b...."},
        {"date", "....t..."},    {"data", ".....x.."}, {"lastLocation", "......m."}, {"list", ".......a"},
    };
    for (const auto& [key, answers] : cases) {
        SCOPED_TRACE(key);
        const bool got[] = {defaults.string(key).has_value(),      defaults.integer(key).has_value(),
                            defaults.doubleValue(key).has_value(), defaults.boolValue(key).has_value(),
                            defaults.date(key).has_value(),        defaults.data(key).has_value(),
                            defaults.dictionary(key).has_value(),  defaults.array(key).has_value()};
        for (int read = 0; read < 8; ++read) EXPECT_EQ(got[read], answers[read] != '.') << "read " << read;
    }
}

TEST(FileUserDefaultsTest, ADamagedFileStartsEmptyIsSetAsideAndLogged) {
    const std::string cases[] = {
        "{\"k\": {\"string\": \"v\"",                        // truncated
        "not json",                                           //
        "{\"k\": {\"string\": \"v\", \"integer\": 1}}",       // two kinds
        "{\"k\": {\"date\": \"yesterday\"}}",                 //
        "{\"k\": {\"data\": \"@@@@\"}}",                      //
        "{\"k\": {\"colour\": \"red\"}}",                     // unknown kind
        "{\"k\": \"v\"}",                                     // untagged
        std::string(3, '\0'),                                 //
        "{\"k\": {\"dictionary\": " + std::string(200, '[') + "}}",
    };
    for (const auto& text : cases) {
        SCOPED_TRACE(text.substr(0, 60));
        TempDirectory directory;
        const std::string path = directory.file("d.json");
        writeFile(path, text);
        ScopedLogCapture log;
        FileUserDefaults defaults(path);
        EXPECT_TRUE(defaults.dictionaryRepresentation().empty());
        EXPECT_EQ(log->messages(core::LogLevel::error).size(), 1u);
        EXPECT_TRUE(log->contains("is unreadable, starting empty"));
        EXPECT_EQ(readFile(path + ".corrupt"), text);

        defaults.setString("k", "new");  // the defaults work on as usual
        EXPECT_TRUE(defaults.synchronize());
        EXPECT_EQ(FileUserDefaults(path).string("k"), "new");
    }
}

TEST(FileUserDefaultsTest, NestingBeyondTheLimitIsRefused) {
    DefaultsValue deep = std::int64_t{1};
    for (int i = 0; i < 70; ++i) {
        DefaultsArray wrapper;
        wrapper.push_back(std::move(deep));
        deep = std::move(wrapper);
    }
    auto decoded = decodeUserDefaults(encodeUserDefaults({{"deep", deep}}));
    ASSERT_FALSE(decoded);
    EXPECT_NE(decoded.error()->description().find("nested too deeply"), std::string::npos);
}

TEST(FileUserDefaultsTest, AHalfWrittenTemporaryFileLeavesTheOldValuesReadable) {
    TempDirectory directory;
    const std::string path = directory.file("d.json");
    FileUserDefaults(path).setString("k", "old");
    // A crash between writing the temporary file and renaming it.
    writeFile(path + ".tmp", "{\"k\": {\"string\": \"ne");
    FileUserDefaults reopened(path);
    EXPECT_EQ(reopened.string("k"), "old");
    reopened.setString("k", "new");  // the stale temporary file is simply replaced
    EXPECT_TRUE(reopened.synchronize());
    EXPECT_EQ(FileUserDefaults(path).string("k"), "new");
}

TEST(FileUserDefaultsTest, KillingAWriterAtAnyMomentLeavesAConsistentFile) {
    TempDirectory directory;
    const std::string path = directory.file("d.json");
    // The child tells the parent (through a pipe) once its first write is in the file, after a
    // number of changes that differs by round, and goes on changing; the kill then lands wherever
    // the writer happens to be.
    for (int round = 0; round < 5; ++round) {
        int pipeEnds[2];
        ASSERT_EQ(pipe(pipeEnds), 0);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(pipeEnds[0]);
            // Every write keeps the invariant a == b, with a growing payload.
            FileUserDefaults defaults(path);
            const std::int64_t signalAfter = 1 + 700 * round;
            for (std::int64_t i = 0;; ++i) {
                DefaultsDictionary pair{{"a", i}, {"b", i}, {"pad", std::string(static_cast<std::size_t>(i % 5000), 'x')}};
                defaults.setDictionary("pair", pair);
                if (i == signalAfter) {
                    if (!defaults.synchronize()) _exit(1);
                    char written = 'w';
                    if (write(pipeEnds[1], &written, 1) != 1) _exit(1);
                }
            }
        }
        close(pipeEnds[1]);
        char written = 0;
        ssize_t got = read(pipeEnds[0], &written, 1);
        close(pipeEnds[0]);
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);

        ScopedLogCapture log;
        FileUserDefaults defaults(path);
        EXPECT_TRUE(log->messages(core::LogLevel::error).empty()) << "round " << round;
        ASSERT_EQ(got, 1) << "round " << round << ": the writer ended before its first write";
        auto pair = defaults.dictionary("pair");
        ASSERT_TRUE(pair) << "round " << round;
        EXPECT_EQ(pair->at("a"), pair->at("b"));
    }
}

TEST(FileUserDefaultsTest, AFailedWriteKeepsTheValueInMemoryAndIsReported) {
    TempDirectory directory;
    // A file where the folder should be: no write can succeed (not even as root).
    const std::string folder = directory.file("blocked");
    writeFile(folder, "x");
    FileUserDefaults defaults(folder + "/d.json");

    ScopedLogCapture log;
    defaults.setString("k", "v");
    EXPECT_EQ(defaults.string("k"), "v");
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_TRUE(log->contains("Failed to write user defaults"));

    std::filesystem::remove(folder);
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(FileUserDefaults(folder + "/d.json").string("k"), "v");
}

TEST(FileUserDefaultsTest, ConcurrentWritersAllLand) {
    TempDirectory directory;
    const std::string path = directory.file("d.json");
    {
        FileUserDefaults defaults(path);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < 25; ++i) defaults.setInteger("t" + std::to_string(t) + "." + std::to_string(i), i);
            });
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(FileUserDefaults(path).dictionaryRepresentation().size(), 100u);
}

}  // namespace
}  // namespace drovel::platform
