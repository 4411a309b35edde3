#include "plugin/views/ActivityInfo.h"

#include "framework/component/Signals.h"
#include "framework/text/NumberFormat.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(ActivityInfo, Component, "ActivityInfo")

ActivityInfo::ActivityInfo() : Component("ActivityInfo"), model_(makeRef<ActivityInfoModel>())
{
    addParameter(Parameter::kString, "userName", kUserName);
    addParameter(Parameter::kString, "totalFans", kTotalFans);
    addParameter(Parameter::kString, "totalSales", kTotalSales);
    addParameter(Parameter::kString, "activePromotions", kActivePromotions);
    addParameter(Parameter::kString, "userMessage", kUserMessage);
    addParameter(Parameter::kString, "actionLink", kActionLink);
    addParameter(Parameter::kString, "actionText", kActionText);
    addParameter(Parameter::kCommand, "onCreateAccount", kOnCreateAccount);
}

void ActivityInfo::setText(int32 tag, const String& text)
{
    findParameter(tag)->setValue(text);
}

void ActivityInfo::update(const Attributes& data)
{
    model_->load(data);
    const ActivityInfoModel& m = *model_;
    setText(kUserName, m.name);
    setText(kTotalSales, m.formatSales());
    setText(kTotalFans, m.formatFans());
    setText(kActivePromotions, String(NumberFormat::formatInt64(m.activePromotions).view()));
    setText(kUserMessage, m.userMessage);
    setText(kActionLink, m.actionLink.toDisplayString());
    setText(kActionText, m.actionText);
    signal(Signals::kChanged);
}

void ActivityInfo::reset()
{
    for (int32 tag : {kUserName, kTotalSales, kTotalFans, kActivePromotions, kUserMessage, kActionLink, kActionText})
        setText(tag, String());
    signal(Signals::kChanged);
}

tresult ActivityInfo::initialize(IUnknown* context)
{
    initialized_ = true;
    return Component::initialize(context);
}

tresult ActivityInfo::terminate()
{
    initialized_ = false;
    return Component::terminate();
}

bool ActivityInfo::paramChanged(Parameter& parameter)
{
    // The parent is looked up at the moment of use rather than kept, so no stale pointer can
    // outlive it; as before, nothing is asked until the component has been initialised.
    if (parameter.tag() != kOnCreateAccount || !initialized_ || !parent())
        return true;
    void* activation = nullptr;
    if (parent()->queryInterface(IHostActivation::kIID, &activation) == kResultOk)
        Ref<IHostActivation>::adopt(static_cast<IHostActivation*>(activation))->activateInHost();
    return true;
}

bool ActivityInfo::getProperty(Variant& value, std::string_view name) const
{
    if (name == "actionIconChanged")
    {
        value = 1;
        return true;
    }
    if (name == "actionIconId")
    {
        value = model_->actionIconId;
        return true;
    }
    return Component::getProperty(value, name);
}

} // namespace Sorvel
