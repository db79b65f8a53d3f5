#include "BrwService/BrwService_abstract.h"

#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwEvent/BrwIEvent.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwService/BrwIInternalCoordinator.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

// ---- the parent ----

std::shared_ptr<IObject> Service_abstract::getSelfObj() const {
    return Object::getObjectFromID(getID());
}

bool Service_abstract::isRootService() const {
    return dynamic_cast<const IInternalCoordinator*>(this) != nullptr;
}

bool Service_abstract::attachToParent(const std::shared_ptr<IObject>& parentObj) {
    bool retVal = false;
    do {
        if (isRootService()) {
            retVal = true;
            break;
        }
        ASSIGN_TYPED(IService, parent, parentObj);
        std::shared_ptr<IObject> thisObj = getSelfObj();
        SANITY_CHECK(thisObj);
        if (parent->ownsChild(thisObj)) {
            retVal = true;
            break;
        }
        if (hasParent()) {
            LOG_ERROR("child of different parent");
            break;
        }
        fParent = parentObj;
        retVal = parent->attachChildObj(thisObj);
        if (! retVal) {
            fParent.reset();
        }
    } while (false);
    return retVal;
}

bool Service_abstract::detachFromParent() {
    bool retVal = false;
    do {
        std::shared_ptr<IService> parent = std::dynamic_pointer_cast<IService>(fParent.lock());
        SANITY_CHECK(parent);
        std::shared_ptr<IObject> thisObj = getSelfObj();
        SANITY_CHECK(parent->ownsChild(thisObj));
        SANITY_CHECK(parent->detachChildObj(thisObj));
        fParent.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t Service_abstract::getIndexInNameMap() const {
    uint64_t retVal = NO_INDEX;
    do {
        if (isRootService()) {
            break;
        }
        std::shared_ptr<IService> parent = std::dynamic_pointer_cast<IService>(fParent.lock());
        if (! parent) {
            LOG_ERROR("no parent");
            break;
        }
        retVal = parent->getChildIndexInNameMap(getSelfObj());
    } while (false);
    return retVal;
}

// ---- the children ----

bool Service_abstract::attachChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IService, child, childObj);
        if (std::dynamic_pointer_cast<IInternalCoordinator>(childObj)) {
            LOG_ERROR("cannot attach coordinator");
            break;
        }
        if (ownsChild(childObj)) {
            retVal = true;
            break;
        }
        const std::shared_ptr<IObject> childParent = child->getParentObj();
        if (! childParent) {
            // The child learns its parent first, and comes back here.
            retVal = child->attachToParent(getSelfObj());
            break;
        }
        if (childParent.get() != static_cast<const IObject*>(this)) {
            LOG_ERROR("child of different parent");
            break;
        }
        if (childObj->getGUID() != nullptr) {
            SANITY_CHECK(attachRegisteredChildObj(childObj));
        } else {
            SANITY_CHECK(attachUnregisteredChildObj(childObj));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::attachRegisteredChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(childObj);
        GUIDClass* childGUID = childObj->getGUID();
        if (childGUID == nullptr) {
            LOG_ERROR("not registered");
            break;
        }
        if (! fRegisteredChildren) {
            fRegisteredChildren = std::make_unique<RegisteredChildren>();
        }
        auto [iter, isNew] = fRegisteredChildren->emplace(childGUID, childObj);
        if (! isNew && iter->second != childObj) {
            LOG_ERROR("raw pointer mismatch");
            break;
        }
        fChildIndexLookupTablesDirty = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::attachUnregisteredChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(childObj);
        if (childObj->getGUID() != nullptr) {
            LOG_ERROR("child is registered");
            break;
        }
        if (! fUnregisteredChildren) {
            fUnregisteredChildren = std::make_unique<UnregisteredChildren>();
        }
        fUnregisteredChildren->emplace(childObj.get(), childObj);
        fChildIndexLookupTablesDirty = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::detachChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(childObj);
        if (std::dynamic_pointer_cast<IInternalCoordinator>(childObj)) {
            LOG_ERROR("cannot detach coordinator");
            break;
        }
        if (! ownsChild(childObj)) {
            LOG_ERROR("child of different parent");
            break;
        }
        if (childObj->getGUID() != nullptr) {
            SANITY_CHECK(detachRegisteredChildObj(childObj));
        } else {
            SANITY_CHECK(detachUnregisteredChildObj(childObj));
        }
        fChildIndexLookupTablesDirty = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::detachRegisteredChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(childObj);
        GUIDClass* childGUID = childObj->getGUID();
        const auto iter = fRegisteredChildren && childGUID != nullptr ? fRegisteredChildren->find(childGUID)
                                                                      : RegisteredChildren::iterator();
        if (! fRegisteredChildren || childGUID == nullptr || iter == fRegisteredChildren->end()) {
            LOG_ERROR("child is not registered");
            break;
        }
        if (iter->second != childObj) {
            LOG_ERROR("raw pointer mismatch");
            break;
        }
        fRegisteredChildren->erase(iter);
        fChildIndexLookupTablesDirty = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::detachUnregisteredChildObj(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(childObj);
        if (childObj->getGUID() != nullptr) {
            LOG_ERROR("child is registered");
            break;
        }
        SANITY_CHECK(fUnregisteredChildren && fUnregisteredChildren->erase(childObj.get()) == 1);
        fChildIndexLookupTablesDirty = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::ownsChild(const std::shared_ptr<IObject>& childObj) const {
    if (! childObj) {
        return false;
    }
    return childObj->getGUID() != nullptr ? isRegisteredChild(childObj) : isUnregisteredChild(childObj);
}

bool Service_abstract::isRegisteredChild(const std::shared_ptr<IObject>& childObj) const {
    bool retVal = false;
    do {
        GUIDClass* childGUID = childObj->getGUID();
        SANITY_CHECK(childGUID);
        retVal = fRegisteredChildren && fRegisteredChildren->count(childGUID) != 0;
    } while (false);
    return retVal;
}

bool Service_abstract::isUnregisteredChild(const std::shared_ptr<IObject>& childObj) const {
    bool retVal = false;
    do {
        SANITY_CHECK(! childObj->getGUID());
        retVal = fUnregisteredChildren && fUnregisteredChildren->count(childObj.get()) != 0;
    } while (false);
    return retVal;
}

std::vector<std::shared_ptr<IObject>> Service_abstract::getChildren() const {
    std::vector<std::shared_ptr<IObject>> children;
    if (fRegisteredChildren) {
        for (const auto& [guid, child] : *fRegisteredChildren) {
            children.push_back(child);
        }
    }
    if (fUnregisteredChildren) {
        for (const auto& [raw, child] : *fUnregisteredChildren) {
            children.push_back(child);
        }
    }
    return children;
}

// ---- numbers by name ----

void Service_abstract::clearChildIndexLookupTables() {
    fNameMap.clear();
}

bool Service_abstract::refreshChildIndexLookupTables() {
    bool retVal = false;
    do {
        if (! fChildIndexLookupTablesDirty) {
            retVal = true;
            break;
        }
        fChildIndexLookupTablesDirty = false;
        clearChildIndexLookupTables();
        bool allOK = true;
        for (const std::shared_ptr<IObject>& child : getChildren()) {
            allOK = refreshChildIndexInNameMap(child);
            if (! allOK) {
                break;
            }
        }
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::refreshChildIndexInNameMap(const std::shared_ptr<IObject>& childObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(this->ownsChild(childObj));
        ASSIGN_TYPED(IService, child, childObj);
        const std::string name = child->getName();
        SANITY_CHECK(! name.empty());
        NameEntry& entry = fNameMap[name];
        SANITY_CHECK(entry.numericalIndexByChild.count(childObj.get()) == 0);
        entry.numericalIndexByChild[childObj.get()] = entry.childByNumericalIndex.size();
        entry.childByNumericalIndex.push_back(childObj);
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Service_abstract::getChild(const std::string& name, uint64_t index) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(refreshChildIndexLookupTables());
        auto iter = fNameMap.find(name);
        if (iter == fNameMap.end() || index >= iter->second.childByNumericalIndex.size()) {
            break;
        }
        retVal = iter->second.childByNumericalIndex[index];
    } while (false);
    return retVal;
}

uint64_t Service_abstract::getChildCountByName(const std::string& name) {
    uint64_t retVal = 0;
    do {
        SANITY_CHECK(refreshChildIndexLookupTables());
        auto iter = fNameMap.find(name);
        retVal = iter == fNameMap.end() ? 0 : iter->second.childByNumericalIndex.size();
    } while (false);
    return retVal;
}

uint64_t Service_abstract::getChildIndexInNameMap(const std::shared_ptr<IObject>& childObj) {
    uint64_t retVal = NO_INDEX;
    do {
        SANITY_CHECK(refreshChildIndexLookupTables());
        ASSIGN_TYPED(IService, child, childObj);
        const std::string name = child->getName();
        SANITY_CHECK(! name.empty());
        auto entry = fNameMap.find(name);
        if (entry == fNameMap.end()) {
            break;
        }
        auto iter = entry->second.numericalIndexByChild.find(childObj.get());
        if (iter != entry->second.numericalIndexByChild.end()) {
            retVal = iter->second;
        }
    } while (false);
    return retVal;
}

// ---- registration ----

GUIDClass* Service_abstract::createGUID() const {
    GUIDClass* retVal = getGUID();
    do {
        if (retVal != nullptr) {
            break;
        }
        std::shared_ptr<Service_abstract> parent;
        std::shared_ptr<IObject> thisObj = getSelfObj();
        if (! isRootService()) {
            parent = std::dynamic_pointer_cast<Service_abstract>(fParent.lock());
            if (! parent) {
                LOG_ERROR("no parent");
                break;
            }
            if (! parent->detachUnregisteredChildObj(thisObj)) {
                LOG_ERROR("cannot detach");
                break;
            }
        }
        retVal = Object::createGUID();
        if (retVal == nullptr) {
            LOG_ERROR("no guid");
        }
        if (parent && ! parent->attachRegisteredChildObj(thisObj)) {
            LOG_ERROR("cannot attach");
        }
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Service_abstract::getAddressObj() const {
    return LocalResolvedAddress::factoryFromGUIDs(createGUID(), InternalCoordinator::getOwnGUID());
}

bool Service_abstract::deregisterChildren() {
    bool allOK = true;
    for (const std::shared_ptr<IObject>& childObj : getChildren()) {
        const bool isRegistered = childObj->getGUID() != nullptr;
        if (isRegistered ? ! detachRegisteredChildObj(childObj) : ! detachUnregisteredChildObj(childObj)) {
            LOG_ERROR(isRegistered ? "failed detachRegisteredChildObj" : "failed detachUnregisteredChildObj");
            allOK = false;
        }
        if (auto child = std::dynamic_pointer_cast<Service_abstract>(childObj)) {
            child->fParent.reset();
        }
        allOK = childObj->deregisterObject() && allOK;
    }
    return allOK;
}

bool Service_abstract::deregisterObject() {
    bool retVal = false;
    do {
        if (hasParent()) {
            SANITY_CHECK(detachFromParent());
        }
        const bool allOK = deregisterChildren();
        fRegisteredChildren.reset();
        fUnregisteredChildren.reset();
        clearChildIndexLookupTables();
        fEventQueue.clear();
        SANITY_CHECK(allOK);
        retVal = Object::deregisterObject();
    } while (false);
    return retVal;
}

// ---- messages, events and time ----

bool Service_abstract::isIdle() {
    for (const std::shared_ptr<IObject>& childObj : getChildren()) {
        auto child = std::dynamic_pointer_cast<IService>(childObj);
        if (child && ! child->isIdle()) {
            return false;
        }
    }
    return true;
}

bool Service_abstract::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        std::shared_ptr<IObject> event;
        ASSIGN(event, Event::factoryFromNamePayload("messageReceived", messageObj));
        SANITY_CHECK(fireEvent(event));
        retVal = true;
    } while (false);
    return retVal;
}

bool Service_abstract::queueEvent(const std::shared_ptr<IObject>& eventObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IEvent, event, eventObj);
        fEventQueue.push_back(eventObj);
        retVal = true;
    } while (false);
    return retVal;
}

void Service_abstract::timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    struct LocalVariableState : OMFunctionState {
        std::vector<std::shared_ptr<IObject>> children; // the tree may change during the walk
        std::vector<std::shared_ptr<IObject>> events;   // those queued before this slice
        size_t index = 0;
        std::shared_ptr<IService> child; // the child whose slice runs
        bool isChildCompleted = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, completed = false);
    frame->children = getChildren();
    if (! fEventQueue.empty()) {
        YIELDING_ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        internalCoordinator->reportMessagingActivityInEventLoop();
        // An event queued while these are delivered waits for the next slice.
        frame->events.swap(fEventQueue);
    }
    for (frame->index = 0; frame->index < frame->events.size(); ++frame->index) {
        {
            const std::shared_ptr<IObject>& event = frame->events[frame->index];
            const bool success = std::dynamic_pointer_cast<IEvent>(event) && fireEvent(event);
            (void)SANITY_CHECKED(success);
        }
        YIELDING_STEP;
    }
    frame->events.clear();
    for (frame->index = 0; frame->index < frame->children.size(); ++frame->index) {
        // A child deregistered meanwhile is no registered object any more: it is passed over.
        frame->child = std::dynamic_pointer_cast<IService>(
            Object::getObjectFromID(frame->children[frame->index]->getID()));
        if (! frame->child) {
            LOG_TRACE("no childServiceObj");
            continue;
        }
        YIELDING_CALL(frame->child->timeslice_yielding(task, frame->isChildCompleted));
    }
    completed = true;
    YIELDING_END;
}

} // namespace Brw
