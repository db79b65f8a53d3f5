#include "BrwEvent/BrwEventSource.h"

#include "BrwEvent/BrwIEvent.h"
#include "BrwEvent/BrwIEventListener.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

bool EventSource::attachDetachEventHandler(AttachDetach attachDetach, const std::string& eventName,
                                           const std::string& eventHandlerName,
                                           const std::shared_ptr<IEventListener>& eventListener) {
    bool retVal = false;
    if (attachDetach == AttachDetach::ATTACH) {
        retVal = attachEventHandler(eventName, eventHandlerName, eventListener);
    } else if (attachDetach == AttachDetach::DETACH) {
        retVal = detachEventHandler(eventName, eventHandlerName);
    } else {
        LOG_ERROR("no attachDetach");
    }
    return retVal;
}

bool EventSource::attachEventHandler(const std::string& eventName, const std::string& eventHandlerName,
                                     const std::shared_ptr<IEventListener>& eventListener) {
    bool retVal = false;
    do {
        SANITY_CHECK(eventListener);
        if (! fEventNameMap) {
            fEventNameMap = std::make_shared<EventNameMap>();
        }
        std::shared_ptr<EventListenerMap>& eventListenerMap = (*fEventNameMap)[eventName];
        if (! eventListenerMap) {
            eventListenerMap = std::make_shared<EventListenerMap>();
        }
        const auto eventListenerIter = eventListenerMap->find(eventHandlerName);
        SANITY_CHECK(eventListenerIter == eventListenerMap->end());
        eventListenerMap->emplace(eventHandlerName, eventListener);
        retVal = true;
    } while (false);
    return retVal;
}

bool EventSource::detachEventHandler(const std::string& eventName, const std::string& eventHandlerName) {
    bool retVal = false;
    do {
        SANITY_CHECK(fEventNameMap);
        const auto eventNameIter = fEventNameMap->find(eventName);
        SANITY_CHECK(eventNameIter != fEventNameMap->end());
        const std::shared_ptr<EventListenerMap>& eventListenerMap = eventNameIter->second;
        SANITY_CHECK(eventListenerMap);
        const auto eventHandlerEntryIter = eventListenerMap->find(eventHandlerName);
        SANITY_CHECK(eventHandlerEntryIter != eventListenerMap->end());
        eventListenerMap->erase(eventHandlerEntryIter);
        if (eventListenerMap->empty()) {
            fEventNameMap->erase(eventNameIter);
        }
        if (fEventNameMap->empty()) {
            fEventNameMap.reset();
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool EventSource::fireEvent(const std::shared_ptr<IObject>& eventObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IEvent, event, eventObj);
        const std::shared_ptr<EventListenerMap>* eventEntry = findEventEntry(event->getName());
        if (eventEntry == nullptr) {
            // An event nobody listens to is no failure.
            retVal = true;
            break;
        }
        // Held by value: a listener that attaches to another event may rehash the table.
        const std::shared_ptr<EventListenerMap> eventListenerSet = *eventEntry;
        SANITY_CHECK(eventListenerSet);
        SANITY_CHECK(event->setEventSource(this));
        bool isHandled = true;
        for (auto eventListenerIter = eventListenerSet->cbegin();
             isHandled && eventListenerIter != eventListenerSet->cend(); ++eventListenerIter) {
            isHandled = callEventListener(eventListenerIter, event, eventObj);
        }
        // The source is cleared whatever the listeners did.
        SANITY_CHECK(event->setEventSource(nullptr));
        retVal = isHandled;
    } while (false);
    return retVal;
}

const std::shared_ptr<EventSource::EventListenerMap>*
EventSource::findEventEntry(const std::string& eventName) const {
    if (! fEventNameMap) {
        return nullptr;
    }
    const auto eventNameIter = fEventNameMap->find(eventName);
    return eventNameIter != fEventNameMap->end() ? &eventNameIter->second : nullptr;
}

bool EventSource::callEventListener(EventListenerMap::const_iterator eventListenerIter,
                                    const std::shared_ptr<IEvent>& event,
                                    const std::shared_ptr<IObject>& eventObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IEventListener, eventListener, eventListenerIter->second.lock());
        event->clearRootListenerCalled();
        if (! eventListener->handleEvent(eventListenerIter->first, eventObj)) {
            LOG_ERROR("handleEvent failed");
            break;
        }
        SANITY_CHECK(event->wasRootListenerCalled());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
