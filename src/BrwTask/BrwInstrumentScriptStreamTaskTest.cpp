#include "BrwTask/BrwInstrumentScriptStreamTaskTest.h"

#include <unistd.h>

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamStdIn.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwInstrumentScriptStreamTask.h"

namespace Brw {

namespace {

// The pipeline's string stream, noting each statement handed on as "[text]" without its line end.
class StatementRecorder : public OutputStreamString {
public:
    bool write(const std::string& text) override {
        const bool hasLineEnd = ! text.empty() && text.back() == '\n';
        fStatements += "[" + text.substr(0, text.size() - (hasLineEnd ? 1 : 0)) + "]";
        fIsEachLineEnded = fIsEachLineEnded && hasLineEnd;
        return OutputStreamString::write(text);
    }

    std::string fStatements;      // every statement written so far
    bool fIsEachLineEnded = true; // every write ended in a line end
};

// One instrumenter reading the read end of a pipe.
struct Instrumenter {
    int fds[2] = {-1, -1};
    std::shared_ptr<StatementRecorder> recorder = std::make_shared<StatementRecorder>();
    std::shared_ptr<InstrumentScriptStreamTask> task;

    ~Instrumenter() {
        for (int fd : fds) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    [[nodiscard]] bool start() {
        bool retVal = false;
        do {
            SANITY_CHECK(pipe(fds) == 0);
            auto stream =
                std::make_shared<IOStreamPrompted>(std::make_shared<InputStreamStdIn>(fds[0]), recorder);
            auto scope = OMScope::factory(nullptr, OMScope::READS_PARENT);
            task = std::dynamic_pointer_cast<InstrumentScriptStreamTask>(
                InstrumentScriptStreamTask::factory(OMStored::undefinedFactory(), scope, "", stream));
            SANITY_CHECK(task);
            retVal = true;
        } while (false);
        return retVal;
    }

    [[nodiscard]] bool write(const std::string& text) const {
        return ::write(fds[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    void closeInput() {
        close(fds[1]);
        fds[1] = -1;
    }
};

// Reads the stream's text to its end: true when the end has been set, rather than nothing more there yet.
bool isTextEnded(InputStreamString& stream) {
    while (stream.getChar() >= 0) {
        stream.next();
    }
    return stream.getChar() == InputStream::AT_END;
}

// Runs `input` through a fresh instrumenter to the end; the statements it handed on, or "failed".
std::string instrument(const std::string& input, bool* success = nullptr) {
    std::string retVal = "failed";
    do {
        Instrumenter instrumenter;
        SANITY_CHECK(instrumenter.start());
        SANITY_CHECK(instrumenter.write(input));
        instrumenter.closeInput();
        SANITY_CHECK(instrumenter.task->runToCompletion());
        SANITY_CHECK(instrumenter.task->isTaskCompleted());
        SANITY_CHECK(instrumenter.recorder->fIsEachLineEnded);
        // The evaluator must always learn that the text has ended.
        SANITY_CHECK(isTextEnded(*instrumenter.recorder));
        if (success != nullptr) {
            *success = instrumenter.task->getSuccess();
        }
        retVal = instrumenter.recorder->fStatements;
    } while (false);
    return retVal;
}

} // namespace

bool InstrumentScriptStreamTaskTest::test() {
    REPORT_CLASS_TEST;
    bool retVal = testCommentsAndBlanks();
    retVal = testStatementsEndOutsideBrackets() && retVal;
    retVal = testYieldDirectivesAndOtherDirectives() && retVal;
    retVal = testUnbalancedBracketsEndTheText() && retVal;
    retVal = testLineEndIsDecidedWithoutMoreInput() && retVal;
    return retVal;
}

bool InstrumentScriptStreamTaskTest::testCommentsAndBlanks() {
    bool retVal = false;
    do {
        // A block comment is one blank, a line comment a line end; runs of blanks shrink to one.
        CHECK_EQUAL(instrument("a  =\t 1 /* one\n two */ + 2 // three\n"), "[a = 1 + 2]");
        CHECK_EQUAL(instrument("   x = 4 / 2\n"), "[x = 4 / 2]");
        CHECK_EQUAL(instrument("a/**/b\n"), "[a b]");
        CHECK_EQUAL(instrument("//\n// only a comment\n1\n"), "[1]");
        // Comment marks inside strings are text; escaped quotes don't end a string.
        CHECK_EQUAL(instrument("s = \"a//b /* c */\" + 'd\\'e//'\n"), "[s = \"a//b /* c */\" + 'd\\'e//']");
        // Text without a final line end, and a slash at the very end.
        CHECK_EQUAL(instrument("1 + 2"), "[1 + 2]");
        CHECK_EQUAL(instrument("6 /"), "[6 /]");
        retVal = true;
    } while (false);
    return retVal;
}

bool InstrumentScriptStreamTaskTest::testStatementsEndOutsideBrackets() {
    bool retVal = false;
    do {
        CHECK_EQUAL(instrument("function f(a) {\n    return a\n\n}\nf(1)\n"),
                    "[function f(a) {\nreturn a\n}][f(1)]");
        CHECK_EQUAL(instrument("g(1,\n  2)\r\nh()\n"), "[g(1,\n2)][h()]");
        // Square brackets don't count: a line end inside them ends the statement.
        CHECK_EQUAL(instrument("a = [1,\n2]\n"), "[a = [1,][2]]");
        // A line end inside a string ends the line all the same.
        CHECK_EQUAL(instrument("s = \"a\nb\"\n"), "[s = \"a][b\"]");
        CHECK_EQUAL(instrument("x = 1; y = 2\n"), "[x = 1; y = 2]");
        retVal = true;
    } while (false);
    return retVal;
}

bool InstrumentScriptStreamTaskTest::testYieldDirectivesAndOtherDirectives() {
    bool retVal = false;
    do {
        // Split at semicolons of the current brace level only, never inside parentheses.
        CHECK_EQUAL(
            instrument("//@yieldon\na = 1; b = 2\nfor (i = 0; i < 2; i++) { c; d }\n#YieldOff\ne; f\n"),
            "[a = 1][b = 2][for (i = 0; i < 2; i++) { c][d }][e; f]");
        CHECK_EQUAL(instrument("// @ YIELDON \na; b\n"), "[a][b]");
        // Other directives go on as written; inside braces they stay part of the statement.
        CHECK_EQUAL(instrument("#!/usr/bin/env braidwell\n1\n"), "[#!/usr/bin/env braidwell][1]");
        CHECK_EQUAL(instrument("x = 1 //@Note\n"), "[x = 1 //@Note]");
        CHECK_EQUAL(instrument("{\n#Pragma x\n}\n"), "[{\n#Pragma x\n}]");
        retVal = true;
    } while (false);
    return retVal;
}

bool InstrumentScriptStreamTaskTest::testUnbalancedBracketsEndTheText() {
    bool retVal = false;
    // The reports are counted, not shown.
    const std::string savedScriptErrorFile = ScriptErrorLog::getFile();
    ScriptErrorLog::setFile("/dev/null");
    do {
        const uint64_t reportsBefore = ScriptErrorLog::getReportCount();
        bool success = true;
        LogLevelScope quiet(0);
        // What came before the stray parenthesis ran; nothing after it, and the text still ends.
        CHECK_EQUAL(instrument("1\n)\n2\n", &success), "[1]");
        SANITY_CHECK(! success);
        CHECK_EQUAL(ScriptErrorLog::getReportCount(), reportsBefore + 1);
        CHECK_EQUAL(instrument("f(\n", &success), "");
        SANITY_CHECK(! success);
        CHECK_EQUAL(instrument("1 )( 2\n", &success), "[1 )( 2]");
        SANITY_CHECK(success);
        retVal = true;
    } while (false);
    ScriptErrorLog::setFile(savedScriptErrorFile);
    return retVal;
}

bool InstrumentScriptStreamTaskTest::testLineEndIsDecidedWithoutMoreInput() {
    bool retVal = false;
    do {
        Instrumenter instrumenter;
        SANITY_CHECK(instrumenter.start());
        SANITY_CHECK(instrumenter.write("1 +"));
        for (int slice = 0; slice < 20; ++slice) {
            SANITY_CHECK(instrumenter.task->runTimeslice(1000));
        }
        CHECK_EQUAL(instrumenter.recorder->fStatements, "");
        // The line end arrives with nothing behind it: the statement goes on at once, input still open.
        SANITY_CHECK(instrumenter.write(" 2\n"));
        for (int slice = 0; slice < 20 && instrumenter.recorder->fStatements.empty(); ++slice) {
            SANITY_CHECK(instrumenter.task->runTimeslice(1000));
        }
        CHECK_EQUAL(instrumenter.recorder->fStatements, "[1 + 2]");
        SANITY_CHECK(! instrumenter.task->isTaskCompleted());
        // An open bracket holds the line end back.
        SANITY_CHECK(instrumenter.write("f(\n"));
        for (int slice = 0; slice < 20; ++slice) {
            SANITY_CHECK(instrumenter.task->runTimeslice(1000));
        }
        CHECK_EQUAL(instrumenter.recorder->fStatements, "[1 + 2]");
        SANITY_CHECK(instrumenter.write(")\n"));
        instrumenter.closeInput();
        SANITY_CHECK(instrumenter.task->runToCompletion());
        CHECK_EQUAL(instrumenter.recorder->fStatements, "[1 + 2][f(\n)]");
        SANITY_CHECK(isTextEnded(*instrumenter.recorder));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
