#include "plugin/views/ActivityInfoModel.h"

#include "framework/text/NumberFormat.h"

#include <cstdio>

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(ActivityInfoModel, Object, "ActivityInfoModel")

namespace {

void scanDate(const Attributes& data, std::string_view key, ActivityInfoModel::Date& date)
{
    CString text = data.getString(key).toAscii();
    int year = 0, month = 0, day = 0;
    if (std::sscanf(text.c_str(), "%d-%d-%d", &year, &month, &day) == 3)
        date = {year, month, day};
}

} // namespace

void ActivityInfoModel::load(const Attributes& data)
{
    int64 account = NumberFormat::toInt64(data.getString("account_id").toUtf8());
    if (account == 0)
        return;
    accountId = account;
    name = data.getString("name");
    totalFans = NumberFormat::toInt64(data.getString("total_fans").toUtf8());
    totalSales = NumberFormat::toDouble(data.getString("total_sales").toUtf8());
    currency = data.getString("currency");
    scanDate(data, "start_date", startDate);
    scanDate(data, "end_date", endDate);
    activePromotions = NumberFormat::toInt64(data.getString("active_promos").toUtf8());
    totalProducts = NumberFormat::toInt64(data.getString("total_Products").toUtf8());
    userMessage = data.getString("user_message");
    actionLink = Url();
    actionLink.setFromDisplayString(data.getString("action_link").toUtf8());
    actionText = data.getString("action_text");
    actionIconId = data.getString("action_icon_id");
}

String ActivityInfoModel::formatSales() const
{
    String symbol = currency;
    if (currency == "USD")
        symbol = "$";
    else if (currency == "EUR")
        symbol = String::fromCodePoint(0x20AC);
    else if (currency == "CAD")
        symbol = "C$";
    // The figure is shown at single precision, as the dashboard always has.
    double sales = static_cast<float>(totalSales);
    return symbol + " " + String(NumberFormat::formatFixed(sales, sales < 100 ? 2 : 0).view());
}

String ActivityInfoModel::formatFans() const
{
    double fans = static_cast<float>(totalFans);
    if (fans > 9999)
        return String(NumberFormat::formatFixed(fans / 1000, 0).view()) + "k+";
    return String(NumberFormat::formatFixed(fans, 0).view());
}

} // namespace Sorvel
