#include "framework/component/Signals.h"
#include "framework/data/Json.h"
#include "plugin/views/ActivityInfo.h"

#include "ParseJson.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace Sorvel;
using Sorvel::Testing::parse;

namespace {

String shown(const ActivityInfo& info, std::string_view parameter)
{
    return info.findParameter(parameter)->stringValue();
}

/// Stands in for the gadget's controller: counts how often it was asked to come forward.
class FakeManager : public Component, public IHostActivation
{
public:
    FakeManager() : Component("Manager") {}
    void activateInHost() override { ++activations; }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IHostActivation)
        return Component::queryInterface(iid, object);
    }
    uint32 retain() override { return Component::retain(); }
    uint32 release() override { return Component::release(); }
    int activations = 0;
};

} // namespace

TEST(ActivityInfo, FormatsSalesAndFansAsTheDashboardShowsThem)
{
    auto info = makeRef<ActivityInfo>();
    struct Case
    {
        const char* sales;
        const char* currency;
        const char* expected;
    } cases[] = {{"57.5", "USD", "$ 57.50"},   {"1234.56", "EUR", "\u20AC 1235"}, {"80", "GBP", "GBP 80.00"},
                 {"100", "USD", "$ 100"},      {"99.99", "USD", "$ 99.99"},       {"5", "usd", "usd 5.00"},
                 {"12.5", "CAD", "C$ 12.50"}, {"7", "", " 7.00"}};
    for (const Case& c : cases)
    {
        info->update(parse(std::string(R"({"account_id": 7, "total_sales": )") + c.sales + R"(, "currency": ")" +
                           c.currency + R"("})"));
        EXPECT_EQ(shown(*info, "totalSales"), c.expected) << c.sales << " " << c.currency;
    }
    for (auto [fans, expected] : {std::pair{"9999", "9999"}, {"10000", "10k+"}, {"10400", "10k+"}, {"12345", "12k+"}, {"0", "0"}})
    {
        info->update(parse(std::string(R"({"account_id": "7", "total_fans": )") + fans + "}"));
        EXPECT_EQ(shown(*info, "totalFans"), expected) << fans;
    }
}

TEST(ActivityInfo, AnAccountIdOfZeroChangesNothingButStillRefreshesTheTexts)
{
    auto info = makeRef<ActivityInfo>();
    info->update(parse(R"({"account_id": 42, "name": "Ann", "active_promos": 3, "start_date": "2014-3-7",
        "end_date": "2014/03/07", "total_Products": 5, "user_message": "Hi", "action_link": "https://example.test/go?x=1",
        "action_text": "Go", "action_icon_id": "heart"})"));
    const ActivityInfoModel& model = info->model();
    EXPECT_EQ(model.accountId, 42);
    EXPECT_EQ(model.startDate, (ActivityInfoModel::Date{2014, 3, 7}));
    EXPECT_EQ(model.endDate, (ActivityInfoModel::Date{1900, 1, 1})); // did not scan: kept
    EXPECT_EQ(model.totalProducts, 5);
    EXPECT_EQ(shown(*info, "userName"), "Ann");
    EXPECT_EQ(shown(*info, "activePromotions"), "3");
    EXPECT_EQ(shown(*info, "actionLink"), "https://example.test/go?x=1");
    Variant icon;
    ASSERT_TRUE(info->getProperty(icon, "actionIconId"));
    EXPECT_EQ(icon.toString(), "heart"); // an unknown icon: the theme shows its default
    ASSERT_TRUE(info->getProperty(icon, "actionIconChanged"));
    EXPECT_EQ(icon.asInt(), 1);

    info->reset();
    EXPECT_TRUE(shown(*info, "userName").isEmpty());
    EXPECT_TRUE(shown(*info, "totalSales").isEmpty());
    EXPECT_EQ(model.name, "Ann"); // the record stays

    info->update(parse(R"({"account_id": 0, "name": "Mallory", "total_fans": 99})"));
    EXPECT_EQ(model.name, "Ann");
    EXPECT_EQ(shown(*info, "userName"), "Ann"); // shown again from the old record
    info->update(parse(R"({"account_id": "abc", "name": "Mallory"})"));
    EXPECT_EQ(model.name, "Ann");
}

TEST(ActivityInfo, CreateAccountBringsTheGadgetForwardThroughItsParent)
{
    auto manager = makeRef<FakeManager>();
    auto info = makeRef<ActivityInfo>();
    manager->addChild(info);
    info->findParameter("onCreateAccount")->setValue(1, true);
    EXPECT_EQ(manager->activations, 0); // not initialised yet: no manager known
    manager->initialize(nullptr);
    info->findParameter("onCreateAccount")->setValue(1, true);
    EXPECT_EQ(manager->activations, 1);
    info->findParameter("userName")->setValue(String("typed"), true); // other parameters do nothing
    EXPECT_EQ(manager->activations, 1);

    auto orphan = makeRef<ActivityInfo>();
    orphan->initialize(nullptr);
    orphan->findParameter("onCreateAccount")->setValue(1, true); // no manager: nothing happens
}

TEST(ActivityInfo, IntegerFiguresTruncateNumbersTheServiceSendsWithAFraction)
{
    auto data = makeRef<Attributes>();
    data->set("account_id", 8.9);
    data->set("total_fans", 1234.7);
    data->set("active_promos", 3.99);
    data->set("total_Products", -2.5);
    data->set("total_sales", 57);
    ActivityInfoModel model;
    model.load(*data);
    EXPECT_EQ(model.accountId, 8);
    EXPECT_EQ(model.totalFans, 1234);
    EXPECT_EQ(model.activePromotions, 3);
    EXPECT_EQ(model.totalProducts, -2);
    EXPECT_DOUBLE_EQ(model.totalSales, 57.0);

    // Texts still read as decimal numbers, and what is no number reads as 0.
    data->set("account_id", String("12"));
    data->set("total_fans", String("lots"));
    model.load(*data);
    EXPECT_EQ(model.accountId, 12);
    EXPECT_EQ(model.totalFans, 0);

    // An account id below one truncates to 0: the record keeps what it had.
    data->set("account_id", 0.9);
    data->set("total_fans", 99);
    model.load(*data);
    EXPECT_EQ(model.accountId, 12);
    EXPECT_EQ(model.totalFans, 0);
}
