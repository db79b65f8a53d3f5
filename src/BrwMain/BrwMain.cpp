#include "BrwMain/BrwMain.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwRemote/BrwRunRemoteScriptTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwClassTest.h"
#include "BrwMain/BrwTest.h"
#include "BrwParser/BrwFiles/BrwOpenedFile.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamStdIn.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamStdOut.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwTask/BrwInstrumentScriptStreamTask.h"
#include "BrwTask/BrwParseAndEvalStreamTask.h"
#include "BrwTask/BrwTask.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// Runs every registered test and says at the end, on standard output, how many passed.
bool runSelfTests() {
    LOG_NOTE("running tests");
    std::vector<std::string> failedTestNames;
    const bool allOK = Test::runAll(&failedTestNames);
    do {
        // Reported like any failed check; start-up goes on all the same.
        SANITY_CHECK(allOK);
    } while (false);
    for (const std::string& testName : failedTestNames) {
        fprintf(stderr, "test failed %s\n", testName.c_str());
    }
    const size_t testCount = Test::getTests().size();
    printf("self-tests: %zu passed, %zu failed\n", testCount - failedTestNames.size(),
           failedTestNames.size());
    fflush(stdout);
    LOG_NOTE("tests completed");
    return allOK;
}

// The script file of -f runs on another coordinator, given by -r: read here, sent as text, and its
// output comes back to this terminal. The request task ends the coordinator when it is answered or has
// waited for its time-out; false when it can't be sent.
bool runRemoteScript(const std::string& scriptFilePath, const std::string& remoteCoordinatorURL) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        const std::shared_ptr<OMScope>& coordinatorScope = internalCoordinator->getCoordinatorScope();
        SANITY_CHECK(coordinatorScope);
        std::string tail;
        std::shared_ptr<IObject> targetAddressObj =
            Address_abstract::factoryFromURL(remoteCoordinatorURL, tail);
        const std::string path = Dirs::resolveRelativePath(Dirs::getCurrentDir(), scriptFilePath);
        std::string script;
        if (! targetAddressObj) {
            fprintf(stderr, "not a brw:// address: %s\n", remoteCoordinatorURL.c_str());
        } else if (Dirs::readFile(path, script) != FileReadResult::READ) {
            fprintf(stderr, "cannot read the script file %s\n", path.c_str());
        } else {
            std::shared_ptr<RunRemoteScriptTask> runRemoteScriptTask;
            ASSIGN(runRemoteScriptTask,
                   RunRemoteScriptTask::factory(
                       targetAddressObj, path, InternalCoordinator::fRemoteTimeoutMicroseconds, OpCode::EVAL,
                       script, InternalCoordinator::nextSequenceNumber(), coordinatorScope));
            runRemoteScriptTask->setEndsCoordinator(true);
            SANITY_CHECK(internalCoordinator->startRequestTask(runRemoteScriptTask));
            retVal = true;
            break;
        }
        // Nothing to wait for: the loop that follows ends at once.
        SANITY_CHECK(internalCoordinator->terminate());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace

int main(int argc, char** argv) {
    Logger::setLogLevel(0);
    do {
        SANITY_CHECK(InternalCoordinator::init(argc, argv));
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        const std::string coordinatorName = InternalCoordinator::getCoordinatorName();
        LOG_NOTE_F("%s started", coordinatorName.c_str());
        if (InternalCoordinator::fRunTests) {
            runSelfTests();
        }
        const std::string& scriptFilePath = InternalCoordinator::fScriptFilePath;
        const std::string& remoteCoordinatorURL = InternalCoordinator::fRemoteCoordinatorURL;
        if (! remoteCoordinatorURL.empty() && (scriptFilePath.empty() || scriptFilePath == "-")) {
            LOG_ERROR("remoteCoordinatorURL without valid scriptFilePath");
            fputs("remoteCoordinatorURL without valid scriptFilePath\n", stderr);
            internalCoordinator.reset();
            tearDown();
            break;
        }
        const std::shared_ptr<OMScope>& coordinatorScope = internalCoordinator->getCoordinatorScope();
        SANITY_CHECK(coordinatorScope);
        if (! scriptFilePath.empty() && ! remoteCoordinatorURL.empty()) {
            SANITY_CHECK(runRemoteScript(scriptFilePath, remoteCoordinatorURL));
        } else if (scriptFilePath == "-") {
            InternalCoordinator::fReadStdIn = true;
        } else if (! scriptFilePath.empty()) {
            // Run to its end before any loop; the loop chosen next still runs afterwards.
            EvalScriptTask::call(OMStored::undefinedFactory(), coordinatorScope, scriptFilePath,
                                 UNWRAP_RETURN_VALUE);
        }
        if (InternalCoordinator::fReadStdIn) {
            SANITY_CHECK(stdInLoop());
        } else if (InternalCoordinator::fIsInteractive) {
            SANITY_CHECK(consoleLoop());
        } else if (InternalCoordinator::fIsServer ||
                   coordinatorName == InternalCoordinator::REFLECTOR_COORDINATOR_NAME ||
                   ! remoteCoordinatorURL.empty()) {
            // A remote run lasts until its answer or its time-out, whatever the grace time.
            SANITY_CHECK(serverLoop());
        } else {
            SANITY_CHECK(shortStartThenStopLoop());
        }
        LOG_NOTE_F("%s exiting", coordinatorName.c_str());
        internalCoordinator.reset();
        tearDown();
        verifyNoObjectLeft();
    } while (false);
    return 0;
}

bool serverLoop() {
    bool retVal = false;
    do {
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        do {
            SANITY_CHECK(internalCoordinator->runEventLoop(InternalCoordinator::getEventLoopMicroseconds()));
        } while (! internalCoordinator->isTerminatingAndIdle());
        retVal = true;
    } while (false);
    return retVal;
}

bool shortStartThenStopLoop() {
    bool retVal = false;
    do {
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        // The check text keeps its established spacing.
        // clang-format off
        SANITY_CHECK(internalCoordinator->runEventLoop( InternalCoordinator::getDelayQuitMicroseconds()));
        // clang-format on
        SANITY_CHECK(internalCoordinator->terminate());
        retVal = true;
    } while (false);
    return retVal;
}

bool consoleLoop() {
    bool retVal = false;
    do {
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        std::shared_ptr<Task> consoleTask;
        ASSIGN(consoleTask, internalCoordinator->startConsole());
        do {
            SANITY_CHECK(internalCoordinator->runEventLoop(InternalCoordinator::getEventLoopMicroseconds()));
            // The console's evaluator ends at the end of its input: so does the session.
            if (consoleTask->isTaskCompleted() && ! internalCoordinator->isTerminating()) {
                internalCoordinator->terminate();
            }
        } while (! internalCoordinator->isTerminatingAndIdle());
        retVal = true;
    } while (false);
    return retVal;
}

namespace {

// The standard-input mode: standard input -> instrumenter -> string stream -> evaluator -> standard output.
struct StdInPipeline {
    std::shared_ptr<IOStreamPrompted> intermediateIOStreamPrompted; // standard input in, statements out
    std::shared_ptr<IOStreamPrompted> outputIOStreamPrompted;       // statements in, values out
    std::shared_ptr<Task> instrumentTask;                           // rewrites raw input into statements
    std::shared_ptr<Task> evalTask;                                 // evaluates statements and echoes values
};

bool makeStdInStreams(InternalCoordinator& internalCoordinator, StdInPipeline& pipeline) {
    bool retVal = false;
    do {
        // This mode shows no prompt: both streams get an empty string as their prompt.
        std::shared_ptr<OMStored> promptNode = OMStored::factory(std::string());
        std::shared_ptr<InputStreamStdIn> inputStreamStdIn =
            std::dynamic_pointer_cast<InputStreamStdIn>(internalCoordinator.inputStreamFactory());
        SANITY_CHECK(inputStreamStdIn);
        auto intermediateOutStreamString = std::make_shared<OutputStreamString>();
        SANITY_CHECK(intermediateOutStreamString);
        std::shared_ptr<OutputStreamStdOut> outputStreamStdOut =
            std::dynamic_pointer_cast<OutputStreamStdOut>(internalCoordinator.outputStreamFactory());
        SANITY_CHECK(outputStreamStdOut);
        auto intermediateIOStreamPrompted =
            std::make_shared<IOStreamPrompted>(inputStreamStdIn, intermediateOutStreamString);
        SANITY_CHECK(intermediateIOStreamPrompted);
        auto outputIOStreamPrompted =
            std::make_shared<IOStreamPrompted>(intermediateOutStreamString, outputStreamStdOut);
        SANITY_CHECK(outputIOStreamPrompted);
        if (InternalCoordinator::fIsInteractive) {
            SANITY_CHECK(! setvbuf(stdin, nullptr, _IONBF, 0));
            SANITY_CHECK(! setvbuf(stdout, nullptr, _IONBF, 0));
        }
        intermediateIOStreamPrompted->setPromptNode(promptNode);
        outputIOStreamPrompted->setPromptNode(promptNode);
        pipeline.intermediateIOStreamPrompted = intermediateIOStreamPrompted;
        pipeline.outputIOStreamPrompted = outputIOStreamPrompted;
        retVal = true;
    } while (false);
    return retVal;
}

// Both tasks are children of the main task; the evaluator is the one a prompt waits for.
bool makeStdInTasks(InternalCoordinator& internalCoordinator, StdInPipeline& pipeline) {
    bool retVal = false;
    do {
        const std::shared_ptr<Task>& mainTask = internalCoordinator.getMainTask();
        SANITY_CHECK(mainTask);
        std::shared_ptr<OMStored> node = OMStored::undefinedFactory();
        SANITY_CHECK(node);
        std::shared_ptr<OMScope> parserScope = internalCoordinator.getCoordinatorScope();
        SANITY_CHECK(parserScope);
        std::shared_ptr<Task> instrumentScriptStreamTask =
            InstrumentScriptStreamTask::factory(node, parserScope, "", pipeline.intermediateIOStreamPrompted);
        SANITY_CHECK(instrumentScriptStreamTask);
        instrumentScriptStreamTask->setName("stdInTask");
        mainTask->registerChildTask(instrumentScriptStreamTask);
        std::shared_ptr<Task> parseAndEvalStreamTask =
            ParseAndEvalStreamTask::factory(node, parserScope, pipeline.outputIOStreamPrompted);
        SANITY_CHECK(parseAndEvalStreamTask);
        mainTask->registerChildTask(parseAndEvalStreamTask);
        IOStreamPrompted::setConsumerTask(parseAndEvalStreamTask);
        pipeline.instrumentTask = instrumentScriptStreamTask;
        pipeline.evalTask = parseAndEvalStreamTask;
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace

bool stdInLoop() {
    bool retVal = false;
    do {
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        StdInPipeline pipeline;
        SANITY_CHECK(makeStdInStreams(*internalCoordinator, pipeline));
        SANITY_CHECK(makeStdInTasks(*internalCoordinator, pipeline));
        // Started last, the instrumenter runs first in each turn: the evaluator finds its statements.
        SANITY_CHECK(Task::startTask(pipeline.evalTask));
        SANITY_CHECK(Task::startTask(pipeline.instrumentTask));
        do {
            SANITY_CHECK(internalCoordinator->runEventLoop(InternalCoordinator::getEventLoopMicroseconds()));
            if (pipeline.outputIOStreamPrompted->atEOF()) {
                // Everything read has been evaluated: a grace time for what it started, then stop.
                // The check text keeps its established spacing.
                // clang-format off
                SANITY_CHECK(internalCoordinator->runEventLoop( InternalCoordinator::getDelayQuitMicroseconds()));
                // clang-format on
                internalCoordinator->terminate();
            }
        } while (! internalCoordinator->isTerminatingAndIdle());
        IOStreamPrompted::setConsumerTask(nullptr);
        retVal = true;
    } while (false);
    return retVal;
}

void tearDown() {
    // The sockets and proxy files of this process go with it.
    Pipes::closeAll();
    InternalCoordinator::releaseInstance();
    Task::deregisterAll();
    OMScope::releaseRootScope();
    // Values that hold themselves are all that is left of the script's values; their cycles are broken.
    OMContainerRegistry::releaseElementsSince(0);
    Test::deregisterAll();
    ClassTest::deregisterAll();
    Object::deleteTables();
    OpenedFile::closeAll();
}

bool verifyNoObjectLeft() {
    bool retVal = Object::getObjectCount() == 0;
    EXPECTED(Object::getObjectCount() == 0);
    return retVal;
}

} // namespace Brw
