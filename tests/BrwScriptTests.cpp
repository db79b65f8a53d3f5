// The language, end to end: every tests/scripts/*.bwq runs through the standard-input mode of the real
// program, and its standard output must be exactly the `// expect: ` lines of the script, in order; each
// `// expect error: ` text must appear on standard error, in order. Then the same corpus, mutated, runs
// in-process under a time-out: malformed input must never crash or hang the interpreter. The corpus and
// generated programs also run in-process with the quick and frameless paths on and off, which must agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwLogger.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMain/BrwMain.h"
#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwSessionEvaluator.h"
#include "BrwTestEnvironment.h"

namespace {

const std::string kBinary = BRW_BINARY_PATH;
const std::filesystem::path kScriptDir = BRW_SCRIPT_DIR;

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> scripts;
    for (const auto& entry : std::filesystem::directory_iterator(kScriptDir)) {
        if (entry.path().extension() == ".bwq") {
            scripts.push_back(entry.path());
        }
    }
    std::sort(scripts.begin(), scripts.end());
    return scripts;
}

// The text after `marker` on each line that has it.
std::vector<std::string> expectations(const std::string& script, const std::string& marker) {
    std::vector<std::string> lines;
    std::istringstream input(script);
    for (std::string line; std::getline(input, line);) {
        const size_t at = line.find(marker);
        if (at != std::string::npos) {
            lines.push_back(line.substr(at + marker.size()));
        }
    }
    return lines;
}

class ScriptTest : public testing::Test {
public:
    explicit ScriptTest(std::filesystem::path script) : fScript(std::move(script)) {}

    void TestBody() override {
        const std::string text = readFile(fScript);
        const auto result = BrwTests::runProcess({kBinary, "-I", "-w", "0"}, text, 30000);
        ASSERT_FALSE(result.timedOut) << fScript;
        EXPECT_EQ(result.exitCode, 0);
        std::string expectedOutput;
        for (const std::string& line : expectations(text, "// expect: ")) {
            expectedOutput += line + "\n";
        }
        EXPECT_EQ(result.standardOutput, expectedOutput) << "standard error:\n" << result.standardError;
        size_t from = 0;
        for (const std::string& error : expectations(text, "// expect error: ")) {
            const size_t at = result.standardError.find(error, from);
            EXPECT_NE(at, std::string::npos) << "missing error \"" << error << "\" in:\n"
                                             << result.standardError;
            from = at == std::string::npos ? from : at + error.size();
        }
    }

private:
    std::filesystem::path fScript;
};

// Runs a text statement by statement, as a session does, with a time-out for loops a mutation made
// endless; gives what it printed.
std::string runInProcess(const std::string& text, int64_t timeoutMicroseconds = 200000) {
    return Brw::SessionEvaluator::evaluate(text, Brw::OMScope::factory(nullptr, Brw::OMScope::READS_PARENT),
                                           timeoutMicroseconds);
}

// Runs a text twice, in-process: the output and script errors of the resumable path alone go to index 0,
// those with the quick and frameless paths to index 1.
void runBothWays(const std::string& text, const std::filesystem::path& home, std::string (&outputs)[2],
                 std::string (&errors)[2]) {
    for (int isDirect = 0; isDirect < 2; ++isDirect) {
        const std::string errorFile = (home / ("direct-errors-" + std::to_string(isDirect))).string();
        std::filesystem::remove(errorFile);
        Brw::ScriptErrorLog::setFile(errorFile);
        Brw::OMExpression::setDirectEvaluation(isDirect == 1);
        // The long way is slow under the sanitizers: a generous time-out, which no script comes near.
        outputs[isDirect] = runInProcess(text, 30000000);
        errors[isDirect] = readFile(errorFile);
    }
    Brw::OMExpression::setDirectEvaluation(true);
    Brw::ScriptErrorLog::setFile("");
}

// Expressions that can't wait are evaluated without frames; the resumable path must give the same
// output and the same script errors for every script of the corpus.
TEST(DirectEvaluationTest, SameOutputAndErrorsAsTheResumablePath) {
    const std::filesystem::path home = BrwTests::isolatedHome();
    for (const auto& script : corpus()) {
        const std::string text = readFile(script);
        std::string outputs[2];
        std::string errors[2];
        runBothWays(text, home, outputs, errors);
        EXPECT_EQ(outputs[1], outputs[0]) << script;
        EXPECT_EQ(errors[1], errors[0]) << script;
        EXPECT_FALSE(outputs[1].empty()) << script;
    }
}

// Small random programs over the values and operators where the quick and frameless paths differ most
// from the resumable one: numbers of both kinds, NaN, truth values, the empty values, texts; functions
// that call each other and recurse on a counter; loops that assign, step and write elements. The map is
// only indexed, and a loop reads only its counter: a text that took in its own text would double in
// length at every step.
class ProgramGenerator {
public:
    explicit ProgramGenerator(uint32_t seed) : fRandom(seed) {}

    std::string program() {
        std::string text = "g1 = 4; g2 = \"x\";\n";
        fFunctions.clear();
        const int functionCount = pick(1, 4);
        for (int index = 0; index < functionCount; ++index) {
            text += function(index);
        }
        const std::vector<std::string> globals = {"g1", "g2"};
        for (int index = pick(2, 5); index > 0; --index) {
            text += "[" + expression(globals, 0) + ", " + expression(globals, 0) + "]\n";
        }
        for (int index = pick(1, 3); index > 0; --index) {
            text += loop();
        }
        return text;
    }

private:
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(fRandom); }
    template <class Item>
    const Item& oneOf(const std::vector<Item>& items) {
        return items[static_cast<size_t>(pick(0, static_cast<int>(items.size()) - 1))];
    }

    std::string expression(const std::vector<std::string>& names, int depth) {
        static const std::vector<std::string> values = {
            "0",     "1",    "-3",        "7",      "2.5",    "-0.5", "true",
            "false", "null", "undefined", "\"12\"", "\"ab\"", "\"\"", "9007199254740993",
            "1e300", "(0/0)"};
        static const std::vector<std::string> binaries = {
            "+", "-", "*", "/", "<", "<=", ">", ">=", "==", "!=", "===", "!==", "&", "|", "^", "&&", "||"};
        static const std::vector<std::string> unaries = {"-", "!", "~", "+"};
        const int choice = depth > 3 ? 0 : pick(0, 9);
        if (choice <= 2) {
            return ! names.empty() && pick(0, 1) == 0 ? oneOf(names) : oneOf(values);
        }
        if (choice <= 5) {
            return "(" + expression(names, depth + 1) + " " + oneOf(binaries) + " " +
                   expression(names, depth + 1) + ")";
        }
        if (choice == 6) {
            // In parentheses: "-" before "-3" would read as a decrement.
            return oneOf(unaries) + "(" + expression(names, depth + 1) + ")";
        }
        if (choice == 7) {
            return "(" + expression(names, depth + 1) + " ? " + expression(names, depth + 1) + " : " +
                   expression(names, depth + 1) + ")";
        }
        if (choice == 8 && ! fFunctions.empty()) {
            // The first argument of every function is its recursion counter.
            const auto& [name, parameterCount] = oneOf(fFunctions);
            std::string call = name + "(" + std::to_string(pick(0, 3));
            for (int index = pick(0, parameterCount); index > 0; --index) {
                call += ", " + expression(names, depth + 1);
            }
            return call + ")";
        }
        static const std::vector<std::string> fixedElements = {"m.a", "m.b", "m[1]", "list[1]"};
        return pick(0, 1) == 0 ? "m[" + expression(names, depth + 1) + "]" : oneOf(fixedElements);
    }

    std::string function(int index) {
        const std::string name = "f" + std::to_string(index);
        const int parameterCount = pick(0, 2);
        std::vector<std::string> names = {"g1", "g2"};
        std::string parameters = "n";
        for (int parameter = 0; parameter < parameterCount; ++parameter) {
            names.push_back("p" + std::to_string(parameter));
            parameters += ", p" + std::to_string(parameter);
        }
        std::string body = "if (!(n > 0)) return " + expression(names, 0) + "; ";
        for (int statement = pick(0, 2); statement > 0; --statement) {
            body += pick(0, 1) == 0
                        ? "if (" + expression(names, 0) + ") return " + expression(names, 0) + "; "
                        : expression(names, 0) + "; ";
        }
        body += "return " + name + "(n - 1" + (parameterCount > 0 ? ", " + expression(names, 0) : "") +
                ") + " + expression(names, 0) + ";";
        fFunctions.emplace_back(name, parameterCount);
        return "function " + name + "(" + parameters + ") { " + body + " };\n";
    }

    std::string loop() {
        const std::vector<std::string> names = {"i", "g1"};
        std::string body;
        for (int statement = pick(1, 4); statement > 0; --statement) {
            switch (pick(0, 5)) {
            case 0:
                body += "s = " + expression(names, 0) + "; ";
                break;
            case 1:
                body += "t = t + " + expression(names, 0) + "; ";
                break;
            case 2:
                body += "m[\"k\" + " + expression(names, 0) + "] = " + expression(names, 0) + "; ";
                break;
            case 3:
                body += "list[i] = " + expression(names, 0) + "; ";
                break;
            case 4:
                body += "if (" + expression(names, 0) + ") s = " + expression(names, 0) + "; else t++; ";
                break;
            default:
                body += expression(names, 0) + "; ";
                break;
            }
        }
        return "i = 0; s = 0; t = 1; m = {\"a\": 1}; list = [5, 6];\nwhile (i < " +
               std::to_string(pick(0, 30)) + ") { " + body + "i++ };\n[i, s, t, length(keys(m)), list]\n";
    }

    std::mt19937 fRandom;                                // the same programs on every run
    std::vector<std::pair<std::string, int>> fFunctions; // defined so far, with their parameter counts
};

// Generated programs give the same output and script errors with and without the quick and frameless
// paths.
TEST(DirectEvaluationTest, GeneratedProgramsGiveTheSameOutput) {
    const std::filesystem::path home = BrwTests::isolatedHome();
    ProgramGenerator generator(20261122);
    for (int index = 0; index < 80; ++index) {
        const std::string text = generator.program();
        std::string outputs[2];
        std::string errors[2];
        runBothWays(text, home, outputs, errors);
        EXPECT_EQ(outputs[1], outputs[0]) << text;
        EXPECT_EQ(errors[1], errors[0]) << text;
    }
}

TEST(ScriptFuzzTest, MutatedCorpusNeverCrashesOrHangs) {
    std::mt19937 random(20261121);
    const std::string errorFile =
        (std::filesystem::path(BrwTests::isolatedHome()) / "fuzz-errors.txt").string();
    Brw::ScriptErrorLog::setFile(errorFile);
    int runs = 0;
    for (const auto& script : corpus()) {
        const std::string text = readFile(script);
        for (int mutation = 0; mutation < 40 && ! text.empty(); ++mutation) {
            std::string mutated = text;
            const size_t position = random() % mutated.size();
            switch (mutation % 4) {
            case 0:
                mutated[position] = static_cast<char>(random() % 256);
                break;
            case 1:
                mutated.resize(position);
                break;
            case 2:
                mutated.insert(position, 1, "(){}[];,'\"/*<=+-!?:\n"[random() % 21]);
                break;
            default:
                mutated.erase(position, 1 + random() % 8);
                break;
            }
            runInProcess(mutated);
            ++runs;
        }
    }
    for (int i = 0; i < 40; ++i) {
        std::string noise(1 + random() % 200, ' ');
        std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random() % 256); });
        runInProcess(noise);
        ++runs;
    }
    Brw::ScriptErrorLog::setFile("");
    EXPECT_GT(runs, 100);
}

TEST(ScriptProcessFuzzTest, RandomBytesEndWithStatusZero) {
    std::mt19937 random(7);
    for (int i = 0; i < 8; ++i) {
        std::string noise(1 + random() % 500, ' ');
        std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random() % 256); });
        const auto result = BrwTests::runProcess({kBinary, "-I", "-w", "0"}, noise, 30000);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 0);
    }
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    BrwTests::isolateHome();
    char programName[] = "brw_scripttests";
    char* coordinatorArgs[] = {programName, nullptr};
    if (! Brw::InternalCoordinator::init(1, coordinatorArgs)) {
        fprintf(stderr, "the coordinator did not start\n");
        return 1;
    }
    for (const auto& script : corpus()) {
        testing::RegisterTest("Script", script.stem().c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [script]() -> testing::Test* { return new ScriptTest(script); });
    }
    int result = RUN_ALL_TESTS();
    Brw::tearDown();
    if (! Brw::verifyNoObjectLeft()) {
        result = 1;
    }
    return result;
}
