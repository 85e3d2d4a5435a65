#include "Logging/Log.h"

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/Formatter.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>
#include <gtest/gtest.h>

#include "TestChannel.h"

namespace {

using Kivo::Test::LoggedMessage;
using Kivo::Test::ScopedLogCapture;

// Where this file's log lines must say they come from: relative to the repository root.
constexpr const char* THIS_FILE = "tests/Logging/LogTest.cpp";

// Counts how often a log text expression is composed.
int countEvaluation(int& evaluations) { return ++evaluations; }

// Runs one logging statement and yields the source line it was written on. Keep the whole
// invocation on one line, so the line the log macro records and this one are the same.
#define LOGGED_AT(statement) \
    [&] {                    \
        statement;           \
        return __LINE__;     \
    }()

// Each row logs one line, composing its text through countEvaluation, and returns that line's
// number.
struct MacroRow {
    const char* name;
    std::function<int(int& evaluations)> logLine;
    Poco::Message::Priority priority;
    std::string expectedText;
};

std::vector<MacroRow> macroRows() {
    return {
        {"QES_LOG_CRITICAL",
         [](int& n) {
             return LOGGED_AT(QES_LOG_CRITICAL("index " << countEvaluation(n) << " lost"));
         },
         Poco::Message::PRIO_CRITICAL, "Critical: index 1 lost"},
        {"QES_LOG_ERROR",
         [](int& n) {
             return LOGGED_AT(QES_LOG_ERROR("id 'A-" << 7 << "' taken " << countEvaluation(n)));
         },
         Poco::Message::PRIO_ERROR, "Error: id 'A-7' taken 1"},
        {"QES_LOG_WARNING",
         [](int& n) { return LOGGED_AT(QES_LOG_WARNING(2.5 << " of " << countEvaluation(n))); },
         Poco::Message::PRIO_WARNING, "Warning: 2.5 of 1"},
        {"QES_LOG_DEBUG",
         [](int& n) { return LOGGED_AT(QES_LOG_DEBUG("value=" << countEvaluation(n))); },
         Poco::Message::PRIO_DEBUG, "Debug: value=1"},
        {"QES_LOG_TRACE", [](int& n) { return LOGGED_AT(QES_LOG_TRACE(countEvaluation(n))); },
         Poco::Message::PRIO_TRACE, "Trace: 1"},
        {"QES_LOG at notice",
         [](int& n) {
             return LOGGED_AT(QES_LOG(Poco::Message::PRIO_NOTICE, "plain " << countEvaluation(n)));
         },
         Poco::Message::PRIO_NOTICE, "plain 1"},
    };
}

TEST(LogMacros, WriteOneMessageWithPrefixPriorityAndLocation) {
    for (const MacroRow& row : macroRows()) {
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        int evaluations = 0;
        const int line = row.logLine(evaluations);

        EXPECT_EQ(evaluations, 1) << row.name;
        const std::vector<LoggedMessage> messages = capture.messages();
        ASSERT_EQ(messages.size(), 1u) << row.name;
        EXPECT_EQ(messages[0].text, row.expectedText) << row.name;
        EXPECT_EQ(messages[0].priority, row.priority) << row.name;
        EXPECT_EQ(messages[0].sourceFile, THIS_FILE) << row.name;
        EXPECT_EQ(messages[0].sourceLine, line) << row.name;
    }
}

// A line is written exactly when its priority is at least as severe as the logger's level;
// below that, the text expression must not run at all (it may be expensive).
TEST(LogMacros, WriteOnlyWhenLevelIsActiveAndComposeTextOnlyThen) {
    struct Row {
        const char* name;
        int level;
        std::function<void(int& evaluations)> logLine;
        bool written;
    };
    const Row rows[] = {
        {"trace below debug", Poco::Message::PRIO_DEBUG,
         [](int& n) { QES_LOG_TRACE(countEvaluation(n)); }, false},
        {"debug at debug", Poco::Message::PRIO_DEBUG,
         [](int& n) { QES_LOG_DEBUG(countEvaluation(n)); }, true},
        {"debug below warning", Poco::Message::PRIO_WARNING,
         [](int& n) { QES_LOG_DEBUG(countEvaluation(n)); }, false},
        {"warning at warning", Poco::Message::PRIO_WARNING,
         [](int& n) { QES_LOG_WARNING(countEvaluation(n)); }, true},
        {"warning below error", Poco::Message::PRIO_ERROR,
         [](int& n) { QES_LOG_WARNING(countEvaluation(n)); }, false},
        {"error at error", Poco::Message::PRIO_ERROR,
         [](int& n) { QES_LOG_ERROR(countEvaluation(n)); }, true},
        {"critical above error", Poco::Message::PRIO_ERROR,
         [](int& n) { QES_LOG_CRITICAL(countEvaluation(n)); }, true},
        {"critical below fatal", Poco::Message::PRIO_FATAL,
         [](int& n) { QES_LOG_CRITICAL(countEvaluation(n)); }, false},
        {"error with logging off", 0, [](int& n) { QES_LOG_ERROR(countEvaluation(n)); }, false},
    };
    for (const Row& row : rows) {
        ScopedLogCapture capture(row.level);
        int evaluations = 0;
        row.logLine(evaluations);
        EXPECT_EQ(capture.channel().size(), row.written ? 1u : 0u) << row.name;
        EXPECT_EQ(evaluations, row.written ? 1 : 0) << row.name;
    }
}

TEST(LogMacros, PatternFormatterPrintsLocationBeforeText) {
    ScopedLogCapture capture(Poco::Message::PRIO_INFORMATION,
                             new Poco::PatternFormatter("%U:%u %t"));
    const int line = LOGGED_AT(QES_LOG_WARNING("disk " << 90 << "% full"));

    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{std::string(THIS_FILE) + ":" + std::to_string(line) +
                                       " Warning: disk 90% full"});
}

// A logging failure is not the caller's failure: the macro swallows what the channel throws.
TEST(LogMacros, ChannelFailureDoesNotReachCaller) {
    class FailingFormatter : public Poco::Formatter {
    public:
        void format(const Poco::Message&, std::string&) override {
            throw Poco::IOException("log disk full");
        }
    };
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE, new FailingFormatter);

    EXPECT_NO_THROW(QES_LOG_ERROR("lost line"));
    EXPECT_EQ(capture.channel().size(), 0u);
}

TEST(LogMacros, LinesFromManyThreadsArriveWholeAndOnce) {
    constexpr int THREADS = 4;
    constexpr int LINES_PER_THREAD = 200;
    ScopedLogCapture capture(Poco::Message::PRIO_DEBUG);

    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < LINES_PER_THREAD; ++i) {
                QES_LOG_DEBUG("thread " << t << " line " << i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    const std::vector<std::string> texts = capture.texts();
    const std::set<std::string> distinct(texts.begin(), texts.end());
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(THREADS * LINES_PER_THREAD));
    EXPECT_EQ(distinct.size(), texts.size());
    for (int t = 0; t < THREADS; ++t) {
        for (int i : {0, LINES_PER_THREAD - 1}) {
            const std::string expected =
                "Debug: thread " + std::to_string(t) + " line " + std::to_string(i);
            EXPECT_EQ(distinct.count(expected), 1u) << expected;
        }
    }
}

// Other tests rely on a capture handing the logger back exactly as it found it.
TEST(ScopedLogCapture, RestoresPreviousChannelAndLevelWhenNested) {
    ScopedLogCapture outer(Poco::Message::PRIO_WARNING);
    {
        ScopedLogCapture inner(Poco::Message::PRIO_TRACE);
        QES_LOG_DEBUG("inner");
        EXPECT_EQ(inner.texts(), std::vector<std::string>{"Debug: inner"});
    }
    QES_LOG_DEBUG("dropped at warning");
    QES_LOG_WARNING("outer");

    EXPECT_EQ(Logging::Log::Logger().getLevel(), Poco::Message::PRIO_WARNING);
    EXPECT_EQ(outer.texts(), std::vector<std::string>{"Warning: outer"});
}

}  // namespace
