#pragma once

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"
#include "framework/data/Url.h"

namespace Sorvel {

/// The figures of one activity reply: the account, its fans, sales and promotions, a message
/// and a call to action.
class ActivityInfoModel : public KVX::Object
{
    KVX_DECLARE_CLASS(ActivityInfoModel, KVX::Object)
public:
    struct Date
    {
        KVX::int32 year = 1900;
        KVX::int32 month = 1;
        KVX::int32 day = 1;
        bool operator==(const Date&) const = default;
    };

    KVX::int64 accountId = 0;
    KVX::String name;
    KVX::int64 totalFans = 0;
    double totalSales = 0.0;
    KVX::String currency;
    Date startDate;
    Date endDate;
    KVX::int64 activePromotions = 0;
    KVX::int64 totalProducts = 0;
    KVX::String userMessage;
    KVX::String actionIconId;
    KVX::Url actionLink;
    KVX::String actionText;

    /// Reads the record from the "data" object of an activity reply. Every member is read as
    /// text, then converted (a number that does not parse reads as 0). When "account_id" is 0
    /// (or missing) nothing else is read and the record keeps its values. A date that does not
    /// scan as year-month-day keeps its earlier value.
    void load(const KVX::Attributes& data);

    /// "$ 57.50", "€ 1235", "GBP 80.00": the currency's symbol and the sales, with two decimals
    /// below 100 and none from 100 up.
    KVX::String formatSales() const;
    /// "9999", "10k+": the fans, in thousands from 10000 up.
    KVX::String formatFans() const;
};

} // namespace Sorvel
