#include <gtest/gtest.h>

#include <thread>

#include "drovel/core/Logger.h"
#include "support/CapturingLogSink.h"
#include "support/TempDirectory.h"

using namespace drovel::core;
using drovel::testing::ScopedLogCapture;
using drovel::testing::TempDirectory;

TEST(Logger, DropsLinesBelowItsLevel) {
    ScopedLogCapture capture;
    Logger logger("Test");
    const LogLevel levels[] = {LogLevel::verbose, LogLevel::debug, LogLevel::info, LogLevel::warning, LogLevel::error};
    for (LogLevel threshold : levels) {
        capture->clear();
        logger.setLogLevel(threshold);
        for (LogLevel level : levels) logger.log(level, std::string(logLevelName(level)), DROVEL_SOURCE("F", "f()"));
        auto written = capture->messages();
        std::vector<std::string> expected;
        for (LogLevel level : levels)
            if (level >= threshold) expected.emplace_back(logLevelName(level));
        EXPECT_EQ(written, expected) << logLevelName(threshold);
    }
}

TEST(Logger, RecordsCarryNameSourceFunctionAndLine) {
    ScopedLogCapture capture;
    Logger logger("DrovelNotify");
    logger.setLogLevel(LogLevel::verbose);
    int line = __LINE__ + 1;
    logger.error("Failed with error: boom", DROVEL_SOURCE("NotifyInteractor", "saveTriggerEvent(_:)"));
    auto records = capture->records();
    ASSERT_EQ(records.size(), 1u);
    std::string formatted = formatLogLine(records[0]);
    EXPECT_NE(formatted.find(" [error] DrovelNotify NotifyInteractor.saveTriggerEvent(_:):" + std::to_string(line) +
                             " Failed with error: boom"),
              std::string::npos)
        << formatted;
}

TEST(Logger, WriteEnabledAppendsToTheLogFile) {
    ScopedLogCapture capture;
    TempDirectory directory;
    Logger::setLogDirectory(directory.file("logs"));
    Logger logger("FileTest");
    logger.info("not written", DROVEL_SOURCE("F", "f()"));
    logger.setWriteEnabled(true);
    logger.info("first", DROVEL_SOURCE("F", "f()"));
    logger.warning("second", DROVEL_SOURCE("F", "f()"));
    Logger::setLogDirectory("");

    const std::string text = drovel::testing::fileContents(directory.file("logs/FileTest.log"));
    EXPECT_EQ(text.find("not written"), std::string::npos);
    auto first = text.find("first"), second = text.find("second");
    ASSERT_NE(first, std::string::npos);
    ASSERT_NE(second, std::string::npos);
    EXPECT_LT(first, second);
}

TEST(Logger, ManyThreadsLogWithoutLosingLines) {
    ScopedLogCapture capture;
    Logger logger("Threads");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&logger, t] {
            for (int i = 0; i < 250; ++i) {
                logger.setLogLevel(i % 2 ? LogLevel::info : LogLevel::debug);
                logger.info("line " + std::to_string(t), DROVEL_SOURCE("F", "f()"));
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(capture->count("line "), 1000u);
}
