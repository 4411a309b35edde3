#pragma once

#include "framework/core/Ref.h"
#include "framework/plugin/IPluginInstance.h"

namespace KVX {

/// The state behind IPluginInstance, for classes that the host creates. The deriving class
/// supplies the reference counting (it also derives from Object or Unknown) and answers
/// IPluginInstance::kIID in its queryInterface.
class PluginInstance : public IPluginInstance
{
public:
    void setClassId(const UID& classId) override { classId_ = classId; }
    UID getClassId() override { return classId_; }
    void setHostContext(IUnknown* context) override { hostContext_ = context; }
    IUnknown* getHostContext() override { return hostContext_; }

protected:
    ~PluginInstance() = default;

private:
    UID classId_;
    Ref<IUnknown> hostContext_;
};

} // namespace KVX
