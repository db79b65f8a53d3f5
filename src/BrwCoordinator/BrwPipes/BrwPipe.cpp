#include "BrwCoordinator/BrwPipes/BrwPipe.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

Pipe::Pipe(const std::string& namedPipePath)
    : fNamedPipePath(namedPipePath), fPipeExternalHandle(Pipes::nextExternalHandle()) {}

int Pipe::getPipeExternalHandle() const {
    int retVal = NO_EXTERNAL_HANDLE;
    do {
        SANITY_CHECK(fPipeExternalHandle != 0);
        retVal = fPipeExternalHandle;
    } while (false);
    return retVal;
}

bool Pipe::openCountIncrement() {
    bool retVal = false;
    do {
        SANITY_CHECK(fOpenCount >= 0);
        if (fOpenCount > 0) {
            LOG_ERROR("pipe opened more than once");
        }
        ++fOpenCount;
        retVal = true;
    } while (false);
    return retVal;
}

bool Pipe::openCountDecrement() {
    bool retVal = false;
    do {
        SANITY_CHECK(fOpenCount > 0);
        --fOpenCount;
        retVal = true;
    } while (false);
    return retVal;
}

void Pipe::logStateSwitch(const char* stateTypeName, const std::string& fromStateName) const {
    LOG_TRACE_F("%s (%d): switching from %s::%s to %s::%s", InternalCoordinator::getCoordinatorName().c_str(),
                fPipeExternalHandle, stateTypeName, fromStateName.c_str(), stateTypeName,
                getStateName().c_str());
}

} // namespace Brw
