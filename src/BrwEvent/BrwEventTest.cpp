#include "BrwEvent/BrwEventTest.h"

#include <algorithm>

#include "BrwData/BrwDataString.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwEvent/BrwEventListener.h"
#include "BrwEvent/BrwEventSource.h"
#include "BrwMain/BrwLogRecorder.h"

namespace Brw {

namespace {

class SampleEventSource : public EventSource {
public:
    static constexpr const char* TYPENAME = "SampleEventSource";
    std::string typeName() const override { return TYPENAME; }
    static std::shared_ptr<SampleEventSource> factory() {
        return Object::makeRegistered<SampleEventSource>();
    }
};

// Notes each call as "handler:event" with the source it saw; may skip the base listener on purpose.
class RecordingListener : public EventListener {
public:
    explicit RecordingListener(bool isCallingBase = true) : fIsCallingBase(isCallingBase) {}

    bool handleEvent(const std::string& eventHandlerName, const std::shared_ptr<IObject>& eventObj) override {
        bool retVal = false;
        do {
            if (fIsCallingBase) {
                SANITY_CHECK(EventListener::handleEvent(eventHandlerName, eventObj));
            }
            ASSIGN_TYPED(IEvent, event, eventObj);
            fCalls.push_back(eventHandlerName + ":" + event->getName());
            fSourcesSeen.push_back(event->getEventSource());
            retVal = true;
        } while (false);
        return retVal;
    }

    bool fIsCallingBase;                     // false: the override forgets the base call
    std::vector<std::string> fCalls;         // "handler:event", in the order of the calls
    std::vector<IEventSource*> fSourcesSeen; // the event's source during each call
};

std::shared_ptr<IEvent> makeEvent(const std::string& name,
                                  const std::shared_ptr<IObject>& payloadObj = nullptr) {
    return std::dynamic_pointer_cast<IEvent>(Event::factoryFromNamePayload(name, payloadObj));
}

// The serialized form of `depth` events, each the payload of the one before.
std::string nestedEventsText(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text += "Event\nlevel\n";
    }
    return text + "DataNull\n";
}

} // namespace

std::string EventTest::getClassTypeName() const {
    return Event::TYPENAME;
}

bool EventTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testFiringReachesListeners();
    allOK = testListenerThatSkipsTheBase() && allOK;
    allOK = testAttachAndDetachChecks() && allOK;
    allOK = testEventRoundTrip() && allOK;
    allOK = testNestedPayloads() && allOK;
    return allOK;
}

bool EventTest::testFiringReachesListeners() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        std::shared_ptr<IEvent> event = makeEvent("DUMMY", DataString::factoryFromString("payload"));
        SANITY_CHECK(source && event);
        SANITY_CHECK(source->fireEvent(event));

        auto listener = std::make_shared<RecordingListener>();
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "first", listener));
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "second", listener));
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "OTHER", "first", listener));
        SANITY_CHECK(source->fireEvent(event));
        CHECK_EQUAL(listener->fCalls.size(), 2u);
        SANITY_CHECK(std::is_permutation(listener->fCalls.begin(), listener->fCalls.end(),
                                         std::vector<std::string>({"first:DUMMY", "second:DUMMY"}).begin()));
        // The source is there during each call, and only then.
        const IEventSource* expectedSource = source.get();
        SANITY_CHECK(listener->fSourcesSeen[0] == expectedSource &&
                     listener->fSourcesSeen[1] == expectedSource);
        SANITY_CHECK(event->getEventSource() == nullptr);

        bool isFired = true;
        std::vector<std::string> lines = LogRecorder::record(
            1, [&] { isFired = source->fireEvent(DataString::factoryFromString("no event")); });
        SANITY_CHECK(! isFired &&
                     LogRecorder::hasLineWith(lines, "ASSIGN_TYPED failed: 'IEvent event = eventObj;'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testListenerThatSkipsTheBase() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        std::shared_ptr<IEvent> event = makeEvent("DUMMY");
        auto forgetful = std::make_shared<RecordingListener>(false);
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "forgetful", forgetful));
        bool isFired = true;
        std::vector<std::string> lines = LogRecorder::record(1, [&] { isFired = source->fireEvent(event); });
        SANITY_CHECK(! isFired && forgetful->fCalls.size() == 1);
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "'event->wasRootListenerCalled()' evaluates to false"));
        SANITY_CHECK(event->getEventSource() == nullptr);

        // A listener that has gone without detaching fails the walk.
        forgetful.reset();
        lines = LogRecorder::record(1, [&] { isFired = source->fireEvent(event); });
        SANITY_CHECK(! isFired &&
                     LogRecorder::hasLineWith(lines, "ASSIGN_TYPED failed: 'IEventListener eventListener "
                                                     "= eventListenerIter->second.lock();'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testAttachAndDetachChecks() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        auto listener = std::make_shared<RecordingListener>();
        bool isDone = true;
        std::vector<std::string> lines = LogRecorder::record(1, [&] {
            isDone = ! source->attachDetachEventHandler(AttachDetach::DETACH, "E", "h") &&
                     source->attachDetachEventHandler(AttachDetach::ATTACH, "E", "h", listener) &&
                     ! source->attachDetachEventHandler(AttachDetach::ATTACH, "E", "h", listener) &&
                     source->attachDetachEventHandler(AttachDetach::ATTACH, "F", "h", listener) &&
                     ! source->attachDetachEventHandler(AttachDetach::DETACH, "E", "never") &&
                     ! source->attachDetachEventHandler(AttachDetach::DETACH, "G", "h");
        });
        SANITY_CHECK(isDone &&
                     LogRecorder::hasLineWith(lines, "SANITY_CHECK failed: 'fEventNameMap' evaluates"));
        SANITY_CHECK(
            LogRecorder::hasLineWith(lines, "'eventListenerIter == eventListenerMap->end()' evaluates"));
        SANITY_CHECK(
            LogRecorder::hasLineWith(lines, "'eventHandlerEntryIter != eventListenerMap->end()' evaluates"));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "'eventNameIter != fEventNameMap->end()' evaluates"));

        // Once every handler has gone, nobody listens and the table is gone too.
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::DETACH, "E", "h"));
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::DETACH, "F", "h"));
        SANITY_CHECK(source->fireEvent(makeEvent("E")) && listener->fCalls.empty());
        lines = LogRecorder::record(
            1, [&] { isDone = source->attachDetachEventHandler(AttachDetach::DETACH, "E", "h"); });
        SANITY_CHECK(! isDone &&
                     LogRecorder::hasLineWith(lines, "SANITY_CHECK failed: 'fEventNameMap' evaluates"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testEventRoundTrip() {
    bool retVal = false;
    do {
        const std::shared_ptr<IObject> event =
            Event::factoryFromNamePayload("null", DataString::factoryFromString("test1223"));
        const std::string text = Data_abstract::serializeToStr(event);
        CHECK_EQUAL(text, "Event\nnull\nDataString\ntest1223\n");
        const std::shared_ptr<IObject> copy = Data_abstract::deserializeFromStr(text);
        SANITY_CHECK(copy && copy != event && *copy == event.get());
        SANITY_CHECK(std::dynamic_pointer_cast<IData>(copy)->hash() ==
                     std::dynamic_pointer_cast<IData>(event)->hash());
        SANITY_CHECK(*copy != makeEvent("null", DataString::factoryFromString("test1224")).get());

        // A null payload travels as the DataNull and comes back as null.
        ASSIGN_TYPED(IEvent, bare, Data_abstract::deserializeFromStr("Event\nbare\nDataNull\n"));
        SANITY_CHECK(bare->getName() == "bare" && ! bare->getPayloadObj() &&
                     *bare == makeEvent("bare").get());

        std::shared_ptr<IObject> refused;
        std::vector<std::string> lines =
            LogRecorder::record(1, [&] { refused = Event::factoryFromNamePayload("", nullptr); });
        SANITY_CHECK(! refused &&
                     LogRecorder::hasLineWith(lines, "SANITY_CHECK failed: '! name.empty()' evaluates"));
        lines = LogRecorder::record(
            1, [&] { refused = Data_abstract::deserializeFromStr("Event\n\nDataNull\n"); });
        SANITY_CHECK(! refused &&
                     LogRecorder::hasLineWith(lines, "SANITY_CHECK failed: '! fName.empty()' evaluates"));
        // Only data travel as payloads.
        lines = LogRecorder::record(
            1, [&] { refused = Data_abstract::deserializeFromStr("Event\nx\nSimpleSerializer\n"); });
        SANITY_CHECK(! refused && LogRecorder::hasLineWith(lines, "cannot deserialize"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testNestedPayloads() {
    bool retVal = false;
    do {
        const int deepest = Data_abstract::MAX_NESTED_OBJECTS - 1;
        const std::shared_ptr<IObject> nested = Data_abstract::deserializeFromStr(nestedEventsText(deepest));
        SANITY_CHECK(nested && Data_abstract::serializeToStr(nested) == nestedEventsText(deepest));
        // One level more is refused, not followed down the stack.
        std::shared_ptr<IObject> tooDeep;
        std::vector<std::string> lines = LogRecorder::record(
            1, [&] { tooDeep = Data_abstract::deserializeFromStr(nestedEventsText(deepest + 1)); });
        SANITY_CHECK(! tooDeep &&
                     LogRecorder::hasLineWith(lines, "'gNestedObjectCount <= MAX_NESTED_OBJECTS'"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
