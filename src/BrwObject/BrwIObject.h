#pragma once

#include <cstdint>
#include <string>

namespace Brw {

class GUIDClass;
class Object;

// How the fixed class table is walked: at start with REGISTER, at teardown with DEREGISTER.
enum RegisterDeregister { REGISTER = 0, DEREGISTER = 1 };

// The root of all runtime objects: a serial ID from the factory on, a GUID on request.
class IObject {
public:
    virtual ~IObject() = default;
    virtual GUIDClass* createGUID() const = 0;
    virtual bool deregisterObject() = 0;
    virtual bool deregisterObjectGUID() const = 0;
    virtual bool deregisterObjectID() const = 0;
    virtual GUIDClass* getGUID() const = 0;
    virtual uint64_t getID() const = 0;
    virtual Object* getObject() = 0;
    virtual bool isObjectGUIDRegistered() const = 0;
    virtual bool isObjectIDRegistered() const = 0;
    virtual bool registerObjectGUID() const = 0;
    virtual bool test() = 0;
    virtual std::string toString() const = 0;
    virtual std::string typeName() const = 0;
    virtual bool operator==(const IObject* other) const = 0;
    virtual bool operator!=(const IObject* other) const = 0;
};

} // namespace Brw
