#include "framework/component/Component.h"
#include "framework/component/Signals.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace KVX;

namespace {

/// Records what it is told, and can act on the subject while it is notified.
class Recorder : public Object, public IObserver
{
    KVX_DECLARE_CLASS(Recorder, Object)
public:
    void notify(ISubject* subject, IMessage& message) override
    {
        messages.push_back(std::string(idOf(message)));
        subjects.push_back(subject);
        onThread.push_back(std::this_thread::get_id());
        if (action)
            action(subject, message);
    }
    KVX_FORWARD_UNKNOWN(Object)

    std::vector<std::string> messages;
    std::vector<ISubject*> subjects;
    std::vector<std::thread::id> onThread;
    std::function<void(ISubject*, IMessage&)> action;
};
KVX_DEFINE_CLASS(Recorder, Object, "Recorder")

tresult Recorder::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    return Object::queryInterface(iid, object);
}

/// A component that dispatches parameter changes on the tag, as controllers do.
class Panel : public Component
{
public:
    Panel() : Component("Panel")
    {
        addParameter(Parameter::kCommand, "signIn", 100);
        addParameter(Parameter::kToggle, "saveChecked", 103);
        addParameter(Parameter::kString, "newProductName", 104);
        addParameter(Parameter::kList, "titlesList", 105);
    }
    bool paramChanged(Parameter& parameter) override
    {
        changedTags.push_back(parameter.tag());
        return true;
    }
    bool getProperty(Variant& value, std::string_view name) const override
    {
        if (name == "loginPhase")
        {
            value = int64(2);
            return true;
        }
        return Component::getProperty(value, name);
    }
    void notify(ISubject*, IMessage& message) override
    {
        if (postedLog)
            postedLog->push_back(std::string(idOf(message)));
    }

    std::vector<int> changedTags;
    std::vector<std::string>* postedLog = nullptr;
};

} // namespace

TEST(Component, FindsChildrenByNameAndReleasesThemWithItself)
{
    auto root = makeRef<Component>("Module");
    auto client = makeRef<Component>("Client");
    auto credentials = makeRef<Component>("Credentials");
    root->addChild(client);
    root->addChild(credentials);
    root->addChild(client); // a child is added once
    EXPECT_EQ(root->childCount(), 2u);
    EXPECT_EQ(root->findChild("Credentials"), credentials.get());
    EXPECT_EQ(root->findChild("credentials"), nullptr); // names are case-sensitive
    EXPECT_EQ(client->parent(), root.get());
    EXPECT_EQ(client->referenceCount(), 2u);

    root.reset();
    EXPECT_EQ(client->referenceCount(), 1u);
    EXPECT_EQ(client->parent(), nullptr);
}

TEST(Parameter, ChangesReachTheOwnerOnlyWithNotification)
{
    auto panel = makeRef<Panel>();
    Parameter* name = panel->findParameter("newProductName");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(panel->findParameter(104), name);

    auto view = makeRef<Recorder>();
    name->addObserver(view);
    name->setValue(String("Untitled")); // the component writing its own parameter
    EXPECT_TRUE(panel->changedTags.empty());
    EXPECT_EQ(view->messages, std::vector<std::string>{Signals::kChanged});
    EXPECT_EQ(name->stringValue(), "Untitled");

    name->setValue(String("Live"), true); // an edit from a control
    EXPECT_EQ(panel->changedTags, std::vector<int>{104});
    name->setValue(String("Live"), true); // no change, no notification
    EXPECT_EQ(panel->changedTags.size(), 1u);

    Parameter* signIn = panel->findParameter(100);
    signIn->setValue(1, true);
    signIn->setValue(1, true); // a command is an activation each time
    EXPECT_EQ(panel->changedTags, (std::vector<int>{104, 100, 100}));
    name->removeObserver(view);
}

TEST(Parameter, KeepsValuesWithinTheirKind)
{
    auto panel = makeRef<Panel>();
    Parameter* toggle = panel->findParameter("saveChecked");
    toggle->setValue(5);
    EXPECT_EQ(toggle->intValue(), 1);
    toggle->setValue(2.7); // doubles are truncated, then clamped
    EXPECT_EQ(toggle->intValue(), 1);
    toggle->setValue(-1);
    EXPECT_EQ(toggle->intValue(), 0);

    Parameter* list = panel->findParameter("titlesList");
    EXPECT_EQ(list->maximum(), 0);
    list->appendEntry(String("First"));
    list->appendEntry(String("Second"));
    list->appendEntry(String("-- Add a new Product --"));
    EXPECT_EQ(list->maximum(), 2);
    list->setValue(list->maximum(), true);
    EXPECT_EQ(list->intValue(), 2);
    list->setValue(9);
    EXPECT_EQ(list->intValue(), 2);
    EXPECT_EQ(list->entry(1).toString(), "Second");
    EXPECT_TRUE(list->entry(3).isEmpty());
    list->removeAllEntries();
    EXPECT_EQ(list->intValue(), 0);
    EXPECT_EQ(list->entryCount(), 0u);

    Parameter* number = panel->addParameter(Parameter::kInteger, "year", 2);
    number->setRange(0, 9999);
    number->setValue(String("2014"));
    EXPECT_EQ(number->intValue(), 2014);
    number->setValue(String("abc"));
    EXPECT_EQ(number->intValue(), 0);

    auto view = makeRef<Recorder>();
    number->addObserver(view);
    number->enable(false);
    number->enable(false);
    EXPECT_FALSE(number->isEnabled());
    EXPECT_EQ(view->messages.size(), 1u); // only a real change of state is signalled
    number->removeObserver(view);
}

TEST(Component, AnswersPropertiesByName)
{
    auto panel = makeRef<Panel>();
    Variant value;
    ASSERT_TRUE(panel->getProperty(value, "loginPhase"));
    EXPECT_EQ(value.asInt(), 2);
    ASSERT_TRUE(panel->getProperty(value, "name"));
    EXPECT_EQ(value.toString(), "Panel");
    EXPECT_FALSE(panel->getProperty(value, "noSuchProperty"));
}

TEST(Component, ObserversMayRemoveThemselvesOrOthersWhileNotified)
{
    auto subject = makeRef<Component>("Subject");
    auto first = makeRef<Recorder>(), second = makeRef<Recorder>(), third = makeRef<Recorder>();
    subject->addObserver(first);
    subject->addObserver(second);
    subject->addObserver(third);

    // The first removes itself and the third; the third must not be called any more.
    first->action = [&](ISubject* s, IMessage&) {
        s->removeObserver(first);
        s->removeObserver(third);
    };
    subject->signal(Signals::kPropertyChanged);
    EXPECT_EQ(first->messages.size(), 1u);
    EXPECT_EQ(second->messages.size(), 1u);
    EXPECT_TRUE(third->messages.empty());

    subject->signal(Signals::kChanged);
    EXPECT_EQ(first->messages.size(), 1u);
    EXPECT_EQ(second->messages, (std::vector<std::string>{"propertyChanged", "changed"}));
    EXPECT_EQ(second->subjects.back(), static_cast<ISubject*>(subject.get()));

    // An observer may drop the last reference to the subject during the notification.
    Component* raw = subject.get();
    second->action = [&](ISubject*, IMessage&) { subject.reset(); };
    raw->signal(Signals::kChanged);
    EXPECT_EQ(subject.get(), nullptr);
}

TEST(Component, DeferredMessagesFromAnotherThreadArriveInOrderOnTheLoopThread)
{
    GetRunLoop(); // the loop belongs to this thread
    auto subject = makeRef<Component>("Session");
    auto recorder = makeRef<Recorder>();
    subject->addObserver(recorder);

    constexpr int kCount = 200;
    std::thread worker([&] {
        for (int i = 0; i < kCount; ++i)
            subject->deferSignal(makeRef<Message>("trackProgressChanged", std::initializer_list<Variant>{double(i)}));
        subject->deferSignal(makeRef<Message>("threadExit"));
    });
    ASSERT_TRUE(EventWait::until([&] { return recorder->messages.size() == kCount + 1; }, 5000))
        << "received " << recorder->messages.size();
    worker.join();

    EXPECT_EQ(recorder->messages.back(), "threadExit");
    for (auto id : recorder->onThread)
        EXPECT_EQ(id, std::this_thread::get_id());
    subject->removeObserver(recorder);
}

TEST(Component, PostedMessagesKeepTheReceiverAliveAndCanBeCancelled)
{
    std::vector<std::string> log;
    auto panel = makeRef<Panel>();
    panel->postedLog = &log;
    panel->postMessage(makeRef<Message>("requestTitles"));
    panel.reset(); // the pending delivery holds its own reference
    EXPECT_TRUE(EventWait::until([&] { return log.size() == 1; }, 2000));

    std::vector<std::string> otherLog;
    auto other = makeRef<Panel>();
    other->postedLog = &otherLog;
    other->postMessage(makeRef<Message>("first"));
    other->postMessage(makeRef<Message>("second"));
    GetSignalHandler()->cancelMessages(static_cast<Object*>(other.get()));
    EXPECT_EQ(other->referenceCount(), 1u); // the cancelled deliveries let go of it
    // Deliveries keep their order, so once a later one has arrived the cancelled ones are gone.
    auto marker = makeRef<Panel>();
    marker->postedLog = &otherLog;
    marker->postMessage(makeRef<Message>("marker"));
    ASSERT_TRUE(EventWait::until([&] { return !otherLog.empty(); }, 2000));
    EXPECT_EQ(otherLog, std::vector<std::string>{"marker"});
}

TEST(Component, TheHostReadsAndDrivesItThroughItsInterfacesOnly)
{
    auto panel = makeRef<Panel>();
    auto child = makeRef<Component>("Credentials");
    panel->addChild(child);
    panel->findParameter("titlesList")->appendEntry(String("First"));
    panel->findParameter("titlesList")->appendEntry(String("Second"));

    IComponent* host = panel; // all a host of another module may use
    EXPECT_STREQ(host->getComponentName(), "Panel");
    EXPECT_EQ(host->lookupChild("Credentials"), static_cast<IComponent*>(child.get()));
    EXPECT_EQ(host->lookupChild("Nothing"), nullptr);
    EXPECT_EQ(host->lookupChild(nullptr), nullptr);
    ASSERT_EQ(host->countParameters(), 4);
    EXPECT_EQ(host->getParameterAt(4), nullptr);
    EXPECT_EQ(host->getParameterAt(-1), nullptr);

    ValueRecord phase;
    ASSERT_EQ(host->readProperty("loginPhase", phase), kResultOk);
    EXPECT_EQ(phase.type, ValueRecord::kInt);
    EXPECT_EQ(phase.intValue, 2);
    EXPECT_EQ(host->readProperty("noSuchProperty", phase), kInvalidArgument);
    EXPECT_EQ(phase.type, ValueRecord::kEmpty);

    IParameter* list = host->lookupParameter("titlesList");
    ASSERT_NE(list, nullptr);
    ParameterInfo info{};
    ASSERT_EQ(list->getInfo(info), kResultOk);
    EXPECT_EQ(info.tag, 105);
    EXPECT_EQ(info.kind, ParameterInfo::kList);
    EXPECT_STREQ(info.name, "titlesList");
    EXPECT_EQ(info.maximum, 1);
    EXPECT_EQ(info.enabled, 1);
    ValueRecord entry;
    ASSERT_EQ(list->readEntry(1, entry), kResultOk);
    EXPECT_EQ(std::string_view(entry.text, entry.textLength), "Second");
    EXPECT_EQ(list->readEntry(2, entry), kInvalidArgument);

    // A control sets a value as a record; the owner hears of it only when asked to be notified,
    // and the value is converted and clamped as any change is.
    ValueRecord choice;
    choice.type = ValueRecord::kString;
    choice.text = "7";
    choice.textLength = 1;
    ASSERT_EQ(list->writeValue(choice, false), kResultOk);
    EXPECT_TRUE(panel->changedTags.empty());
    ValueRecord value;
    list->readValue(value);
    EXPECT_EQ(value.intValue, 1);
    choice.text = "0";
    ASSERT_EQ(list->writeValue(choice, true), kResultOk);
    EXPECT_EQ(panel->changedTags, std::vector<int>{105});
    ValueRecord broken;
    broken.type = 99;
    EXPECT_EQ(list->writeValue(broken, true), kInvalidArgument);

    // Messages reach observers as interfaces; their arguments come back as plain records.
    auto message = Message::make("trackFinished", {Variant(int64(1)), Variant(String("Take")), Variant(child.get())});
    IMessage& plain = *message;
    EXPECT_EQ(idOf(plain), "trackFinished");
    EXPECT_EQ(plain.getArgumentCount(), 3);
    EXPECT_EQ(argumentOf(plain, 0).asInt(), 1);
    EXPECT_EQ(argumentOf(plain, 1).asString(), "Take");
    EXPECT_EQ(argumentOf(plain, 2).asUnknown(), static_cast<IUnknown*>(static_cast<Object*>(child.get())));
    EXPECT_TRUE(argumentOf(plain, 3).isEmpty());
}

#ifndef NDEBUG
// Debug builds check the thread contract of user-interface code at run time.
TEST(ComponentDeathTest, UserInterfaceCodeFromAWorkerStopsADebugBuild)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto panel = makeRef<Panel>();
    Parameter* name = panel->findParameter("newProductName");
    EXPECT_DEATH(
        {
            std::thread worker([&] { name->setValue(String("from a worker")); });
            worker.join();
        },
        "user-interface code called from another thread");
    EXPECT_DEATH(
        {
            std::thread worker([&] { panel->addParameter(Parameter::kString, "late", 200); });
            worker.join();
        },
        "user-interface code called from another thread");
    // The same calls on the user-interface thread are fine.
    name->setValue(String("from the user-interface thread"));
    EXPECT_EQ(name->stringValue(), "from the user-interface thread");
}
#endif
