#include "BrwParser/BrwInputStream.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

void InputStream::getChar_yielding(const std::shared_ptr<Task>& task, int& c) {
    struct LocalVariableState : OMFunctionState {
        int ch = NOTHING_YET; // what the poll gave
    };
    YIELDING_BEGIN(LocalVariableState, frame, c = NOTHING_YET);
    task->setWaitingForInput(true);
    frame->ch = getChar();
    task->setWaitingForInput(frame->ch == NOTHING_YET);
    if (frame->ch != NOTHING_YET) {
        c = frame->ch;
        YIELDING_FINISH;
    }
    if (task->usesAsyncIO()) {
        YIELDING_WAIT(task->yieldAndSleep());
        c = NOTHING_YET;
        YIELDING_FINISH;
    }
    YIELDING_WAIT(task->yield());
    // Without asynchronous input a missing character is the end: the reader can't wait for more.
    setAtEOF();
    c = AT_END;
    YIELDING_END;
}

int InputStream::coordinatorInputState() {
    int retVal = NOTHING_YET;
    do {
        std::shared_ptr<IObject> coordinator = InternalCoordinator::factory();
        if (! coordinator) {
            retVal = AT_END;
            break;
        }
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, coordinator);
        retVal = internalCoordinator->isTerminating() ? AT_END : 0;
    } while (false);
    return retVal;
}

} // namespace Brw
