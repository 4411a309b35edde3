#pragma once

// The objects a host hands to the plug-in: the files of a publish step with their metadata, the
// context a gadget lives in, and the places where alerts and opened addresses arrive.

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"
#include "framework/interfaces/IHostContextActivation.h"
#include "framework/interfaces/IPublishedItem.h"
#include "framework/services/IAlertPresenter.h"
#include "framework/services/IUrlOpener.h"

#include <functional>
#include <string>
#include <vector>

namespace Host {

/// One rendered file with its "Media:" metadata.
class PublishedItem : public KVX::Object, public KVX::IPublishedItem
{
public:
    PublishedItem(std::string fileUrl, KVX::Attributes metadata)
        : fileUrl_(std::move(fileUrl)), metadata_(std::move(metadata))
    {
    }
    KVX::tresult getMetadata(KVX::IAttributeList* metadata) override;
    const char* getFileUrl() override { return fileUrl_.c_str(); }
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    std::string fileUrl_;
    KVX::Attributes metadata_;
};

/// The items of one publish step, in rendering order.
class PublishedItemContainer : public KVX::Object, public KVX::IPublishedItemContainer
{
public:
    void add(PublishedItem* item) { items_.emplace_back(item); }
    KVX::int32 countItems() override { return static_cast<KVX::int32>(items_.size()); }
    KVX::IPublishedItem* getItem(KVX::int32 index) override;
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    std::vector<KVX::Ref<PublishedItem>> items_;
};

/// The place the host gives the gadget. A terminal has no panel to bring forward, so an
/// activation is counted, and passed to whoever shows the gadget (the browser page).
class HostContext : public KVX::Object, public KVX::IHostContextActivation
{
public:
    KVX::tresult activate(KVX::IComponent* component) override;
    int activations() const { return activations_; }
    std::function<void()> onActivate;
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    int activations_ = 0;
};

/// Shows the plug-in's alerts on standard error ("sorvel: <text>") and keeps them, so that the
/// program can tell how an operation ended. Each alert is recognised by its key in the plug-in's
/// text table (Engine::TextKeys): the text shown may be a translation.
class AlertCollector : public KVX::Object, public KVX::IAlertPresenter
{
public:
    struct Alert
    {
        std::string text; ///< as shown
        std::string key;  ///< the text table's key it is the translation of; empty for none
    };

    explicit AlertCollector(bool quiet = false) : quiet_(quiet) {}
    KVX::tresult presentAlert(const char* text, KVX::int32 kind) override;
    const std::vector<Alert>& alerts() const { return alerts_; }
    /// Whether an alert of the text table's `key` came.
    bool contains(const char* key) const;
    /// From now on alerts are collected but not printed, until printHeld().
    void hold() { held_ = alerts_.size(), holding_ = true; }
    /// Prints the alerts that came while held, except those of the key `withdrawn` (an alert
    /// the host explains better itself), and prints again from now on.
    void printHeld(const char* withdrawn = nullptr);
    /// Also told of every alert (the browser page shows them).
    std::function<void(const std::string&)> onAlert;
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    bool quiet_;
    bool holding_ = false;
    size_t held_ = 0; ///< the first alert that came while held
    std::vector<Alert> alerts_;
};

/// Takes the addresses the plug-in asks to open. The product page it opens after an upload is
/// signed with a password digest in its query, so only the address without the query is kept
/// for showing.
class OpenedPages : public KVX::Object, public KVX::IUrlOpener
{
public:
    KVX::tresult openUrl(const char* url) override;
    /// Every opened address without its query and fragment.
    const std::vector<std::string>& pages() const { return pages_; }
    /// The value of "open_title" of the last opened address (the product), or empty.
    const std::string& lastProductId() const { return lastProductId_; }
    /// Also told of every address, whole (the browser page opens them).
    std::function<void(const std::string&)> onOpen;
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    std::vector<std::string> pages_;
    std::string lastProductId_;
};

} // namespace Host
