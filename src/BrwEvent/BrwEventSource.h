#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "BrwEvent/BrwIEventSource.h"
#include "BrwObject/BrwObject.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class IEvent;

// Keeps the listeners of each event by handler name, as weak pointers: attaching never keeps a listener
// alive, and a listener that goes away must detach first.
//
// A listener runs inside fireEvent, which walks the live handler map of the event: it may attach and
// detach handlers of other events, never of the one being fired.
class EventSource : public virtual IEventSource, public Object {
public:
    using EventListenerMap = std::unordered_map<std::string, std::weak_ptr<IEventListener>, FNV1aHash>;
    using EventNameMap = std::unordered_map<std::string, std::shared_ptr<EventListenerMap>, FNV1aHash>;

    [[nodiscard]] bool
    attachDetachEventHandler(AttachDetach attachDetach, const std::string& eventName,
                             const std::string& eventHandlerName,
                             const std::shared_ptr<IEventListener>& eventListener = nullptr) override;
    [[nodiscard]] bool fireEvent(const std::shared_ptr<IObject>& eventObj) override;

private:
    [[nodiscard]] bool attachEventHandler(const std::string& eventName, const std::string& eventHandlerName,
                                          const std::shared_ptr<IEventListener>& eventListener);
    // Drops the handler; then the event when it has none left, and the table when no event is left.
    [[nodiscard]] bool detachEventHandler(const std::string& eventName, const std::string& eventHandlerName);
    // The handlers entered for `eventName`, or null when there is no such entry.
    const std::shared_ptr<EventListenerMap>* findEventEntry(const std::string& eventName) const;
    // Calls one listener and checks that it reached the base listener.
    [[nodiscard]] static bool callEventListener(EventListenerMap::const_iterator eventListenerIter,
                                                const std::shared_ptr<IEvent>& event,
                                                const std::shared_ptr<IObject>& eventObj);

    std::shared_ptr<EventNameMap> fEventNameMap; // event name -> its handlers; empty until the first attach
};

} // namespace Brw
