#pragma once

#include "framework/component/Component.h"
#include "framework/component/ObserverConnection.h"
#include "framework/interfaces/IAsyncOperation.h"
#include "framework/plugin/PluginInstance.h"
#include "framework/web/XHRClientCallback.h"
#include "plugin/catalogue/Collection.h"
#include "plugin/catalogue/LocalTrack.h"
#include "plugin/views/IHostActivation.h"
#include "plugin/views/ITrackListOwner.h"

namespace KVX {
class CommandMessage;
class Menu;
class IAttributeList;
namespace Security {
class CredentialComponent;
}
} // namespace KVX

namespace Sorvel {

class ActivityInfo;
class Client;
class TrackInfoComponent;
class TrackItem;
class TrackList;
class UploadSession;

/// The gadget's controller, behind the form "SorvelClient": signs the user in and out, loads the
/// account's figures and products, lays the files to upload out beside the chosen product's
/// tracks, and runs the upload session.
///
/// Children, by the names the forms use: "Client" (the service client), "Credentials" (user
/// name, password, remember switch), "ActivityInfo" (the dashboard figures) and "TrackInfo" (the
/// inspector); the track table is the object "trackList". Parameters 100 to 107 are the form's
/// buttons, select box and edit box; the properties "isUploading", "loginPhase" and
/// "credentialsAvailable" choose what the form shows.
///
/// The first Manager made is the module's current one, through which the publishing target
/// hands over rendered files; it stays so until it is destroyed.
///
/// Threads: everything runs on the user-interface thread; replies and the upload session's
/// messages arrive there too. The only state shared with another thread is the session's.
class Manager : public KVX::Component,
                public KVX::PluginInstance,
                public KVX::Web::XHRClientCallback<Manager>,
                public ITrackListOwner,
                public IHostActivation
{
    KVX_DECLARE_CLASS(Manager, KVX::Component)
public:
    enum Tags : KVX::int32
    {
        kSignIn = 100,
        kSignOut = 101,
        kReplaceMode = 102,
        kTitlesList = 103,
        kNewProductName = 104,
        kUpload = 105,
        kCancel = 106,
        kOpenDashboard = 107,
    };

    enum LoginPhase : KVX::int32
    {
        kSignedOut = 0,
        kSigningIn = 1,
        kSignedIn = 2,
    };

    /// The host name under which the user's login is kept in the platform's credential store.
    static constexpr const char* kCredentialTarget = "sorvel.com";
    /// The name under which the host's configuration provider keeps the service's values, and
    /// the description it is asked with.
    static constexpr const char* kConfigurationName = "sorvel";
    static constexpr const char* kConfigurationDescription = "Sorvel Client";

    Manager();
    ~Manager() override;

    /// The module's current Manager (no reference), or null while there is none.
    static Manager* current();

    KVX::tresult initialize(KVX::IUnknown* context) override;
    KVX::tresult terminate() override;
    bool paramChanged(KVX::Parameter& parameter) override;
    void notify(KVX::ISubject* subject, KVX::IMessage& message) override;
    bool getProperty(KVX::Variant& value, std::string_view name) const override;
    KVX::IUnknown* lookupObject(const char* name) override;

    // Sign-in and catalogue.
    void signIn(bool silent);
    void signOut();
    void requestActivity();
    void requestTitles(bool refresh);
    /// Opens the service's page of `titleId` (the general page when it is empty), signed in,
    /// in the user's browser. False without a user name and password, or when the shell refused.
    bool openTitlePage(const KVX::String& titleId);
    void sessionExpired();
    /// The product the select box points at while "replaceMode" is on, or null.
    Title* selectedTitle() const;

    // Upload.
    /// Lists `localTracks` for upload into the product called `productName` (a new product when
    /// none has that name). Ignored while an upload runs.
    void setTracks(const KVX::TypedObjectArray<LocalTrack>& localTracks, const KVX::String& productName);
    void rebuildTrackList();
    void startUpload();
    void cancelUpload();
    void clearUploadedTracks();

    /// Hands the Manager to the host context that placed it, so that the host brings the gadget
    /// to the user. Nothing happens without a context that offers it.
    void activateInHost() override;
    TrackList* getTrackList() override { return trackList_; }

    KVX::int32 getLoginPhase() const { return loginPhase_; }
    bool areCredentialsAvailable() const { return credentialsAvailable_; }
    bool isUploading() const;
    Client& getClient() const { return *client_; }
    KVX::Security::CredentialComponent& getCredentials() const { return *credentials_; }
    UploadSession& getUploadSession() const { return *uploadSession_; }
    const Collection& getCollection() const { return collection_; }

    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Component::retain(); }
    KVX::uint32 release() override { return Component::release(); }

private:
    class ConfigurationWaiter;

    void setLoginPhase(KVX::int32 phase);
    void setCredentialsAvailable(bool state);
    void updateEnabledStates();
    /// Asks the host's configuration provider at once; true when a configuration was applied.
    bool fetchConfigurationNow();
    void fetchConfigurationLater();
    void onConfigurationFetched(KVX::IAsyncOperation* operation);
    bool applyConfiguration(KVX::IAttributeList* attributes);

    void onAuthorizationSucceeded();
    void onAuthorizationFailed();
    void onActivityReply(KVX::Web::IXMLHttpRequest& request, KVX::IMessage& message);
    void onTitlesReply(KVX::Web::IXMLHttpRequest& request, KVX::IMessage& message);
    void onTitlesRefreshed(KVX::Web::IXMLHttpRequest& request, KVX::IMessage& message);
    void onReplaceModeChanged();
    void onTitleSelected();
    void extendMenu(KVX::Menu& menu, const KVX::Parameter& parameter);
    bool onRequestTitlesCommand(const KVX::CommandMessage& command);
    /// Fills "titlesList" from the collection and chooses its selection: the product that was
    /// selected before (`hadSelection`, by identifier), else the one named `typedName`, else the
    /// add-new entry.
    void fillTitlesList(const KVX::String& previousId, const KVX::String& typedName, bool hadSelection);
    /// Selects the product at `index` in replace mode, or (-1) the add-new entry in new-product mode.
    void chooseProduct(KVX::int32 index);
    /// The index in the collection of the first title with this identifier or name, or -1.
    KVX::int32 findTitleById(const KVX::String& id) const;
    KVX::int32 findTitleByName(const KVX::String& name) const;

    void onSessionStarted();
    void onTrackStarted(LocalTrack* track);
    void onTrackProgressChanged(double progress);
    void onTrackFinished(LocalTrack* track, KVX::int32 result);
    void onSessionFinished();
    /// The row holding `track` as its file, or null.
    TrackItem* findRowOf(const LocalTrack* track) const;

    KVX::Parameter& parameter(KVX::int32 tag) const { return *findParameter(tag); }
    /// Sets a parameter with notification: the Manager reacts even when the value stays.
    void setParameterNotified(KVX::int32 tag, const KVX::Variant& value);
    void showAlert(const char* english) const;

    KVX::Ref<Client> client_;
    KVX::Ref<KVX::Security::CredentialComponent> credentials_;
    KVX::Ref<TrackList> trackList_;
    KVX::Ref<ActivityInfo> activityInfo_;
    KVX::Ref<TrackInfoComponent> trackInfo_;
    KVX::Ref<UploadSession> uploadSession_;

    KVX::int32 loginPhase_ = kSignedOut;
    bool credentialsAvailable_ = false;
    bool silentSignIn_ = false;
    KVX::Ref<KVX::IAsyncOperation> pendingConfiguration_;
    KVX::Ref<ConfigurationWaiter> configurationWaiter_;
    KVX::ObserverConnection clientSignals_;
    KVX::ObserverConnection trackListSignals_;
    KVX::ObserverConnection sessionSignals_;
    Collection collection_;
};

} // namespace Sorvel
