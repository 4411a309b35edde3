#include "framework/plugin/ClassFactory.h"
#include "framework/plugin/ModuleComponent.h"
#include "framework/plugin/PluginMetaClass.h"
#include "framework/stream/MemoryStream.h"

#include <gtest/gtest.h>

using namespace KVX;

namespace {

constexpr UID kStreamClass = UID::fromString("{2977D775-B628-4F03-B87B-9BB7CE3AE3FD}");
constexpr UID kMetaClass = UID::fromString("{3A5F6385-0E34-4907-9DD1-EDB0C4326753}");

IUnknown* createStream()
{
    return static_cast<IStream*>(makeRef<MemoryStream>().detach());
}

IUnknown* createMetaClass()
{
    auto meta = makeRef<PluginMetaClass>();
    meta->addResource("Class:GadgetResource", Url::fromDisplayString("resource://sorvel/gadget.xml"));
    return static_cast<IPluginMetaClass*>(meta.detach());
}

} // namespace

TEST(ClassFactory, ListsClassesInRegistrationOrderAndCreatesThem)
{
    auto factory = makeRef<ClassFactory>();
    factory->setVersion({"Sorvel Support", "1.0.14.27792", "Belvane", "legal", "site"});
    auto attributes = makeRef<AttributeList>();
    attributes->attributes().set("Class:MetaClassID", String(kMetaClass.toString()));
    ASSERT_TRUE(factory->registerClass({kStreamClass, "Publisher", "Upload to Sorvel", createStream, attributes}));
    ASSERT_TRUE(factory->registerClass({kMetaClass, "MetaClass", "Sorvel Client", createMetaClass, nullptr}));
    EXPECT_FALSE(factory->registerClass({kMetaClass, "MetaClass", "again", createMetaClass, nullptr}));
    EXPECT_FALSE(factory->registerClass({UID(), "Gadget", "no create function", nullptr, nullptr}));

    IClassFactory* host = factory; // what the host sees
    VersionDescription version{};
    ASSERT_EQ(host->getVersion(version), kResultOk);
    EXPECT_STREQ(version.version, "1.0.14.27792");
    ASSERT_EQ(host->countClasses(), 2);

    ClassDescription first{};
    ASSERT_EQ(host->getClassDescription(0, first), kResultOk);
    EXPECT_EQ(first.classId, kStreamClass);
    EXPECT_STREQ(first.category, "Publisher");
    EXPECT_STREQ(first.name, "Upload to Sorvel");
    // The host reads the attributes through the interface, as it would from another module.
    ASSERT_NE(first.attributes, nullptr);
    ValueRecord metaClassId;
    ASSERT_EQ(first.attributes->findAttribute("Class:MetaClassID", metaClassId), kResultOk);
    ASSERT_EQ(metaClassId.type, ValueRecord::kString);
    EXPECT_EQ(std::string_view(metaClassId.text, metaClassId.textLength), "{3A5F6385-0E34-4907-9DD1-EDB0C4326753}");
    EXPECT_EQ(AttributeList::copyFrom(*first.attributes).getString("Class:MetaClassID"),
              "{3A5F6385-0E34-4907-9DD1-EDB0C4326753}");
    ClassDescription out{};
    EXPECT_EQ(host->getClassDescription(2, out), kInvalidArgument);
    EXPECT_EQ(host->getClassDescription(-1, out), kInvalidArgument);

    void* object = nullptr;
    ASSERT_EQ(host->createInstance(kStreamClass, IStream::kIID, &object), kResultOk);
    auto stream = Ref<IStream>::adopt(static_cast<IStream*>(object));
    EXPECT_EQ(stream->write("x", 1), 1);
    EXPECT_NE(unknown_cast<MemoryStream>(stream), nullptr);

    EXPECT_EQ(host->createInstance(UID(), IStream::kIID, &object), kInvalidArgument);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(host->createInstance(kMetaClass, IStream::kIID, &object), kInvalidArgument); // wrong interface
    EXPECT_EQ(object, nullptr);
}

TEST(PluginMetaClass, AnswersItsResourceEntriesAndInstanceState)
{
    auto meta = Ref<IPluginMetaClass>::adopt(static_cast<IPluginMetaClass*>(createMetaClass()));
    char url[64];
    ASSERT_EQ(meta->getResourceLocation("Class:GadgetResource", url, sizeof url), kResultOk);
    EXPECT_STREQ(url, "resource://sorvel/gadget.xml");
    EXPECT_EQ(meta->getResourceLocation("Class:Other", url, sizeof url), kInvalidArgument);
    char tiny[8];
    EXPECT_EQ(meta->getResourceLocation("Class:GadgetResource", tiny, sizeof tiny), kInvalidArgument);

    void* pointer = nullptr;
    ASSERT_EQ(meta->queryInterface(IPluginInstance::kIID, &pointer), kResultOk);
    auto instance = Ref<IPluginInstance>::adopt(static_cast<IPluginInstance*>(pointer));
    instance->setClassId(kMetaClass);
    EXPECT_EQ(instance->getClassId(), kMetaClass);
    auto context = makeRef<MemoryStream>();
    instance->setHostContext(static_cast<IStream*>(context.get()));
    EXPECT_EQ(context->referenceCount(), 2u);
    instance->setHostContext(nullptr);
    EXPECT_EQ(context->referenceCount(), 1u);
}

TEST(ModuleComponent, IsTheNamedRootWithModuleIdentity)
{
    auto module = makeRef<ModuleComponent>("sorvel", "Belvane", "Sorvel Support");
    EXPECT_EQ(module->name(), "Module");
    Variant value;
    ASSERT_TRUE(module->getProperty(value, "moduleId"));
    EXPECT_EQ(value.toString(), "sorvel");
    ASSERT_TRUE(module->getProperty(value, "title"));
    EXPECT_EQ(value.toString(), "Sorvel Support");
    EXPECT_TRUE(module->isKindOf("Component"));
}
