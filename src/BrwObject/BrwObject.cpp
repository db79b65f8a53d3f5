#include "BrwObject/BrwObject.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwClassTest.h"
#include "BrwMessage/BrwOpCode.h"

namespace Brw {

Object::ObjectMap* Object::fObjectMap = new Object::ObjectMap();
Object::IDToObjectMap* Object::fIDToObjectMap = new Object::IDToObjectMap();
Object::FactoryMap* Object::fFactoryMap = new Object::FactoryMap();
Object::DeserializationFactoryMap* Object::fDeserializationFactoryMap =
    new Object::DeserializationFactoryMap();
Object::ByNameFactoryMap* Object::fByNameFactoryMap = new Object::ByNameFactoryMap();
Object::PrototypeMap* Object::fPrototypeMap = new Object::PrototypeMap();
uint64_t Object::fLastID = 0;
uint64_t Object::fObjectCount = 0;

void reportNoObjectFromFactory() {
    LOG_ERROR("no object");
}

void Object::reportNoRegisterDeregister() {
    LOG_ERROR("no registerDeregister");
}

namespace {

template <class Map, class Function>
bool registerInTable(Map* table, const char* noTableText, const std::string& typeName, Function function) {
    bool retVal = false;
    do {
        if (table == nullptr) {
            LOG_ERROR(noTableText);
            break;
        }
        if (! table->emplace(typeName, function).second) {
            LOG_ERROR("duplicate typeName");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

// A table that is already gone counts as done, so that teardown may run in any order.
template <class Map>
bool deregisterFromTable(Map* table, const std::string& typeName) {
    bool retVal = true;
    if (table != nullptr && table->erase(typeName) == 0) {
        LOG_ERROR("unregistered typeName");
        retVal = false;
    }
    return retVal;
}

template <class Wrapper, class Map>
Wrapper lookUpFactory(Map* table, const char* noTableText, const std::string& typeName) {
    Wrapper wrapper;
    if (table == nullptr) {
        LOG_ERROR(noTableText);
    } else if (auto iter = table->find(typeName); iter != table->end()) {
        wrapper = Wrapper(iter->second);
    }
    return wrapper;
}

void logRegisteredObjectCount(size_t count) {
    LOG_TRACE_F("# of registered objects is %zu", count);
}

} // namespace

GUIDClass* Object::createGUID() const {
    if (fGUID == nullptr && ! registerObjectGUID()) {
        LOG_ERROR("failed to register");
    }
    return fGUID;
}

bool Object::registerObjectGUID() const {
    bool retVal = false;
    do {
        if (fObjectMap == nullptr) {
            LOG_ERROR("no fObjectMap");
            break;
        }
        if (fGUID != nullptr) {
            retVal = true;
            break;
        }
        fGUID = GUIDClass::randomFactory();
        const Object* objPtr = this;
        ASSIGN_TYPED(IObject, nonConstObjPtr, Brw::Object::getObjectFromID(objPtr->getID()));
        (*fObjectMap)[fGUID] = nonConstObjPtr;
        logRegisteredObjectCount(fObjectMap->size());
        retVal = true;
    } while (false);
    return retVal;
}

bool Object::isObjectGUIDRegistered() const {
    return fGUID != nullptr && fObjectMap != nullptr && fObjectMap->count(fGUID) != 0;
}

bool Object::deregisterObject() {
    bool retVal = false;
    do {
        if (fGUID != nullptr) {
            SANITY_CHECK(deregisterObjectGUID());
            fGUID = nullptr;
        }
        if (fID != 0) {
            SANITY_CHECK(deregisterObjectID());
            fID = 0;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool Object::deregisterObjectGUID() const {
    bool retVal = false;
    do {
        if (fObjectMap == nullptr) {
            LOG_ERROR("no fObjectMap");
            break;
        }
        if (fGUID == nullptr) {
            retVal = true;
            break;
        }
        auto iter = fObjectMap->find(fGUID);
        if (iter == fObjectMap->end()) {
            LOG_ERROR("object not registered");
            break;
        }
        fObjectMap->erase(iter);
        logRegisteredObjectCount(fObjectMap->size());
        retVal = true;
    } while (false);
    return retVal;
}

bool Object::deregisterObjectID() const {
    bool retVal = false;
    do {
        if (fIDToObjectMap == nullptr) {
            LOG_ERROR("no fIDToObjectMap");
            break;
        }
        if (fID == 0) {
            retVal = true;
            break;
        }
        auto iter = fIDToObjectMap->find(fID);
        SANITY_CHECK(iter != fIDToObjectMap->end());
        fIDToObjectMap->erase(iter);
        --fObjectCount;
        retVal = true;
    } while (false);
    return retVal;
}

bool Object::test() {
    bool retVal = false;
    do {
        std::shared_ptr<ClassTest> classTest;
        ASSIGN(classTest, ClassTest::getClassTest(typeName()));
        retVal = classTest->objectTest(shared_from_this());
    } while (false);
    return retVal;
}

std::string Object::toString() const {
    std::string text = typeName();
    if (getGUID() != nullptr) {
        // NOTE: the unmatched ")" is the established text form.
        text += "[" + getGUID()->toSectionedString() + "])";
    }
    return text;
}

bool Object::operator==(const IObject* other) const {
    return dynamic_cast<const Object*>(other) == this;
}

bool Object::registerObjectID(const std::shared_ptr<IObject>& objPtr) {
    bool retVal = false;
    do {
        if (fIDToObjectMap == nullptr) {
            LOG_ERROR("no fIDToObjectMap");
            break;
        }
        ASSIGN_TYPED(Object, obj, objPtr);
        if (obj->fID != 0) {
            LOG_ERROR("already registered");
            break;
        }
        ++fLastID;
        ++fObjectCount;
        obj->fID = fLastID;
        (*fIDToObjectMap)[obj->fID] = objPtr;
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Object::getObjectFromID(uint64_t id) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(fIDToObjectMap);
        auto iter = fIDToObjectMap->find(id);
        if (iter != fIDToObjectMap->end()) {
            retVal = iter->second.lock();
        }
    } while (false);
    return retVal;
}

std::shared_ptr<const IObject> Object::getRegisteredObject(GUIDClass* guid) {
    std::shared_ptr<const IObject> retVal;
    do {
        if (fObjectMap == nullptr) {
            LOG_ERROR("no fObjectMap");
            break;
        }
        if (guid == nullptr) {
            LOG_ERROR("no guid");
            break;
        }
        auto iter = fObjectMap->find(guid);
        if (iter != fObjectMap->end()) {
            retVal = iter->second.lock();
        }
    } while (false);
    return retVal;
}

void Object::deleter(Object* object) {
    do {
        SANITY_CHECK(object);
        // NOTE: the ID goes first here, the reverse of deregisterObject; results are not looked at.
        if (object->fID != 0) {
            (void)object->deregisterObjectID();
        }
        if (object->fGUID != nullptr) {
            (void)object->deregisterObjectGUID();
        }
    } while (false);
}

bool Object::registerFactory(const std::string& typeName, FactoryFunction function) {
    return registerInTable(fFactoryMap, "no fFactoryMap", typeName, function);
}

bool Object::registerDeserializationFactory(const std::string& typeName,
                                            DeserializationFactoryFunction function) {
    return registerInTable(fDeserializationFactoryMap, "no fDeserializationFactoryMap", typeName, function);
}

bool Object::registerByNameFactory(const std::string& typeName, ByNameFactoryFunction function) {
    return registerInTable(fByNameFactoryMap, "no fByNameFactoryMap", typeName, function);
}

bool Object::deregisterFactory(const std::string& typeName) {
    return deregisterFromTable(fFactoryMap, typeName);
}

bool Object::deregisterDeserializationFactory(const std::string& typeName) {
    return deregisterFromTable(fDeserializationFactoryMap, typeName);
}

bool Object::deregisterByNameFactory(const std::string& typeName) {
    return deregisterFromTable(fByNameFactoryMap, typeName);
}

FactoryWrapperClass Object::getFactory(const std::string& typeName) {
    return lookUpFactory<FactoryWrapperClass>(fFactoryMap, "no fFactoryMap", typeName);
}

DeserializationFactoryWrapperClass Object::getDeserializationFactory(const std::string& typeName) {
    return lookUpFactory<DeserializationFactoryWrapperClass>(fDeserializationFactoryMap,
                                                             "no fDeserializationFactoryMap", typeName);
}

ByNameFactoryWrapperClass Object::getByNameFactory(const std::string& typeName) {
    return lookUpFactory<ByNameFactoryWrapperClass>(fByNameFactoryMap, "no fByNameFactoryMap", typeName);
}

std::vector<std::string> Object::getRegisteredTypeNames() {
    std::vector<std::string> names;
    if (fPrototypeMap == nullptr) {
        LOG_ERROR("no fPrototypeMap");
    } else {
        for (const auto& [name, prototype] : *fPrototypeMap) {
            names.push_back(name);
        }
    }
    return names;
}

void Object::deleteTables() {
    delete fObjectMap;
    fObjectMap = nullptr;
    delete fIDToObjectMap;
    fIDToObjectMap = nullptr;
    delete fFactoryMap;
    fFactoryMap = nullptr;
    delete fDeserializationFactoryMap;
    fDeserializationFactoryMap = nullptr;
    delete fByNameFactoryMap;
    fByNameFactoryMap = nullptr;
    delete fPrototypeMap;
    fPrototypeMap = nullptr;
}

std::string Object::opCodeToString(int32_t opCode) {
    // By value of OpCode, which travels as its number.
    static const char* const OPCODE_TEXTS[] = {
        "none",       "terminate", "ping",       "ping_reply",  "logTrace",    "logNote",
        "logWarning", "logError",  "stdOut",     "stdErr",      "openSession", "closeSession",
        "eval",       "evalFile",  "evalResult", "dataRequest", "dataReply"};
    static_assert(std::size(OPCODE_TEXTS) == OPCODE_COUNT);
    if (opCode < 0 || opCode >= OPCODE_COUNT) {
        LOG_ERROR("unknown opCode");
        return std::string();
    }
    return OPCODE_TEXTS[opCode];
}

} // namespace Brw
