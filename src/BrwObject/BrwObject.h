#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwObject/BrwFactoryWrapperClass.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwObject/BrwIObject.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// Base of every long-lived runtime object. Its ID comes from the factory; its GUID is made only when
// somebody asks for it. The process-wide tables observe objects through weak pointers.
class Object : public virtual IObject, public std::enable_shared_from_this<Object> {
public:
    using ObjectMap = std::unordered_map<GUIDClass*, std::weak_ptr<const IObject>>;
    using IDToObjectMap = std::unordered_map<uint64_t, std::weak_ptr<IObject>>;
    using FactoryMap = std::unordered_map<std::string, FactoryFunction, FNV1aHash>;
    using DeserializationFactoryMap =
        std::unordered_map<std::string, DeserializationFactoryFunction, FNV1aHash>;
    using ByNameFactoryMap = std::unordered_map<std::string, ByNameFactoryFunction, FNV1aHash>;
    using PrototypeMap = std::map<std::string, std::shared_ptr<IObject>>;

    ~Object() override = default;

    GUIDClass* createGUID() const override;
    bool deregisterObject() override;
    bool deregisterObjectGUID() const override;
    bool deregisterObjectID() const override;
    GUIDClass* getGUID() const override { return fGUID; }
    uint64_t getID() const override { return fID; }
    Object* getObject() override { return this; }
    bool isObjectGUIDRegistered() const override;
    bool isObjectIDRegistered() const override { return fID != 0; }
    bool registerObjectGUID() const override;
    bool test() override;
    std::string toString() const override;
    bool operator==(const IObject* other) const override;
    bool operator!=(const IObject* other) const override { return ! (*this == other); }

    [[nodiscard]] static bool registerObjectID(const std::shared_ptr<IObject>& objPtr);
    static std::shared_ptr<IObject> getObjectFromID(uint64_t id);
    static std::shared_ptr<const IObject> getRegisteredObject(GUIDClass* guid);
    static uint64_t getObjectCount() { return fObjectCount; }
    // The last act of a factory-made shared pointer: drops the object from the ID and GUID tables.
    static void deleter(Object* object);

    [[nodiscard]] static bool registerFactory(const std::string& typeName, FactoryFunction function);
    [[nodiscard]] static bool registerDeserializationFactory(const std::string& typeName,
                                                             DeserializationFactoryFunction function);
    [[nodiscard]] static bool registerByNameFactory(const std::string& typeName,
                                                    ByNameFactoryFunction function);
    [[nodiscard]] static bool deregisterFactory(const std::string& typeName);
    [[nodiscard]] static bool deregisterDeserializationFactory(const std::string& typeName);
    [[nodiscard]] static bool deregisterByNameFactory(const std::string& typeName);
    static FactoryWrapperClass getFactory(const std::string& typeName);
    static DeserializationFactoryWrapperClass getDeserializationFactory(const std::string& typeName);
    static ByNameFactoryWrapperClass getByNameFactory(const std::string& typeName);
    static std::vector<std::string> getRegisteredTypeNames();
    // The text of a message's kind, such as "evalResult"; a value that is no opcode is reported ("unknown
    // opCode") and gives the empty text.
    static std::string opCodeToString(int32_t opCode);

    // The body of every class's registerDeregisterClass: `registerCall` for REGISTER and `deregisterCall`
    // for DEREGISTER, each a checked call of one table; any other value reports "no registerDeregister".
    template <class RegisterCall, class DeregisterCall>
    [[nodiscard]] static bool registerDeregister(RegisterDeregister registerDeregister,
                                                 RegisterCall registerCall, DeregisterCall deregisterCall) {
        bool retVal = false;
        if (registerDeregister == REGISTER) {
            retVal = registerCall();
        } else if (registerDeregister == DEREGISTER) {
            retVal = deregisterCall();
        } else {
            reportNoRegisterDeregister();
        }
        return retVal;
    }

    // Deletes the six tables: part of the process's teardown, after which no object may be registered.
    static void deleteTables();

    // Makes an object of class T under a shared pointer whose deleter deregisters it and frees it, and
    // registers its ID. Null when the object could not be made or registered.
    template <class T, class... Args>
    static std::shared_ptr<T> makeRegistered(Args&&... args) {
        std::shared_ptr<T> objPtr;
        T* rawObject = new (std::nothrow) T(std::forward<Args>(args)...);
        if (rawObject != nullptr) {
            objPtr = std::shared_ptr<T>(rawObject, &Object::deleteRegistered<T>);
            if (! registerObjectID(objPtr)) {
                objPtr.reset();
            }
        }
        return objPtr;
    }

    // The static deleter of each factory-made class.
    template <class T>
    static void deleteRegistered(T* object) {
        deleter(object);
        delete object;
    }

protected:
    Object() = default;

private:
    static void reportNoRegisterDeregister(); // logs "no registerDeregister"

    mutable GUIDClass* fGUID = nullptr; // interned, not owned; null until asked for
    uint64_t fID = 0;                   // 0: not registered

    static ObjectMap* fObjectMap;
    static IDToObjectMap* fIDToObjectMap;
    static FactoryMap* fFactoryMap;
    static DeserializationFactoryMap* fDeserializationFactoryMap;
    static ByNameFactoryMap* fByNameFactoryMap;
    static PrototypeMap* fPrototypeMap;
    static uint64_t fLastID;      // only grows: IDs are never reused
    static uint64_t fObjectCount; // objects registered by ID now
};

} // namespace Brw
