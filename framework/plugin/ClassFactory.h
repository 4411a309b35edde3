#pragma once

#include "framework/core/Object.h"
#include "framework/plugin/ClassRecord.h"
#include "framework/plugin/IClassFactory.h"
#include "framework/plugin/VersionRecord.h"

#include <vector>

namespace KVX {

/// The module's class factory: the version record and the classes in registration order.
class ClassFactory : public Object, public IClassFactory
{
    KVX_DECLARE_CLASS(ClassFactory, Object)
public:
    void setVersion(const VersionRecord& version) { version_ = version; }
    const VersionRecord& version() const { return version_; }
    /// Appends a class; false (nothing registered) when its identifier is already registered or
    /// it has no create function.
    bool registerClass(const ClassRecord& record);
    const std::vector<ClassRecord>& classes() const { return classes_; }
    const ClassRecord* findClass(const UID& classId) const;

    tresult getVersion(VersionDescription& version) override;
    int32 countClasses() override { return static_cast<int32>(classes_.size()); }
    tresult getClassDescription(int32 index, ClassDescription& description) override;
    tresult createInstance(const UID& classId, const UID& iid, void** object) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    VersionRecord version_;
    std::vector<ClassRecord> classes_;
};

} // namespace KVX
