#include "BrwObject/BrwObjectRegistryTest.h"

#include "BrwObject/BrwObject.h"

namespace Brw {

namespace {

class SampleRegistryObject : public Object {
public:
    static constexpr const char* TYPENAME = "SampleRegistryObject";
    std::string typeName() const override { return TYPENAME; }
    static std::shared_ptr<IObject> factory() { return Object::makeRegistered<SampleRegistryObject>(); }
    static std::shared_ptr<IObject> otherFactory() { return nullptr; }
};

} // namespace

bool ObjectRegistryTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testGUIDInterningAndText();
    allOK = testGUIDStrings() && allOK;
    allOK = testObjectIdentities() && allOK;
    allOK = testFactoryTables() && allOK;
    return allOK;
}

bool ObjectRegistryTest::testGUIDInterningAndText() {
    bool retVal = false;
    do {
        const std::string text = "A0000000-0000-0000-0123-456789ABCDEF";
        GUIDClass* guid = GUIDClass::factory(text);
        SANITY_CHECK(guid == GUIDClass::factory(text));
        SANITY_CHECK(guid == GUIDClass::factory("a0000000000000000123456789abcdef"));
        SANITY_CHECK(guid == GUIDClass::factory(0xA000000000000000ULL, 0x0123456789ABCDEFULL));
        CHECK_EQUAL(guid->toSectionedString(), text);
        // Of more than 32 digits the last 32 count.
        SANITY_CHECK(guid == GUIDClass::factory("FF" + text));

        GUIDClass* larger = GUIDClass::factory("B0000000-0000-0000-0123-456789ABCDEF");
        SANITY_CHECK(*guid < *larger && ! (*larger < *guid));
        SANITY_CHECK(*GUIDClass::factory(1, 0) < *GUIDClass::factory(1, 1));
        SANITY_CHECK(*GUIDClass::factory(0, 0xFFFFFFFFFFFFFFFFULL) < *GUIDClass::factory(1, 0));

        GUIDClass* nullGUID = GUIDClass::factory(0, 0);
        SANITY_CHECK(nullGUID == GUIDClass::factory(0, 0) && nullGUID == GUIDClass::factory(""));
        CHECK_EQUAL(nullGUID->toSectionedString(), "00000000-0000-0000-0000-000000000000");

        GUIDClass* random1 = GUIDClass::randomFactory();
        GUIDClass* random2 = GUIDClass::randomFactory();
        SANITY_CHECK(random1 != random2 && ! random1->isNull());
        SANITY_CHECK(GUIDClass::factory(random1->toSectionedString()) == random1);
        retVal = true;
    } while (false);
    return retVal;
}

bool ObjectRegistryTest::testGUIDStrings() {
    bool retVal = false;
    do {
        const std::string digits31 = "A000000000000000012345678ABCDEF";
        SANITY_CHECK(! GUIDClass::isGUIDString(digits31));
        SANITY_CHECK(GUIDClass::isGUIDString(digits31 + "0"));
        SANITY_CHECK(! GUIDClass::isGUIDString(digits31 + "00"));
        SANITY_CHECK(! GUIDClass::isGUIDString("A0000000 0000-0000-0123-456789ABCDEF"));
        SANITY_CHECK(GUIDClass::isGUIDString("{A0000000-0000-0000-0123-456789ABCDEF}"));
        SANITY_CHECK(GUIDClass::isGUIDString("(A0000000_0000_0000_0123_456789ABCDEF)"));
        SANITY_CHECK(! GUIDClass::isGUIDString(""));
        retVal = true;
    } while (false);
    return retVal;
}

bool ObjectRegistryTest::testObjectIdentities() {
    bool retVal = false;
    do {
        const uint64_t countBefore = Object::getObjectCount();
        uint64_t goneID = 0;
        GUIDClass* goneGUID = nullptr;
        {
            std::shared_ptr<IObject> object = SampleRegistryObject::factory();
            std::shared_ptr<IObject> other = SampleRegistryObject::factory();
            SANITY_CHECK(object && other);
            CHECK_EQUAL(Object::getObjectCount(), countBefore + 2);
            SANITY_CHECK(other->getID() > object->getID());
            SANITY_CHECK(Object::getObjectFromID(object->getID()) == object);
            SANITY_CHECK(*object == object.get() && *object != other.get());

            // No GUID until asked for; the text form then carries it.
            SANITY_CHECK(! object->isObjectGUIDRegistered() && object->getGUID() == nullptr);
            CHECK_EQUAL(object->toString(), "SampleRegistryObject");
            GUIDClass* guid = object->createGUID();
            SANITY_CHECK(guid && guid == object->createGUID());
            SANITY_CHECK(object->isObjectGUIDRegistered());
            SANITY_CHECK(Object::getRegisteredObject(guid) == object);
            CHECK_EQUAL(object->toString(), "SampleRegistryObject[" + guid->toSectionedString() + "])");

            // Deregistered by hand: both identities go, the GUID first.
            SANITY_CHECK(other->deregisterObject());
            CHECK_EQUAL(other->getID(), 0u);
            CHECK_EQUAL(Object::getObjectCount(), countBefore + 1);
            goneID = object->getID();
            goneGUID = guid;
        }
        CHECK_EQUAL(Object::getObjectCount(), countBefore);
        SANITY_CHECK(! Object::getObjectFromID(goneID));
        SANITY_CHECK(! Object::getObjectFromID(0));
        SANITY_CHECK(! Object::getRegisteredObject(goneGUID));
        retVal = true;
    } while (false);
    return retVal;
}

bool ObjectRegistryTest::testFactoryTables() {
    bool retVal = false;
    do {
        const std::string typeName = SampleRegistryObject::TYPENAME;
        LogLevelScope quiet(0);
        SANITY_CHECK(Object::getFactory(typeName).wrappedFactoryIsNull());
        SANITY_CHECK(Object::registerFactory(typeName, SampleRegistryObject::factory));
        SANITY_CHECK(! Object::registerFactory(typeName, SampleRegistryObject::otherFactory));
        FactoryWrapperClass factory = Object::getFactory(typeName);
        SANITY_CHECK(! factory.wrappedFactoryIsNull());
        std::shared_ptr<IObject> made = factory.call();
        SANITY_CHECK(made && made->typeName() == typeName);
        SANITY_CHECK(Object::deregisterFactory(typeName));
        SANITY_CHECK(! Object::deregisterFactory(typeName));
        SANITY_CHECK(Object::getDeserializationFactory(typeName).wrappedFactoryIsNull());
        SANITY_CHECK(Object::getByNameFactory(typeName).wrappedFactoryIsNull());
        SANITY_CHECK(! FactoryWrapperClass(SampleRegistryObject::otherFactory).call());
        SANITY_CHECK(Object::getRegisteredTypeNames().empty());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
