#include "plugin/controller/Manager.h"

#include "framework/async/AsyncOperation.h"
#include "framework/command/CommandDelegate.h"
#include "framework/command/Menu.h"
#include "framework/component/Signals.h"
#include "framework/data/AttributeArray.h"
#include "framework/data/AttributeList.h"
#include "framework/interfaces/IConfigurationProvider.h"
#include "framework/interfaces/IHostContextActivation.h"
#include "framework/security/CredentialComponent.h"
#include "framework/services/GuiServices.h"
#include "framework/services/SystemServices.h"
#include "plugin/service/Client.h"
#include "plugin/service/Response.h"
#include "plugin/shell/Texts.h"
#include "plugin/upload/UploadSession.h"
#include "plugin/views/ActivityInfo.h"
#include "plugin/views/TrackInfoComponent.h"
#include "plugin/views/TrackList.h"

#include <atomic>

namespace Sorvel {

using namespace KVX;

KVX_DEFINE_CLASS(Manager, Component, "Manager")

namespace {

/// The module's current Manager: the first one made, until it is destroyed. Written on the
/// user-interface thread only; the publishing target may ask from another thread whether there
/// is one (it hands its tracks over on the user-interface thread), hence atomic.
std::atomic<Manager*> currentManager{nullptr};

using namespace Engine::TextKeys;
constexpr const char* kLoginFailedText = kLoginFailed;
constexpr const char* kSessionExpiredText = kSessionExpired;
constexpr const char* kUploadFailedText = kUploadFailed;
constexpr const char* kAddNewProductText = kAddNewProduct;
constexpr const char* kUntitledText = kUntitled;
constexpr const char* kRefreshText = kRefresh;

/// Tells the track table whether an upload runs by asking the session, so that the table holds
/// the session rather than the Manager that owns the table.
class SessionUploadState : public Object, public IUploadState
{
public:
    explicit SessionUploadState(UploadSession* session) : session_(session) {}
    bool isUploading() override { return session_->isRunning(); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IUploadState)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    Ref<UploadSession> session_;
};

bool isCompletion(IMessage& message)
{
    return idOf(message) == "onloadend";
}

} // namespace

/// Waits for the host's asynchronous configuration on the Manager's behalf. The operation holds
/// the waiter, not the Manager, so a closed Manager is not kept alive by a fetch that never ends;
/// the Manager cuts the waiter loose when it lets the operation go.
class Manager::ConfigurationWaiter : public Object, public IAsyncCompletionHandler
{
public:
    explicit ConfigurationWaiter(Manager* manager) : manager_(manager) {}
    void detach() { manager_ = nullptr; }
    void onCompletion(IAsyncOperation* operation) override
    {
        if (manager_)
            manager_->onConfigurationFetched(operation);
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IAsyncCompletionHandler)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    Manager* manager_;
};

Manager::Manager() : Component("Manager")
{
    client_ = makeRef<Client>();
    addChild(client_.get());
    credentials_ = makeRef<Security::CredentialComponent>("Credentials");
    addChild(credentials_.get());
    uploadSession_ = makeRef<UploadSession>();
    trackList_ = makeRef<TrackList>(makeRef<SessionUploadState>(uploadSession_.get()).get());
    activityInfo_ = makeRef<ActivityInfo>();
    addChild(activityInfo_.get());
    trackInfo_ = makeRef<TrackInfoComponent>();
    addChild(trackInfo_.get());

    // The buttons and the link are integer parameters of the command kind, so that every press
    // reaches paramChanged, also one that writes the value the parameter already holds.
    addParameter(Parameter::kCommand, "signIn", kSignIn);
    addParameter(Parameter::kCommand, "signOut", kSignOut);
    Parameter* replaceMode = addParameter(Parameter::kInteger, "replaceMode", kReplaceMode);
    replaceMode->setRange(0, 1);
    replaceMode->setOptions(Parameter::kStoreOnChange);
    replaceMode->setValue(1);
    addParameter(Parameter::kList, "titlesList", kTitlesList);
    addParameter(Parameter::kString, "newProductName", kNewProductName);
    addParameter(Parameter::kCommand, "upload", kUpload);
    addParameter(Parameter::kCommand, "cancel", kCancel);
    addParameter(Parameter::kCommand, "openDashboard", kOpenDashboard);
    updateEnabledStates();

    clientSignals_.connect(client_.get(), this);
    trackListSignals_.connect(trackList_.get(), this);
    sessionSignals_.connect(uploadSession_.get(), this);

    Manager* none = nullptr;
    currentManager.compare_exchange_strong(none, this, std::memory_order_relaxed);
}

Manager::~Manager()
{
    clientSignals_.disconnect();
    trackListSignals_.disconnect();
    trackList_->setUploadState(nullptr);
    trackList_.reset();
    sessionSignals_.disconnect();
    uploadSession_.reset();
    Manager* self = this;
    currentManager.compare_exchange_strong(self, nullptr, std::memory_order_relaxed);
    if (configurationWaiter_)
        configurationWaiter_->detach();
    pendingConfiguration_.reset();
}

Manager* Manager::current()
{
    return currentManager.load(std::memory_order_relaxed);
}

tresult Manager::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IPluginInstance)
    KVX_QUERY_INTERFACE(iid, object, ITrackListOwner)
    KVX_QUERY_INTERFACE(iid, object, IHostActivation)
    return Component::queryInterface(iid, object);
}

// Life cycle ------------------------------------------------------------------------------------

tresult Manager::initialize(IUnknown* context)
{
    const bool found = credentials_->loadCredentials(kCredentialTarget);
    credentials_->findParameter(Security::CredentialComponent::kSaveChecked)->setValue(found ? 1 : 0);
    setCredentialsAvailable(found);
    signIn(true);
    return Component::initialize(context);
}

tresult Manager::terminate()
{
    if (configurationWaiter_)
        configurationWaiter_->detach();
    configurationWaiter_.reset();
    pendingConfiguration_.reset();
    return Component::terminate();
}

// Parameters, messages and properties -------------------------------------------------------------

bool Manager::paramChanged(Parameter& changed)
{
    switch (changed.tag())
    {
    case kSignIn:
        signIn(false);
        break;
    case kSignOut:
        signOut();
        break;
    case kReplaceMode:
        onReplaceModeChanged();
        break;
    case kTitlesList:
        onTitleSelected();
        break;
    case kUpload:
        startUpload();
        break;
    case kCancel:
        cancelUpload();
        break;
    case kOpenDashboard:
    {
        Title* title = selectedTitle();
        openTitlePage(title ? title->id : String());
        break;
    }
    default: // "newProductName" is only read when it is needed
        break;
    }
    return true;
}

void Manager::notify(ISubject* subject, IMessage& message)
{
    const std::string_view id = idOf(message);
    if (subject == static_cast<ISubject*>(uploadSession_.get()))
    {
        if (id == "sessionStarted")
            onSessionStarted();
        else if (id == "trackStarted")
            onTrackStarted(argumentOf(message, 0).asObject<LocalTrack>());
        else if (id == "trackProgressChanged")
            onTrackProgressChanged(argumentOf(message, 0).asDouble());
        else if (id == "trackFinished")
            onTrackFinished(argumentOf(message, 0).asObject<LocalTrack>(),
                            static_cast<int32>(argumentOf(message, 1).asInt()));
        else if (id == "sessionFinished")
            onSessionFinished();
        return;
    }
    if (subject == static_cast<ISubject*>(client_.get()))
    {
        if (id == "authorizationSucceeded")
            onAuthorizationSucceeded();
        else if (id == "authorizationFailed")
            onAuthorizationFailed();
        return;
    }
    if (subject == static_cast<ISubject*>(trackList_.get()))
    {
        if (id == ItemModel::kSelectionChanged)
            trackInfo_->update();
        return;
    }
    if (id == "extendMenu")
    {
        Menu* menu = argumentOf(message, 0).asObject<Menu>();
        const Variant target = argumentOf(message, 1);
        Parameter* menuParameter = target.isString() ? findParameter(target.asString().toUtf8())
                                                     : target.asObject<Parameter>();
        if (menu && menuParameter)
            extendMenu(*menu, *menuParameter);
        return;
    }
    if (id == "requestTitles")
    {
        if (client_->isAuthorized())
            requestTitles(false);
        return;
    }
    Component::notify(subject, message);
}

bool Manager::getProperty(Variant& value, std::string_view name) const
{
    if (name == "isUploading")
        value = isUploading();
    else if (name == "loginPhase")
        value = loginPhase_;
    else if (name == "credentialsAvailable")
        value = credentialsAvailable_;
    else
        return Component::getProperty(value, name);
    return true;
}

IUnknown* Manager::lookupObject(const char* name)
{
    if (name && std::string_view(name) == "trackList")
        return static_cast<IItemModel*>(trackList_.get());
    return Component::lookupObject(name);
}

void Manager::setLoginPhase(int32 phase)
{
    loginPhase_ = phase;
    signal(Signals::kPropertyChanged);
}

void Manager::setCredentialsAvailable(bool state)
{
    credentialsAvailable_ = state;
    signal(Signals::kPropertyChanged);
}

bool Manager::isUploading() const
{
    return uploadSession_ && uploadSession_->isRunning();
}

void Manager::updateEnabledStates()
{
    const bool authorized = client_->isAuthorized();
    const bool uploading = isUploading();
    parameter(kTitlesList).enable(authorized && !uploading);
    parameter(kUpload).enable(authorized);
    parameter(kReplaceMode).enable(!uploading);
    parameter(kCancel).enable(uploading);
    parameter(kSignOut).enable(!uploading);
}

void Manager::setParameterNotified(int32 tag, const Variant& value)
{
    // "With notification" means that the Manager's reaction runs, also when the value stays the
    // same: a list rebuilt from a new reply keeps its index, yet its rows must be laid out again.
    Parameter& target = parameter(tag);
    const Variant before = target.value();
    target.setValue(value, true);
    if (target.value() == before)
        paramChanged(target);
}

void Manager::showAlert(const char* english) const
{
    if (IAlertService* alerts = GetAlertService())
        alerts->showAlert(Texts::translate(String(english)).toUtf8().c_str(), IAlertService::kError);
}

// Configuration -----------------------------------------------------------------------------------

namespace {

/// A new instance of the host's configuration provider, or null when the host has none.
Ref<IConfigurationProvider> createConfigurationProvider()
{
    void* object = nullptr;
    if (GetPlugInManager()->createInstance(IConfigurationProvider::kClassId, IConfigurationProvider::kIID, &object) !=
            kResultOk ||
        !object)
        return {};
    return Ref<IConfigurationProvider>::adopt(static_cast<IConfigurationProvider*>(object));
}

} // namespace

bool Manager::fetchConfigurationNow()
{
    const Ref<IConfigurationProvider> provider = createConfigurationProvider();
    if (!provider)
        return false;
    IAttributeList* attributes = nullptr;
    if (provider->getConfiguration(kConfigurationName, kConfigurationDescription, &attributes) != kResultOk ||
        !attributes)
        return false;
    return applyConfiguration(Ref<IAttributeList>::adopt(attributes));
}

void Manager::fetchConfigurationLater()
{
    Ref<IAsyncOperation> operation;
    if (const Ref<IConfigurationProvider> provider = createConfigurationProvider())
    {
        IAsyncOperation* started = nullptr;
        if (provider->fetchConfiguration(kConfigurationName, &started) == kResultOk && started)
            operation = Ref<IAsyncOperation>::adopt(started);
    }
    if (!operation)
        operation = Ref<IAsyncOperation>(static_cast<IAsyncOperation*>(AsyncOperation::failed().get()));

    if (configurationWaiter_)
        configurationWaiter_->detach();
    pendingConfiguration_ = operation;
    configurationWaiter_ = makeRef<ConfigurationWaiter>(this);
    operation->setCompletionHandler(configurationWaiter_);
}

void Manager::onConfigurationFetched(IAsyncOperation* operation)
{
    Ref<Manager> keepAlive(this);
    bool applied = false;
    if (operation && operation->getState() == IAsyncOperation::kCompleted)
    {
        IUnknown* result = nullptr;
        if (operation->getResult(&result) == kResultOk && result)
        {
            auto held = Ref<IUnknown>::adopt(result);
            void* list = nullptr;
            if (held->queryInterface(IAttributeList::kIID, &list) == kResultOk)
                applied = applyConfiguration(Ref<IAttributeList>::adopt(static_cast<IAttributeList*>(list)));
        }
    }
    if (applied)
        signIn(true);
    if (configurationWaiter_)
        configurationWaiter_->detach();
    configurationWaiter_.reset();
    pendingConfiguration_.reset();
}

bool Manager::applyConfiguration(IAttributeList* attributes)
{
    return attributes && client_->getConfiguration().fill(AttributeList::copyFrom(*attributes));
}

// Sign-in and catalogue -----------------------------------------------------------------------------

void Manager::signIn(bool silent)
{
    silentSignIn_ = silent;
    if (!client_->getConfiguration().isConfigured())
    {
        if (silent)
        {
            fetchConfigurationLater();
            return;
        }
        // A configuration that is incomplete is not used: the sign-in stops without a word, as
        // it does when the host has none.
        if (!fetchConfigurationNow())
            return;
    }
    if (client_->isAuthorized())
    {
        setLoginPhase(kSignedIn);
        return;
    }
    String userName, password;
    const bool haveBoth = credentials_->getCredentials(userName, password);
    setCredentialsAvailable(haveBoth);
    if (haveBoth)
    {
        if (client_->authorize(userName, password))
            setLoginPhase(kSigningIn);
    }
    else
        requestActivity();
}

void Manager::onAuthorizationSucceeded()
{
    if (credentials_->isSaveChecked())
        credentials_->storeCredentials(kCredentialTarget);
    uploadSession_->setConfiguration(client_->getConfiguration());
    setLoginPhase(kSignedIn);
    updateEnabledStates();
    requestActivity();
}

void Manager::onAuthorizationFailed()
{
    if (!silentSignIn_)
        showAlert(kLoginFailedText);
    setLoginPhase(kSignedOut);
}

void Manager::requestActivity()
{
    Attributes parameters;
    client_->requestActivity(callback(&Manager::onActivityReply), parameters);
}

void Manager::onActivityReply(Web::IXMLHttpRequest& request, IMessage& message)
{
    if (!isCompletion(message))
        return;
    const Response reply(request);
    if (reply.getStatusCode() == 200)
    {
        const Attributes* data = reply.getData();
        activityInfo_->update(data ? *data : Attributes());
    }
    else
        activityInfo_->reset();
    postMessage(Message::make("requestTitles"));
}

void Manager::requestTitles(bool refresh)
{
    Attributes parameters;
    parameters.set("view", String("detail"));
    Url url;
    client_->makeRequestUrl(url, "titles", parameters);
    client_->send(callback(refresh ? &Manager::onTitlesRefreshed : &Manager::onTitlesReply), "GET", url, nullptr, "");
}

void Manager::onTitlesRefreshed(Web::IXMLHttpRequest& request, IMessage& message)
{
    onTitlesReply(request, message);
    if (isCompletion(message))
        clearUploadedTracks();
}

void Manager::onTitlesReply(Web::IXMLHttpRequest& request, IMessage& message)
{
    if (!isCompletion(message))
        return;
    const Response reply(request);
    const int32 status = reply.getStatusCode();
    if (status == 200)
    {
        Collection titles;
        if (const AttributeArray* data = reply.getArray("data"))
        {
            const Attributes nothing;
            for (size_t i = 0; i < data->count(); ++i)
            {
                auto title = makeRef<Title>();
                const Attributes* element = data->getAttributes(i);
                title->load(element ? *element : nothing);
                titles.add(title);
            }
        }
        const String typedName = parameter(kNewProductName).stringValue();
        const Ref<Title> previous(selectedTitle());
        collection_.removeAll();
        for (Title* title : titles)
            collection_.add(title);
        fillTitlesList(previous ? previous->id : String(), previous ? String() : typedName, previous != nullptr);
    }
    if (loginPhase_ == kSigningIn)
        setLoginPhase(kSignedIn);
    if (status == 403)
        sessionExpired();
}

void Manager::fillTitlesList(const String& previousId, const String& typedName, bool hadSelection)
{
    Parameter& list = parameter(kTitlesList);
    list.removeAllEntries();
    String text;
    for (const Title* title : collection_)
        list.appendEntry(title->getDisplayTitle(text));
    list.appendEntry(Texts::translate(String(kAddNewProductText)));

    if (hadSelection)
    {
        const int32 index = findTitleById(previousId);
        if (index >= 0)
            setParameterNotified(kTitlesList, index);
        else
            chooseProduct(-1);
        return;
    }
    const int32 index = typedName.isEmpty() ? -1 : findTitleByName(typedName);
    chooseProduct(index);
}

void Manager::chooseProduct(int32 index)
{
    if (index >= 0)
    {
        setParameterNotified(kReplaceMode, 1);
        setParameterNotified(kTitlesList, index);
        return;
    }
    setParameterNotified(kReplaceMode, 0);
    setParameterNotified(kTitlesList, parameter(kTitlesList).maximum());
}

int32 Manager::findTitleById(const String& id) const
{
    for (size_t i = 0; i < collection_.count(); ++i)
        if (collection_.at(i)->id == id)
            return static_cast<int32>(i);
    return -1;
}

int32 Manager::findTitleByName(const String& name) const
{
    for (size_t i = 0; i < collection_.count(); ++i)
        if (collection_.at(i)->name == name)
            return static_cast<int32>(i);
    return -1;
}

Title* Manager::selectedTitle() const
{
    if (parameter(kReplaceMode).intValue() == 0)
        return nullptr;
    const Parameter& list = parameter(kTitlesList);
    const int64 index = list.intValue();
    // The list holds the collection's titles in order, then the add-new entry.
    if (index < 0 || index + 1 >= static_cast<int64>(list.entryCount()) ||
        index >= static_cast<int64>(collection_.count()))
        return nullptr;
    return collection_.at(static_cast<size_t>(index));
}

void Manager::onReplaceModeChanged()
{
    updateEnabledStates();
    rebuildTrackList();
    Parameter& name = parameter(kNewProductName);
    if (name.stringValue().isEmpty())
        name.setValue(Texts::translate(String(kUntitledText)));
    name.signal("requestFocus");
}

void Manager::onTitleSelected()
{
    const Parameter& list = parameter(kTitlesList);
    const bool wantReplace = list.intValue() < list.maximum();
    if (wantReplace != (parameter(kReplaceMode).intValue() != 0))
        setParameterNotified(kReplaceMode, wantReplace ? 1 : 0);
    else
        rebuildTrackList();
}

void Manager::extendMenu(Menu& menu, const Parameter& target)
{
    if (target.tag() != kTitlesList)
        return;
    for (int32 i = 0; i + 1 < menu.count(); ++i)
        menu.setIcon(i, "ProductIcon");
    menu.addEntry(Texts::translate(String(kRefreshText)), "", "Application", "Request Titles",
                  CommandDelegate<Manager>::make(this, &Manager::onRequestTitlesCommand));
}

bool Manager::onRequestTitlesCommand(const CommandMessage& command)
{
    if (!client_->isAuthorized() || client_->isBusy())
        return false;
    if (!command.checkOnly())
        requestTitles(false);
    return true;
}

void Manager::signOut()
{
    if (client_->isBusy())
        return;
    ClientConfiguration& configuration = client_->getConfiguration();
    configuration.accountId = CString();
    configuration.token = CString();
    configuration.tokenTimestamp = CString();
    client_->setState(Client::Unauthorized);
    if (!credentials_->isSaveChecked())
        credentials_->clearCredentials();
    parameter(kTitlesList).removeAllEntries();
    collection_.removeAll();
    setParameterNotified(kReplaceMode, 1);
    activityInfo_->reset();
    setLoginPhase(kSignedOut);
    updateEnabledStates();
}

void Manager::sessionExpired()
{
    showAlert(kSessionExpiredText);
    signOut();
    setLoginPhase(kSignedOut);
}

bool Manager::openTitlePage(const String& titleId)
{
    String userName, password;
    if (!credentials_->getCredentials(userName, password))
        return false;
    Url url;
    client_->makeWebLoginUrl(url, userName, password, titleId);
    ISystemShell* shell = GetSystemShell();
    return shell && shell->openUrl(url.toDisplayString().toUtf8().c_str()) == kResultOk;
}

void Manager::activateInHost()
{
    IUnknown* context = getHostContext() ? getHostContext() : Component::context();
    if (!context)
        return;
    void* activation = nullptr;
    if (context->queryInterface(IHostContextActivation::kIID, &activation) != kResultOk || !activation)
        return;
    Ref<IHostContextActivation>::adopt(static_cast<IHostContextActivation*>(activation))
        ->activate(static_cast<IComponent*>(this));
}

// Upload --------------------------------------------------------------------------------------------

void Manager::setTracks(const TypedObjectArray<LocalTrack>& localTracks, const String& productName)
{
    if (isUploading())
        return;
    parameter(kNewProductName).setValue(productName);
    chooseProduct(productName.isEmpty() ? -1 : findTitleByName(productName));

    trackList_->removeAllItems();
    for (LocalTrack* track : localTracks)
    {
        auto row = makeRef<TrackItem>();
        row->setLocalTrack(track);
        trackList_->appendItem(row);
    }
    rebuildTrackList();
}

void Manager::rebuildTrackList()
{
    TypedObjectArray<LocalTrack> files(true);
    for (int32 i = 0; i < trackList_->countItems(); ++i)
        if (LocalTrack* track = trackList_->getTrackItem(i)->getLocalTrack())
        {
            track->uploadState = LocalTrack::kNotUploaded;
            files.add(track);
        }
    trackList_->removeAllItems();

    if (Title* title = selectedTitle())
    {
        for (Track* remote : title->tracks)
        {
            auto row = makeRef<TrackItem>();
            row->setRemoteTrack(remote);
            trackList_->appendItem(row);
        }
        for (size_t i = 0; i < files.count();)
        {
            LocalTrack* file = files.at(i);
            if (TrackItem* row = trackList_->findRemoteOnlyRowByName(*file))
            {
                row->setLocalTrack(file);
                files.removeAt(i);
            }
            else
                ++i;
        }
    }
    for (LocalTrack* file : files)
    {
        auto row = makeRef<TrackItem>();
        row->setLocalTrack(file);
        trackList_->appendItem(row);
    }
    trackList_->signalItemsChanged();
}

void Manager::startUpload()
{
    if (isUploading() || client_->isBusy())
        return;
    String barcode;
    bool any = false;
    for (int32 i = 0; i < trackList_->countItems(); ++i)
    {
        const TrackItem& row = *trackList_->getTrackItem(i);
        LocalTrack* file = row.getLocalTrack();
        if (!file || file->incompatible)
            continue;
        if (barcode.isEmpty())
            barcode = file->ean;
        const String remoteId = row.getRemoteTrack() ? row.getRemoteTrack()->id : String();
        uploadSession_->addEntry(makeRef<UploadSession::Entry>(file, remoteId));
        any = true;
    }
    if (!any)
        return;

    Ref<Title> target(selectedTitle());
    if (!target)
    {
        target = makeRef<Title>();
        target->name = parameter(kNewProductName).stringValue();
        target->upc = barcode;
    }
    uploadSession_->setTitle(target);
    uploadSession_->start();
}

void Manager::cancelUpload()
{
    if (isUploading())
        uploadSession_->cancel();
}

TrackItem* Manager::findRowOf(const LocalTrack* track) const
{
    for (int32 i = 0; track && i < trackList_->countItems(); ++i)
    {
        TrackItem* row = trackList_->getTrackItem(i);
        if (row->getLocalTrack() == track)
            return row;
    }
    return nullptr;
}

void Manager::onSessionStarted()
{
    updateEnabledStates();
    signal(Signals::kPropertyChanged);
    trackInfo_->update();
}

void Manager::onTrackStarted(LocalTrack* track)
{
    trackList_->setCurrentItem(findRowOf(track));
    if (track)
        track->uploadState = LocalTrack::kUploading;
}

void Manager::onTrackProgressChanged(double progress)
{
    if (trackList_->getCurrentItem())
        trackList_->setProgress(progress);
}

void Manager::onTrackFinished(LocalTrack* track, int32 result)
{
    if (track)
        track->uploadState = result > 0 ? LocalTrack::kUploaded : LocalTrack::kUploadFailed;
    trackList_->setCurrentItem(nullptr);
    trackList_->setProgress(0);
    trackList_->invalidate();
}

void Manager::onSessionFinished()
{
    Ref<Manager> keepAlive(this);
    updateEnabledStates();
    signal(Signals::kPropertyChanged);
    if (uploadSession_->succeeded())
    {
        const Title* target = uploadSession_->getTitle();
        openTitlePage(target ? target->id : String());
        requestTitles(true);
    }
    else if (uploadSession_->getLastStatus() == 403)
        sessionExpired();
    else if (!uploadSession_->isCanceled())
        showAlert(kUploadFailedText);
}

void Manager::clearUploadedTracks()
{
    for (int32 i = 0; i < trackList_->countItems(); ++i)
        trackList_->getTrackItem(i)->setLocalTrack(nullptr);
    trackList_->removeEmptyRows();
    trackList_->signalItemsChanged();
    trackInfo_->update();
}

} // namespace Sorvel
