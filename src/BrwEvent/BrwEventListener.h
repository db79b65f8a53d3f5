#pragma once

#include <memory>
#include <string>

#include "BrwEvent/BrwIEventListener.h"

namespace Brw {

// The base of every listener. Every override of handleEvent calls this one first: the source checks that
// it was reached, so that a listener can't silently skip what the base does.
class EventListener : public virtual IEventListener {
public:
    // Marks the event as seen by the base listener.
    bool handleEvent(const std::string& eventHandlerName, const std::shared_ptr<IObject>& eventObj) override;
};

} // namespace Brw
