#include "framework/core/Embedded.h"
#include "framework/core/Object.h"
#include "framework/core/ObjectArray.h"
#include "framework/core/Ref.h"
#include "framework/core/UID.h"
#include "framework/stream/MemoryStream.h"

#include <gtest/gtest.h>

using namespace KVX;

namespace {

/// Counts its own destructions, so tests can see exactly when the last reference went.
class Probe : public Object
{
    KVX_DECLARE_CLASS(Probe, Object)
public:
    explicit Probe(int* destroyed = nullptr) : destroyed_(destroyed) {}
    ~Probe() override
    {
        if (destroyed_)
            ++*destroyed_;
    }

private:
    int* destroyed_;
};
KVX_DEFINE_CLASS(Probe, Object, "Probe")

class SubProbe : public Probe
{
    KVX_DECLARE_CLASS(SubProbe, Probe)
public:
    using Probe::Probe;
};
KVX_DEFINE_CLASS(SubProbe, Probe, "SubProbe")

} // namespace

TEST(UID, ParsesAndFormatsTheBracedTextForm)
{
    constexpr UID known = UID::fromString("{5C0BFAA8-18E2-405C-813E-56C29A8FECEB}");
    EXPECT_EQ(known.toString(), "{5C0BFAA8-18E2-405C-813E-56C29A8FECEB}");
    EXPECT_EQ(known.bytes()[0], 0x5C);
    EXPECT_EQ(known.bytes()[15], 0xEB);

    UID parsed;
    ASSERT_TRUE(UID::parse("5c0bfaa8-18e2-405c-813e-56c29a8feceb", parsed)); // lower case, no braces
    EXPECT_EQ(parsed, known);

    UID untouched = known;
    for (const char* bad : {"", "{5C0BFAA8-18E2-405C-813E-56C29A8FECE}", "{5C0BFAA8018E2-405C-813E-56C29A8FECEB}",
                            "{5C0BFAA8-18E2-405C-813E-56C29A8FECEG}", "(5C0BFAA8-18E2-405C-813E-56C29A8FECEB)"})
    {
        EXPECT_FALSE(UID::parse(bad, untouched)) << bad;
        EXPECT_EQ(untouched, known) << bad;
    }
    EXPECT_TRUE(UID().isNull());
    EXPECT_FALSE(known.isNull());
}

TEST(Ref, ReleasesWhatItHoldsAndAReplacedReferenceAtOnce)
{
    int destroyed = 0;
    {
        Ref<Probe> holder = makeRef<Probe>(&destroyed);
        EXPECT_EQ(holder->referenceCount(), 1u); // makeRef adopts the creation reference

        Ref<Probe> second = holder; // sharing takes a reference
        EXPECT_EQ(holder->referenceCount(), 2u);
        second = makeRef<Probe>(&destroyed); // the shared one loses a reference, nothing dies
        EXPECT_EQ(destroyed, 0);
        EXPECT_EQ(holder->referenceCount(), 1u);

        holder = second; // the first probe's last reference goes at once
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(holder.get(), second.get());
        EXPECT_EQ(second->referenceCount(), 2u);

        holder = holder; // self-assignment keeps the object
        EXPECT_EQ(destroyed, 1);
        holder = holder.get(); // and so does assigning its own pointer
        EXPECT_EQ(second->referenceCount(), 2u);

        Ref<Probe> moved = std::move(holder);
        EXPECT_EQ(holder.get(), nullptr);
        EXPECT_EQ(second->referenceCount(), 2u);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(Ref, AdoptTakesOverAnExistingReferenceAndDetachGivesItBack)
{
    int destroyed = 0;
    Probe* raw = makeRef<Probe>(&destroyed).detach();
    EXPECT_EQ(raw->referenceCount(), 1u);
    {
        Ref<Probe> shared(raw); // sharing: now two
        EXPECT_EQ(raw->referenceCount(), 2u);
    }
    {
        Ref<Probe> adopted = Ref<Probe>::adopt(raw); // adopting: still one, released at scope end
        EXPECT_EQ(raw->referenceCount(), 1u);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(ClassRegistry, RecognisesObjectsByClassName)
{
    auto sub = makeRef<SubProbe>();
    EXPECT_STREQ(sub->className(), "SubProbe");
    EXPECT_TRUE(sub->isKindOf("Probe"));
    EXPECT_TRUE(sub->isKindOf("Object"));
    EXPECT_FALSE(sub->isKindOf("Attributes"));

    IUnknown* unknown = static_cast<IUnknown*>(sub.get());
    EXPECT_EQ(unknown_cast<Probe>(unknown), sub.get());
    EXPECT_EQ(unknown_cast<SubProbe>(unknown), sub.get());
    EXPECT_EQ(unknown_cast<MemoryStream>(unknown), nullptr);
    EXPECT_EQ(unknown_cast<Probe>(nullptr), nullptr);
    EXPECT_EQ(sub->referenceCount(), 1u); // recognition takes no reference

    ASSERT_NE(ClassRegistry::instance().find("SubProbe"), nullptr);
    EXPECT_EQ(ClassRegistry::instance().find("SubProbe")->parent, &Probe::classInfo());
    EXPECT_EQ(ClassRegistry::instance().find("NoSuchClass"), nullptr);
}

TEST(Unknown, QueryInterfaceRetainsAndRefusesUnknownInterfaces)
{
    auto stream = makeRef<MemoryStream>();
    void* pointer = nullptr;
    ASSERT_EQ(stream->queryInterface(IStream::kIID, &pointer), kResultOk);
    EXPECT_EQ(stream->referenceCount(), 2u);
    static_cast<IStream*>(pointer)->release();

    ASSERT_EQ(stream->queryInterface(IUnknown::kIID, &pointer), kResultOk);
    static_cast<IUnknown*>(pointer)->release();

    constexpr UID unknownIid = UID::fromString("{00000000-1111-2222-3333-444444444444}");
    EXPECT_EQ(stream->queryInterface(unknownIid, &pointer), kInvalidArgument);
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(stream->referenceCount(), 1u);
}

TEST(ObjectArray, OwningArrayHoldsReferencesAndNonOwningOnlyPoints)
{
    int destroyed = 0;
    auto a = makeRef<Probe>(&destroyed), b = makeRef<Probe>(&destroyed), c = makeRef<Probe>(&destroyed);
    {
        ObjectArray owning(true, 2);
        ObjectArray pointing(false);
        for (Probe* p : {a.get(), b.get(), c.get()})
        {
            owning.add(p);
            pointing.add(p);
        }
        EXPECT_EQ(a->referenceCount(), 2u);
        EXPECT_EQ(owning.count(), 3u);
        EXPECT_GE(owning.capacity(), 3u);
        EXPECT_EQ(owning.capacity() % 2, 0u); // grows in whole steps
        EXPECT_EQ(owning.indexOf(b), 1);
        EXPECT_EQ(owning.indexOf(nullptr), -1);
        EXPECT_FALSE(owning.add(nullptr));

        EXPECT_TRUE(owning.remove(b));
        EXPECT_EQ(b->referenceCount(), 1u);
        EXPECT_FALSE(owning.remove(b));
        EXPECT_EQ(owning.at(1), c.get());
        EXPECT_EQ(owning.at(7), nullptr);

        ObjectArray copy = owning; // a copy of an owning array owns its own references
        EXPECT_EQ(a->referenceCount(), 3u);

        int visited = 0;
        for (Object* object : pointing)
            visited += object != nullptr;
        EXPECT_EQ(visited, 3);
    }
    EXPECT_EQ(a->referenceCount(), 1u);
    EXPECT_EQ(c->referenceCount(), 1u);

    // Removing the last holder of an element destroys it then, not later.
    ObjectArray owning;
    owning.add(makeRef<Probe>(&destroyed));
    EXPECT_EQ(destroyed, 0);
    owning.removeAt(0);
    EXPECT_EQ(destroyed, 1);
}

TEST(ObjectArray, TypedArrayIteratesItsClass)
{
    TypedObjectArray<Probe> probes;
    probes.add(makeRef<Probe>());
    probes.add(makeRef<SubProbe>());
    int count = 0;
    for (Probe* probe : probes)
        count += probe->isKindOf("Probe");
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(probes.at(1)->className(), "SubProbe");
}

namespace {

/// A counted record that its owner keeps by value, as a client keeps its configuration.
class Settings : public Object
{
public:
    explicit Settings(int value = 0) : value(value) {}
    int value;
};

struct SettingsOwner
{
    Embedded<Settings> settings{7};
};

} // namespace

TEST(Embedded, MayBeSharedWhileItsOwnerLivesButNeverAdopted)
{
    auto owner = std::make_unique<SettingsOwner>();
    {
        Ref<Settings> shared(&owner->settings); // sharing takes a reference of its own
        EXPECT_EQ(shared->value, 7);
        EXPECT_EQ(owner->settings.referenceCount(), 2u);
    }
    EXPECT_EQ(owner->settings.referenceCount(), 1u);
    SettingsOwner copy = *owner; // copies the value, not the count
    EXPECT_EQ(copy.settings.value, 7);
    EXPECT_EQ(copy.settings.referenceCount(), 1u);
    owner.reset(); // destroyed with its owner, never deleted on its own

    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            SettingsOwner victim;
            Ref<Settings>::adopt(&victim.settings); // takes over the owner's reference by mistake
        },
        "an embedded object lost its owner's reference");
}
