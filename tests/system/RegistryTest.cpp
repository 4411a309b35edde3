#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IRunnable.h"
#include "framework/services/ITimerTask.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;

namespace {

std::atomic<int> liveTasks{0};

// A host class for the plug-in manager: a runnable that counts its living instances.
class CountedTask : public Object, public IRunnable
{
    KVX_DECLARE_CLASS(CountedTask, Object)
public:
    CountedTask() { ++liveTasks; }
    ~CountedTask() override { --liveTasks; }
    void run() override {}
    KVX_FORWARD_UNKNOWN(Object)

    static IUnknown* create() { return static_cast<IRunnable*>(new CountedTask); }
};
KVX_DEFINE_CLASS(CountedTask, Object, "CountedTask")

tresult CountedTask::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IRunnable)
    return Object::queryInterface(iid, object);
}

constexpr UID kTaskClass = UID::fromString("{5E0C2B71-9A44-4C1F-8D3E-7B6A1F2C9D80}");
constexpr UID kNothingClass = UID::fromString("{0D9E3A52-6B1C-4F7E-A2D8-3C5B9E1F7A64}");
constexpr UID kNestingClass = UID::fromString("{C7A1E5F3-2D48-4B96-9E0A-6F3D8B2C1E57}");

IUnknown* createNothing()
{
    return nullptr;
}

// Creates another host class while being created, as a constructor might.
IUnknown* createNesting()
{
    void* inner = nullptr;
    if (GetPlugInManager()->createInstance(kTaskClass, IRunnable::kIID, &inner) != kResultOk)
        return nullptr;
    return static_cast<IRunnable*>(inner);
}

FileType lookUp(const char* extension)
{
    FileType type;
    std::memset(&type, 0x5A, sizeof(type));
    EXPECT_EQ(GetFileTypeRegistry()->getFileTypeByExtension(extension, type), kResultOk) << extension;
    return type;
}

} // namespace

TEST(FileTypeRegistry, KnowsTheCommonAudioTypesByExtensionInAnyLetterCase)
{
    // Every extension the track list takes for audio, asked with and without a dot in any letter case.
    const std::pair<const char*, const char*> known[] = {{"wav", "wav"},   {"WAV", "wav"},   {".Wav", "wav"},
                                                         {"wave", "wave"}, {"aiff", "aiff"}, {"AIF", "aif"},
                                                         {"flac", "flac"}, {"mp3", "mp3"},   {"Ogg", "ogg"}};
    for (const auto& [asked, extension] : known)
    {
        const FileType type = lookUp(asked);
        EXPECT_STREQ(type.extension, extension);
        EXPECT_EQ(type.category, FileType::kCategoryAudio) << asked;
    }
    // The whole record is handed out.
    const FileType mp3 = lookUp("MP3");
    EXPECT_STREQ(mp3.mimeType, "audio/mpeg");
    EXPECT_STREQ(mp3.description, "MP3 Audio");
    EXPECT_EQ(mp3.flags, FileType::kCompressed | FileType::kLossy);

    FileType untouched;
    std::memset(&untouched, 0x5A, sizeof(untouched));
    for (const char* unknown : {"xyz", "", ".", "..wav", "wav ", "wa", "w\u00e4v"})
    {
        FileType type = untouched;
        EXPECT_EQ(GetFileTypeRegistry()->getFileTypeByExtension(unknown, type), kInvalidArgument) << unknown;
        EXPECT_EQ(std::memcmp(&type, &untouched, sizeof(type)), 0);
    }
    FileType type;
    EXPECT_EQ(GetFileTypeRegistry()->getFileTypeByExtension(nullptr, type), kInvalidArgument);
}

TEST(FileTypeRegistry, HostsAddAndReplaceTypesButOnlyWellFormedOnes)
{
    FileType added = {};
    std::strcpy(added.description, "Test Audio");
    std::strcpy(added.extension, "kvxa1");
    std::strcpy(added.mimeType, "audio/x-kvx");
    added.category = FileType::kCategoryAudio;
    added.flags = 0x40000001u; // passed along as it is
    ASSERT_EQ(GetFileTypeRegistry()->registerFileType(added), kResultOk);
    FileType found = lookUp("KVXA1");
    EXPECT_STREQ(found.description, "Test Audio");
    EXPECT_EQ(found.flags, 0x40000001u);

    FileType replacement = added;
    std::strcpy(replacement.extension, "KVXA1");
    std::strcpy(replacement.mimeType, "audio/x-kvx-2");
    replacement.category = FileType::kCategoryOther;
    ASSERT_EQ(GetFileTypeRegistry()->registerFileType(replacement), kResultOk);
    found = lookUp("kvxa1");
    EXPECT_STREQ(found.mimeType, "audio/x-kvx-2");
    EXPECT_STREQ(found.extension, "KVXA1") << "the record is kept as registered";
    EXPECT_EQ(found.category, FileType::kCategoryOther);

    auto refused = [](void (*change)(FileType&)) {
        FileType type = {};
        std::strcpy(type.description, "Bad");
        std::strcpy(type.extension, "kvxbad");
        std::strcpy(type.mimeType, "audio/x-bad");
        change(type);
        return GetFileTypeRegistry()->registerFileType(type) == kInvalidArgument;
    };
    EXPECT_TRUE(refused([](FileType& t) { t.extension[0] = 0; }));
    EXPECT_TRUE(refused([](FileType& t) { std::strcpy(t.extension, "kvx.bad"); }));
    EXPECT_TRUE(refused([](FileType& t) { std::strcpy(t.extension, "kvx bad"); }));
    EXPECT_TRUE(refused([](FileType& t) { std::memset(t.extension, 'a', sizeof(t.extension)); }));
    EXPECT_TRUE(refused([](FileType& t) { std::memset(t.description, 'a', sizeof(t.description)); }));
    EXPECT_TRUE(refused([](FileType& t) { std::memset(t.mimeType, 'a', sizeof(t.mimeType)); }));
    FileType type;
    EXPECT_EQ(GetFileTypeRegistry()->getFileTypeByExtension("kvxbad", type), kInvalidArgument);
    EXPECT_FALSE(refused([](FileType& t) { std::strcpy(t.extension, "kvxb15charsxxxx"); }))
        << "fifteen letters fit";
}

TEST(PlugInManager, CreatesRegisteredClassesByIdentifierForTheAskedInterface)
{
    IPlugInManager* manager = GetPlugInManager();
    ASSERT_EQ(manager->registerClass(kTaskClass, &CountedTask::create, "Test Task"), kResultOk);
    ASSERT_EQ(manager->registerClass(kNothingClass, &createNothing, "Test Nothing"), kResultOk);
    ASSERT_EQ(manager->registerClass(kNestingClass, &createNesting, "Test Nesting"), kResultOk);

    void* object = nullptr;
    ASSERT_EQ(manager->createInstance(kTaskClass, IRunnable::kIID, &object), kResultOk);
    auto task = Ref<IRunnable>::adopt(static_cast<IRunnable*>(object));
    EXPECT_EQ(liveTasks, 1);
    EXPECT_EQ(unknown_cast<CountedTask>(task)->referenceCount(), 1u) << "the caller owns the only reference";
    task.reset();
    EXPECT_EQ(liveTasks, 0);

    object = &object;
    EXPECT_EQ(manager->createInstance(kTaskClass, ITimerTask::kIID, &object), kInvalidArgument);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(liveTasks, 0) << "the instance without that interface is gone";
    EXPECT_EQ(manager->createInstance(UID::fromString("{11111111-2222-3333-4444-555555555555}"),
                                      IRunnable::kIID, &object),
              kInvalidArgument);
    EXPECT_EQ(manager->createInstance(kNothingClass, IUnknown::kIID, &object), kUnexpected);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(manager->createInstance(kTaskClass, IRunnable::kIID, nullptr), kInvalidArgument);

    ASSERT_EQ(manager->createInstance(kNestingClass, IRunnable::kIID, &object), kResultOk)
        << "no lock is held";
    static_cast<IRunnable*>(object)->release();
    EXPECT_EQ(liveTasks, 0);

    UID found;
    ASSERT_EQ(manager->findClass("Test Task", found), kResultOk);
    EXPECT_EQ(found, kTaskClass);
    EXPECT_EQ(manager->findClass("test task", found), kInvalidArgument);
    EXPECT_EQ(manager->findClass(nullptr, found), kInvalidArgument);

    EXPECT_EQ(manager->registerClass(kTaskClass, &createNothing, "Other Name"), kInvalidArgument);
    EXPECT_EQ(manager->registerClass(UID::fromString("{22222222-2222-3333-4444-555555555555}"),
                                     &createNothing, "Test Task"),
              kInvalidArgument);
    EXPECT_EQ(manager->registerClass(UID(), &createNothing, "Null Class"), kInvalidArgument);
    EXPECT_EQ(manager->registerClass(kTaskClass, nullptr, "No Function"), kInvalidArgument);
    EXPECT_EQ(manager->registerClass(kTaskClass, &createNothing, ""), kInvalidArgument);
    EXPECT_EQ(manager->registerClass(kTaskClass, &createNothing, nullptr), kInvalidArgument);

    for (const UID& classId : {kTaskClass, kNothingClass, kNestingClass})
        EXPECT_EQ(manager->unregisterClass(classId), kResultOk);
    EXPECT_EQ(manager->unregisterClass(kTaskClass), kInvalidArgument);
    EXPECT_EQ(manager->createInstance(kTaskClass, IRunnable::kIID, &object), kInvalidArgument);
    EXPECT_EQ(manager->findClass("Test Task", found), kInvalidArgument);
}

TEST(PlugInManager, ServesManyThreadsWhileClassesComeAndGo)
{
    IPlugInManager* manager = GetPlugInManager();
    ASSERT_EQ(manager->registerClass(kTaskClass, &CountedTask::create, "Test Task"), kResultOk);
    constexpr int kThreads = 4, kPerThread = 200;
    std::atomic<int> created{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i)
            {
                void* object = nullptr;
                if (manager->createInstance(kTaskClass, IRunnable::kIID, &object) == kResultOk)
                {
                    static_cast<IRunnable*>(object)->release();
                    ++created;
                }
            }
        });
    threads.emplace_back([&] {
        for (int i = 0; i < kPerThread; ++i)
        {
            EXPECT_EQ(manager->registerClass(kNothingClass, &createNothing, "Test Nothing"), kResultOk);
            EXPECT_EQ(manager->unregisterClass(kNothingClass), kResultOk);
        }
    });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(created, kThreads * kPerThread);
    EXPECT_EQ(liveTasks, 0);
    EXPECT_EQ(manager->unregisterClass(kTaskClass), kResultOk);
}

TEST(ObjectTable, HoldsPublishedObjectsByNameUntilTheyAreUnregistered)
{
    IObjectTable* table = GetObjectTable();
    auto task = Ref<CountedTask>::adopt(new CountedTask);
    IUnknown* published = static_cast<IRunnable*>(task.get());

    ASSERT_EQ(table->registerObject("Test/Host Context", published), kResultOk);
    EXPECT_EQ(task->referenceCount(), 2u);
    EXPECT_EQ(table->registerObject("Test/Host Context", published), kInvalidArgument)
        << "a name is taken once";

    IUnknown* found = nullptr;
    ASSERT_EQ(table->findObject("Test/Host Context", &found), kResultOk);
    EXPECT_EQ(found, published);
    EXPECT_EQ(task->referenceCount(), 3u) << "the finder owns a reference";
    found->release();

    found = published;
    EXPECT_EQ(table->findObject("test/host context", &found), kInvalidArgument);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(table->findObject(nullptr, &found), kInvalidArgument);
    EXPECT_EQ(table->findObject("Test/Host Context", nullptr), kInvalidArgument);
    EXPECT_EQ(table->registerObject("", published), kInvalidArgument);
    EXPECT_EQ(table->registerObject(nullptr, published), kInvalidArgument);
    EXPECT_EQ(table->registerObject("Test/Nothing", nullptr), kInvalidArgument);

    ASSERT_EQ(table->unregisterObject("Test/Host Context"), kResultOk);
    EXPECT_EQ(task->referenceCount(), 1u);
    EXPECT_EQ(table->unregisterObject("Test/Host Context"), kInvalidArgument);
    EXPECT_EQ(table->unregisterObject(nullptr), kInvalidArgument);
    EXPECT_EQ(table->findObject("Test/Host Context", &found), kInvalidArgument);

    // The name is free again; the table's reference is the last one once the owner lets go.
    ASSERT_EQ(table->registerObject("Test/Host Context", published), kResultOk);
    task.reset();
    EXPECT_EQ(liveTasks, 1);
    ASSERT_EQ(table->unregisterObject("Test/Host Context"), kResultOk);
    EXPECT_EQ(liveTasks, 0);
}
