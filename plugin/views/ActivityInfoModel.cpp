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

/// An integer figure: a number as the service sent it, a double truncated toward zero (1234.7
/// gives 1234); a text is read as a decimal integer (0 when it is none).
int64 readInteger(const Attributes& data, std::string_view key)
{
    const Variant* value = data.find(key);
    if (!value)
        return 0;
    if (value->isNumeric())
        return value->asInt();
    return NumberFormat::toInt64(value->toString().toUtf8());
}

/// A figure with a fraction: a number as it stands, a text read as a decimal number.
double readReal(const Attributes& data, std::string_view key)
{
    const Variant* value = data.find(key);
    if (!value)
        return 0.0;
    if (value->isNumeric())
        return value->asDouble();
    return NumberFormat::toDouble(value->toString().toUtf8());
}

} // namespace

void ActivityInfoModel::load(const Attributes& data)
{
    int64 account = readInteger(data, "account_id");
    if (account == 0)
        return;
    accountId = account;
    name = data.getString("name");
    totalFans = readInteger(data, "total_fans");
    totalSales = readReal(data, "total_sales");
    currency = data.getString("currency");
    scanDate(data, "start_date", startDate);
    scanDate(data, "end_date", endDate);
    activePromotions = readInteger(data, "active_promos");
    totalProducts = readInteger(data, "total_Products");
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
