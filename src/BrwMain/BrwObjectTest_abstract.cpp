#include "BrwMain/BrwObjectTest_abstract.h"

#include "BrwObject/BrwObject.h"

namespace Brw {

std::shared_ptr<IObject> ObjectTest_abstract::makeTestObject() {
    std::shared_ptr<IObject> object;
    FactoryWrapperClass factory = Object::getFactory(getClassTypeName());
    if (factory.wrappedFactoryIsNull()) {
        LOG_ERROR("no classTest");
    } else {
        object = factory.call();
    }
    return object;
}

bool ObjectTest_abstract::classTest() {
    bool retVal = false;
    do {
        std::shared_ptr<IObject> object = makeTestObject();
        bool allOK = object != nullptr && object->createGUID() != nullptr &&
                     Object::getRegisteredObject(object->getGUID()).get() == object.get();
        SANITY_CHECK(allOK);
        SANITY_CHECK(objectTest(object));
        retVal = true;
    } while (false);
    return retVal;
}

bool ObjectTest_abstract::objectTest(const std::shared_ptr<IObject>& object) {
    bool retVal = false;
    do {
        REPORT_OBJECT_TEST;
        if (! object) {
            LOG_ERROR("no obj");
            break;
        }
        const std::string objTypeName = object->typeName();
        if (objTypeName.empty()) {
            LOG_ERROR("no objTypeName");
            break;
        }
        if (Object::getObjectFromID(object->getID()).get() != object.get()) {
            LOG_ERROR("ID not registered");
            break;
        }
        GUIDClass* guid = object->createGUID();
        if (guid == nullptr) {
            LOG_ERROR("no guid");
            break;
        }
        std::shared_ptr<const IObject> found = Object::getRegisteredObject(guid);
        if (! found) {
            LOG_ERROR("cannot find via guid");
            break;
        }
        if (found.get() != object.get()) {
            LOG_ERROR("should be same pointer");
            break;
        }
        const bool hasFactory = ! Object::getFactory(objTypeName).wrappedFactoryIsNull() ||
                                ! Object::getDeserializationFactory(objTypeName).wrappedFactoryIsNull() ||
                                ! Object::getByNameFactory(objTypeName).wrappedFactoryIsNull();
        if (! hasFactory) {
            LOG_ERROR("object class should have least one registered factory");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
