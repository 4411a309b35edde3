#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/IItemModel.h"
#include "framework/interfaces/IObserver.h"

#include <atomic>
#include <string>
#include <vector>

namespace Host {

/// The gadget as the host sees it: the plug-in's controller behind its form, reached only
/// through the component interface, as the theme's forms reach it. Reads and writes parameters
/// by name ("Credentials.username" addresses a child's), reads properties, presses buttons, and
/// waits on the run loop for the changes the form would show.
class Gadget : public KVX::Object, public KVX::IObserver
{
public:
    /// Login phases as the property "loginPhase" reports them.
    enum Phase : KVX::int64
    {
        kSignedOut = 0,
        kSigningIn = 1,
        kSignedIn = 2,
    };

    /// Opens `component` (taking a reference) in `context`: observes it and initialises it,
    /// which starts the silent sign-in.
    void open(KVX::IComponent* component, KVX::IUnknown* context);
    /// Terminates and lets go of the component.
    void close();

    KVX::IComponent* component() const { return component_; }

    std::string text(const std::string& path) const;
    KVX::int64 number(const std::string& path) const;
    bool isEnabled(const std::string& path) const;
    void setText(const std::string& path, const std::string& value, bool notify = false);
    void setNumber(const std::string& path, KVX::int64 value, bool notify = false);
    void press(const std::string& path) { setNumber(path, 1, true); }
    /// The entries of a list parameter as texts.
    std::vector<std::string> entries(const std::string& path) const;
    /// Chooses the command `category`/`name` that the gadget adds to the menu of the list `path`,
    /// as the form's user picks it from the list's menu; false when the menu has no such entry or
    /// the gadget refuses it now.
    bool chooseMenuCommand(const std::string& path, const std::string& category, const std::string& name);
    /// A property of the gadget or, as "Child.name", of a child; 0 when there is none.
    KVX::int64 property(const std::string& path) const;

    KVX::int64 phase() const { return property("loginPhase"); }
    bool isUploading() const { return property("isUploading") != 0; }
    bool isBusy() const { return property("Client.isBusy") != 0; }
    /// The track table's model.
    KVX::IItemModel* trackList() const;

    /// Runs the loop until the client has no call under way and what its replies posted has been
    /// delivered; false when `timeoutMs` passed first or `interrupted` turned true.
    bool settle(KVX::uint32 timeoutMs, const std::atomic<bool>* interrupted = nullptr);

    void notify(KVX::ISubject* subject, KVX::IMessage& message) override;
    int propertyChanges() const { return propertyChanges_; }
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    /// The component and parameter name that `path` addresses.
    KVX::IParameter* find(const std::string& path, KVX::IComponent** owner = nullptr) const;

    KVX::Ref<KVX::IComponent> component_;
    int propertyChanges_ = 0;
};

} // namespace Host
