#pragma once

#include <memory>
#include <string>

namespace Brw {

class IObject;

// Receives the events of the sources it is attached to.
class IEventListener {
public:
    virtual ~IEventListener() = default;
    // `eventHandlerName` is the name under which this listener attached to the event.
    virtual bool handleEvent(const std::string& eventHandlerName,
                             const std::shared_ptr<IObject>& eventObj) = 0;
};

} // namespace Brw
