#include "BrwEvent/BrwEventListener.h"

#include "BrwEvent/BrwIEvent.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

bool EventListener::handleEvent(const std::string&, const std::shared_ptr<IObject>& eventObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IEvent, event, eventObj);
        event->setRootListenerCalled();
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
