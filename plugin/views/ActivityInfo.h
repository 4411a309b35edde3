#pragma once

#include "framework/component/Component.h"
#include "plugin/views/ActivityInfoModel.h"
#include "plugin/views/IHostActivation.h"

namespace Sorvel {

/// The dashboard's component: the parameters the dashboard forms bind to, filled from an
/// activity reply. Parameters 800 to 806 are texts, 807 ("onCreateAccount") a trigger that brings
/// the gadget forward so that the user can sign in or create an account. User-interface thread.
class ActivityInfo : public KVX::Component
{
    KVX_DECLARE_CLASS(ActivityInfo, KVX::Component)
public:
    enum Tags : KVX::int32
    {
        kUserName = 800,
        kTotalFans = 801,
        kTotalSales = 802,
        kActivePromotions = 803,
        kUserMessage = 804,
        kActionLink = 805,
        kActionText = 806,
        kOnCreateAccount = 807,
    };

    ActivityInfo();

    const ActivityInfoModel& model() const { return *model_; }

    /// Reads the record from the "data" object of a successful reply, then shows it.
    void update(const KVX::Attributes& data);
    /// Empties the shown texts (the record keeps its values) and signals "changed".
    void reset();

    KVX::tresult initialize(KVX::IUnknown* context) override;
    KVX::tresult terminate() override;
    /// "onCreateAccount" asks the parent, when it offers IHostActivation, to bring the gadget forward.
    bool paramChanged(KVX::Parameter& parameter) override;
    /// "actionIconChanged" (always 1) and "actionIconId", then the base's.
    bool getProperty(KVX::Variant& value, std::string_view name) const override;

private:
    void setText(KVX::int32 tag, const KVX::String& text);

    KVX::Ref<ActivityInfoModel> model_;
    bool initialized_ = false;
};

} // namespace Sorvel
