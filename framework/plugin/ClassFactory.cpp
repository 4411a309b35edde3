#include "framework/plugin/ClassFactory.h"

#include <cstring>

namespace KVX {

KVX_DEFINE_CLASS(ClassFactory, Object, "ClassFactory")

namespace {

template <size_t N>
void copyText(char (&target)[N], const CString& text)
{
    size_t length = std::min(text.length(), N - 1);
    std::memcpy(target, text.data(), length);
    target[length] = 0;
}

} // namespace

tresult ClassFactory::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IClassFactory)
    return Object::queryInterface(iid, object);
}

bool ClassFactory::registerClass(const ClassRecord& record)
{
    if (!record.create || findClass(record.classId))
        return false;
    classes_.push_back(record);
    return true;
}

const ClassRecord* ClassFactory::findClass(const UID& classId) const
{
    for (const ClassRecord& record : classes_)
        if (record.classId == classId)
            return &record;
    return nullptr;
}

tresult ClassFactory::getVersion(VersionDescription& version)
{
    copyText(version.title, version_.title);
    copyText(version.version, version_.version);
    copyText(version.vendor, version_.vendor);
    copyText(version.legalNotice, version_.legalNotice);
    copyText(version.website, version_.website);
    return kResultOk;
}

tresult ClassFactory::getClassDescription(int32 index, ClassDescription& description)
{
    if (index < 0 || index >= countClasses())
        return kInvalidArgument;
    const ClassRecord& record = classes_[static_cast<size_t>(index)];
    description.classId = record.classId;
    copyText(description.category, record.category);
    copyText(description.name, record.name);
    description.attributes = record.attributes ? static_cast<IAttributeList*>(record.attributes.get()) : nullptr;
    return kResultOk;
}

tresult ClassFactory::createInstance(const UID& classId, const UID& iid, void** object)
{
    if (!object)
        return kInvalidArgument;
    *object = nullptr;
    const ClassRecord* record = findClass(classId);
    if (!record)
        return kInvalidArgument;
    Ref<IUnknown> instance = Ref<IUnknown>::adopt(record->create());
    if (!instance)
        return kUnexpected;
    return instance->queryInterface(iid, object);
}

} // namespace KVX
