#pragma once

#include <memory>
#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

class IEventListener;

enum class AttachDetach { ATTACH = 0, DETACH = 1 };

// Fires events to the listeners attached to them by name.
class IEventSource : public virtual IObject {
public:
    // Attaches `eventListener` to `eventName` under `eventHandlerName`, or detaches the handler of that
    // name (the listener is left out then).
    [[nodiscard]] virtual bool
    attachDetachEventHandler(AttachDetach attachDetach, const std::string& eventName,
                             const std::string& eventHandlerName,
                             const std::shared_ptr<IEventListener>& eventListener = nullptr) = 0;
    // Calls every listener of the event's name, within this call; true when nobody listens.
    [[nodiscard]] virtual bool fireEvent(const std::shared_ptr<IObject>& eventObj) = 0;
};

} // namespace Brw
