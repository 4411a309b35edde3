#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/GuiServices.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace KVX;

namespace {

class RecordingPresenter : public Object, public IAlertPresenter
{
    KVX_DECLARE_CLASS(RecordingPresenter, Object)
public:
    tresult presentAlert(const char* text, int32 kind) override
    {
        shown.push_back({text, kind});
        if (unregisterWhileShowing)
            GetAlertService()->setPresenter(nullptr);
        return result;
    }
    KVX_FORWARD_UNKNOWN(Object)

    struct Alert
    {
        std::string text;
        int32 kind;
    };
    std::vector<Alert> shown;
    tresult result = kResultOk;
    bool unregisterWhileShowing = false;
};
KVX_DEFINE_CLASS(RecordingPresenter, Object, "RecordingPresenter")

tresult RecordingPresenter::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAlertPresenter)
    return Object::queryInterface(iid, object);
}

// What an alert writes to standard error, and its result.
std::pair<tresult, std::string> alertOnStandardError(const char* text, int32 kind)
{
    testing::internal::CaptureStderr();
    const tresult result = GetAlertService()->showAlert(text, kind);
    return {result, testing::internal::GetCapturedStderr()};
}

} // namespace

TEST(AlertService, WithoutAPresenterAlertsGoToStandardErrorAsOneMessageEach)
{
    using Result = std::pair<tresult, std::string>;
    EXPECT_EQ(alertOnStandardError("Upload failed!", IAlertService::kError),
              Result(kResultOk, "Sorvel error: Upload failed!\n"));
    EXPECT_EQ(alertOnStandardError("Session expired. Please login again.", IAlertService::kWarning),
              Result(kResultOk, "Sorvel warning: Session expired. Please login again.\n"));
    EXPECT_EQ(alertOnStandardError("Gr\u00fc\u00dfe", IAlertService::kInformation),
              Result(kResultOk, "Sorvel: Gr\u00fc\u00dfe\n"));
    EXPECT_EQ(alertOnStandardError("", IAlertService::kInformation), Result(kResultOk, "Sorvel: \n"));

    // Terminal control sequences are defused; line breaks and tabs stay.
    EXPECT_EQ(alertOnStandardError("a\x1b[2Jb\r\nc\td\x7f" "e\xc2\x9b" "1m", IAlertService::kInformation),
              Result(kResultOk, "Sorvel: a?[2Jb?\nc\td?e?1m\n"));

    for (int32 kind : {-1, 3})
        EXPECT_EQ(alertOnStandardError("text", kind), Result(kInvalidArgument, ""));
    EXPECT_EQ(alertOnStandardError(nullptr, IAlertService::kError), Result(kInvalidArgument, ""));
}

TEST(AlertService, ARegisteredPresenterShowsAlertsUntilItIsRemoved)
{
    auto presenter = makeRef<RecordingPresenter>();
    GetAlertService()->setPresenter(presenter);
    EXPECT_EQ(presenter->referenceCount(), 2u) << "the service holds the presenter";

    EXPECT_EQ(alertOnStandardError("Upload failed!", IAlertService::kError),
              std::make_pair(kResultOk, std::string()));
    presenter->result = kUnexpected;
    EXPECT_EQ(alertOnStandardError("Refresh", IAlertService::kInformation).first, kUnexpected)
        << "the presenter's result is the caller's";
    EXPECT_EQ(alertOnStandardError("bad kind", 9).first, kInvalidArgument);
    ASSERT_EQ(presenter->shown.size(), 2u);
    EXPECT_EQ(presenter->shown[0].text, "Upload failed!");
    EXPECT_EQ(presenter->shown[0].kind, IAlertService::kError);
    EXPECT_EQ(presenter->shown[1].text, "Refresh");

    // A presenter may remove itself while it shows an alert.
    presenter->result = kResultOk;
    presenter->unregisterWhileShowing = true;
    EXPECT_EQ(alertOnStandardError("Last one", IAlertService::kWarning).first, kResultOk);
    EXPECT_EQ(presenter->referenceCount(), 1u);
    EXPECT_EQ(presenter->shown.size(), 3u);
    EXPECT_EQ(alertOnStandardError("Back", IAlertService::kInformation).second, "Sorvel: Back\n");
    EXPECT_EQ(presenter->shown.size(), 3u);
}
