#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwIData.h"

namespace Brw {

class IEventSource;

// Tells the listeners of one source that something has happened, within the call that fires it.
class IEvent : public virtual IData {
public:
    virtual const std::string& getName() const = 0;
    // What the event is about; may be null.
    virtual const std::shared_ptr<IObject>& getPayloadObj() const = 0;
    // The source that fires the event now, or null to clear it. One source at a time: false when another
    // source fires the event already.
    [[nodiscard]] virtual bool setEventSource(IEventSource* source) = 0;
    // Set only while the event is being fired.
    virtual IEventSource* getEventSource() const = 0;
    // The base listener sets the flag, so that the source sees that an override called it.
    virtual void setRootListenerCalled() = 0;
    virtual void clearRootListenerCalled() = 0;
    virtual bool wasRootListenerCalled() const = 0;
};

} // namespace Brw
