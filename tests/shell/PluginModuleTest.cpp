// Loads the built plug-in with dlopen exactly as a host does: the host's modules are linked, the
// plug-in is not. The plug-in starts when it is loaded, offers its classes through its single
// entry point, and is unloaded at the end.
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/IPublisher.h"
#include "framework/plugin/IClassFactory.h"
#include "framework/plugin/IPluginInstance.h"
#include "framework/plugin/IPluginMetaClass.h"
#include "framework/services/GuiServices.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace KVX;

namespace {

using GetClassFactory = IClassFactory* (*)();

/// The text of a command's standard output.
std::string outputOf(const std::string& command)
{
    std::string output;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe)
        return output;
    std::array<char, 4096> buffer;
    while (size_t read = std::fread(buffer.data(), 1, buffer.size(), pipe.get()))
        output.append(buffer.data(), read);
    return output;
}

/// The names of the symbols that `file` defines in its dynamic symbol table.
std::vector<std::string> exportedSymbols(const std::string& file)
{
    std::vector<std::string> names;
    std::string listing = outputOf("nm -D --defined-only '" + file + "'");
    size_t start = 0;
    while (start < listing.size())
    {
        size_t end = listing.find('\n', start);
        if (end == std::string::npos)
            end = listing.size();
        std::string_view line(listing.data() + start, end - start);
        if (size_t blank = line.rfind(' '); blank != std::string_view::npos)
            names.emplace_back(line.substr(blank + 1));
        start = end + 1;
    }
    return names;
}

std::string textOf(const ValueRecord& value)
{
    return value.type == ValueRecord::kString ? std::string(value.text, value.textLength) : std::string();
}

template <class Interface>
Interface* create(IClassFactory& factory, const UID& classId)
{
    void* object = nullptr;
    EXPECT_EQ(factory.createInstance(classId, Interface::kIID, &object), kResultOk);
    return static_cast<Interface*>(object);
}

} // namespace

TEST(PluginModule, ExportsOnlyTheClassFactory)
{
    EXPECT_EQ(exportedSymbols(BuildPaths::pluginFile()), std::vector<std::string>{"KVXGetClassFactory"});
}

TEST(PluginModule, OffersItsThreeClassesOnceAndCreatesWorkingObjectsThenUnloads)
{
    void* library = dlopen(BuildPaths::pluginFile(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto entry = reinterpret_cast<GetClassFactory>(dlsym(library, "KVXGetClassFactory"));
    ASSERT_NE(entry, nullptr);

    IClassFactory* factory = entry();
    ASSERT_NE(factory, nullptr) << "the module did not start";
    EXPECT_EQ(entry(), factory);

    VersionDescription version{};
    ASSERT_EQ(factory->getVersion(version), kResultOk);
    EXPECT_STREQ(version.title, "Sorvel Support");
    EXPECT_STREQ(version.version, "1.0.14.27792");
    EXPECT_STREQ(version.vendor, "Belvane");
    EXPECT_NE(std::string(version.legalNotice), "");
    EXPECT_EQ(std::string(version.website).rfind("https://", 0), 0u);

    ASSERT_EQ(factory->countClasses(), 3);
    const std::array<std::pair<const char*, const char*>, 3> expected{{
        {"Publisher", "Upload to Sorvel"}, {"Gadget", "Sorvel Client"}, {"MetaClass", "Sorvel Client"}}};
    std::array<ClassDescription, 3> classes{};
    for (int32 i = 0; i < 3; ++i)
    {
        ASSERT_EQ(factory->getClassDescription(i, classes[i]), kResultOk);
        EXPECT_STREQ(classes[i].category, expected[i].first);
        EXPECT_STREQ(classes[i].name, expected[i].second);
    }
    ClassDescription none{};
    EXPECT_EQ(factory->getClassDescription(3, none), kInvalidArgument);
    EXPECT_EQ(classes[0].classId, UID::fromString("{2977D775-B628-4F03-B87B-9BB7CE3AE3FD}"));
    EXPECT_EQ(classes[1].classId, UID::fromString("{F9CA1948-BC26-4A23-8553-3BD5EF2EBF91}"));
    EXPECT_EQ(classes[2].classId, UID::fromString("{3A5F6385-0E34-4907-9DD1-EDB0C4326753}"));
    EXPECT_EQ(classes[0].attributes, nullptr);
    EXPECT_EQ(classes[2].attributes, nullptr);
    ASSERT_NE(classes[1].attributes, nullptr);
    ValueRecord metaClassId;
    ASSERT_EQ(classes[1].attributes->findAttribute("Class:MetaClassID", metaClassId), kResultOk);
    EXPECT_EQ(textOf(metaClassId), classes[2].classId.toString());

    // A second call registers nothing twice.
    EXPECT_EQ(entry()->countClasses(), 3);

    // The theme was loaded into the host's theme manager when the library was loaded.
    ITheme* theme = GetThemeManager()->getTheme("sorvel");
    ASSERT_NE(theme, nullptr);
    EXPECT_NE(theme->getForm("SorvelClient"), nullptr);

    // The metaclass hands out the gadget description that the library carries.
    auto* meta = create<IPluginMetaClass>(*factory, classes[2].classId);
    ASSERT_NE(meta, nullptr);
    std::array<char, 128> location{};
    ASSERT_EQ(meta->getResourceLocation("Class:GadgetResource", location.data(), location.size()), kResultOk);
    EXPECT_STREQ(location.data(), "resource://sorvel/gadget.xml");
    const void* data = nullptr;
    uint64 size = 0;
    ASSERT_EQ(meta->getResourceData("Class:GadgetResource", data, size), kResultOk);
    std::string gadget(static_cast<const char*>(data), size);
    EXPECT_NE(gadget.find("<Gadget"), std::string::npos);
    EXPECT_NE(gadget.find("formName=\"SorvelClient\""), std::string::npos);
    EXPECT_EQ(meta->getResourceData("Class:Other", data, size), kInvalidArgument);
    meta->release();

    // The publisher answers the publishing interface; with no gadget open it has nowhere to put files.
    auto* publisher = create<Engine::IPublisher>(*factory, classes[0].classId);
    ASSERT_NE(publisher, nullptr);
    FileType type{};
    std::snprintf(type.extension, sizeof type.extension, "wav");
    AudioFormat format{44100, 2, 24};
    EXPECT_EQ(publisher->checkFormat(type, format), kResultOk);
    format.sampleRate = 48000;
    EXPECT_EQ(publisher->checkFormat(type, format), kInvalidArgument);
    EXPECT_EQ(format.sampleRate, 44100.0);
    EXPECT_EQ(publisher->publish(nullptr), kUnexpected);

    // The gadget's controller is a component with the parameters its forms bind to.
    auto* gadget_ = create<IComponent>(*factory, classes[1].classId);
    ASSERT_NE(gadget_, nullptr);
    EXPECT_NE(gadget_->lookupParameter("signIn"), nullptr);
    EXPECT_NE(gadget_->lookupChild("Credentials"), nullptr);
    ValueRecord phase;
    ASSERT_EQ(gadget_->readProperty("loginPhase", phase), kResultOk);
    EXPECT_EQ(phase.intValue, 0);
    EXPECT_EQ(publisher->publish(nullptr), kResultOk) << "an open gadget takes an empty batch";
    gadget_->release();
    publisher->release();

    EXPECT_EQ(factory->createInstance(UID::fromString("{00000000-0000-0000-0000-000000000001}"), IUnknown::kIID,
                                      reinterpret_cast<void**>(&meta)),
              kInvalidArgument);

    EXPECT_EQ(dlclose(library), 0);

    // Loaded again, it starts again.
    library = dlopen(BuildPaths::pluginFile(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    entry = reinterpret_cast<GetClassFactory>(dlsym(library, "KVXGetClassFactory"));
    ASSERT_NE(entry, nullptr);
    ASSERT_NE(entry(), nullptr);
    EXPECT_EQ(entry()->countClasses(), 3);
    EXPECT_EQ(dlclose(library), 0);
}

TEST(PluginModule, ALibraryWhoseThemeDoesNotLoadOffersNoFactory)
{
    void* library = dlopen(BuildPaths::brokenPluginFile(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto entry = reinterpret_cast<GetClassFactory>(dlsym(library, "KVXGetClassFactory"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry(), nullptr);
    EXPECT_EQ(dlclose(library), 0);
}
