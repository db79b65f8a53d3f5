#include "BrwMain/BrwMain.h"

#include <memory>
#include <string>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwClassTest.h"
#include "BrwMain/BrwTest.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwTask/BrwTask.h"

namespace Brw {

namespace {

bool runSelfTests() {
    LOG_NOTE("running tests");
    bool allOK = Test::runAll();
    do {
        // Reported like any failed check; start-up goes on all the same.
        SANITY_CHECK(allOK);
    } while (false);
    LOG_NOTE("tests completed");
    return allOK;
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
        if (! InternalCoordinator::fRemoteCoordinatorURL.empty() &&
            (InternalCoordinator::fScriptFilePath.empty() || InternalCoordinator::fScriptFilePath == "-")) {
            LOG_ERROR("remoteCoordinatorURL without valid scriptFilePath");
            break;
        }
        const std::shared_ptr<OMScope>& coordinatorScope = internalCoordinator->getCoordinatorScope();
        SANITY_CHECK(coordinatorScope);
        if (InternalCoordinator::fScriptFilePath == "-") {
            InternalCoordinator::fReadStdIn = true;
        } else if (! InternalCoordinator::fScriptFilePath.empty()) {
            // Run to its end before any loop; the loop chosen next still runs afterwards.
            EvalScriptTask::call(OMStored::undefinedFactory(), coordinatorScope, InternalCoordinator::fScriptFilePath,
                                 UNWRAP_RETURN_VALUE);
        }
        if (InternalCoordinator::fIsServer ||
            coordinatorName == InternalCoordinator::REFLECTOR_COORDINATOR_NAME) {
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

void tearDown() {
    InternalCoordinator::releaseInstance();
    Task::deregisterAll();
    OMScope::releaseRootScope();
    Test::deregisterAll();
    ClassTest::deregisterAll();
    Object::deleteTables();
}

bool verifyNoObjectLeft() {
    bool retVal = Object::getObjectCount() == 0;
    EXPECTED(Object::getObjectCount() == 0);
    return retVal;
}

} // namespace Brw
