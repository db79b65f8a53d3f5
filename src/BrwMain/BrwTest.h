#pragma once

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

enum class TestType { UNSET, OTHER, CLASS, OBJECT };

#define REPORT_OTHER_TEST fTestType = ::Brw::TestType::OTHER
#define REPORT_CLASS_TEST fTestType = ::Brw::TestType::CLASS
#define REPORT_OBJECT_TEST fTestType = ::Brw::TestType::OBJECT

// A self-test the program carries: registered once at start by name, run on request in name order. Tests
// use the check macros of production code: a failed check is the test's failure.
class Test : public std::enable_shared_from_this<Test> {
public:
    explicit Test(std::string testName) : fTestName(std::move(testName)) {}
    virtual ~Test() = default;

    virtual bool setup() { return true; }
    virtual bool teardown() { return true; }
    virtual const std::string& getTestName() const { return fTestName; }
    // The class under test.
    virtual std::string getClassTypeName() const = 0;
    // setup, test, teardown; a test that runs inside another one is skipped and passes.
    virtual bool run();
    virtual bool test() = 0;

    [[nodiscard]] static bool registerTest(const std::shared_ptr<Test>& test);
    static std::shared_ptr<Test> getTest(const std::string& testName);
    // All registered tests in name order.
    static std::vector<std::shared_ptr<Test>> getTests();
    // Runs every test in name order; false when any failed, and all of them run regardless.
    static bool runAll();
    // Empties the registry: part of the process's teardown.
    static void deregisterAll();
    // A new empty file of a unique name in the temporary folder, for a test to write and remove; empty
    // when none could be made.
    static std::string makeTemporaryFile(const std::string& stem);

    // The text of a failed comparison in a test, with both values where they print.
    template <class Actual, class Expected>
    static std::string describeMismatch(const char* actualText, const Actual& actual,
                                        const Expected& expected) {
        return std::string("CHECK_EQUAL failed: '") + actualText + "' is " + printable(actual) +
               ", expected " + printable(expected);
    }

protected:
    TestType fTestType = TestType::UNSET; // set by one of the REPORT_..._TEST macros

private:
    template <class Value>
    static std::string printable(const Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            return value ? "true" : "false";
        } else if constexpr (std::is_convertible_v<Value, std::string>) {
            return "\"" + std::string(value) + "\"";
        } else if constexpr (requires(std::ostream & out) { out << value; }) {
            std::ostringstream out;
            out << value;
            return out.str();
        } else {
            return "(value)";
        }
    }

    std::string fTestName; // registry key; its order is the order of runAll
};

// Sets the log level for a scope: tests that provoke failed checks on purpose keep them off the output.
class LogLevelScope {
public:
    explicit LogLevelScope(int32_t level) : fSavedLevel(Logger::getLogLevel()) { Logger::setLogLevel(level); }
    ~LogLevelScope() { Logger::setLogLevel(fSavedLevel); }
    LogLevelScope(const LogLevelScope&) = delete;
    LogLevelScope& operator=(const LogLevelScope&) = delete;

private:
    int32_t fSavedLevel; // restored at the end of the scope
};

} // namespace Brw

// A check of a test that says both values when it fails; it leaves the block like SANITY_CHECK.
#define CHECK_EQUAL(actual, expected)                                                                        \
    if (! ((actual) == (expected))) {                                                                        \
        LOG_ERROR(::Brw::Test::describeMismatch(#actual, (actual), (expected)));                             \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)
