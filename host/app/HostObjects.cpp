#include "host/app/HostObjects.h"
#include "host/app/Complaint.h"

#include "framework/data/Url.h"
#include "framework/interfaces/IAttributeList.h"
#include "framework/interfaces/TextKeys.h"
#include "host/config/LanguageFile.h"

#include <algorithm>
#include <cstdio>

namespace Host {

using namespace KVX;

tresult PublishedItem::getMetadata(IAttributeList* metadata)
{
    if (!metadata)
        return kInvalidArgument;
    for (const Attributes::Member& member : metadata_)
    {
        ValueRecord record;
        member.value.toRecord(record);
        metadata->setAttribute(member.name.c_str(), record);
    }
    return kResultOk;
}

tresult PublishedItem::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IPublishedItem)
    return Object::queryInterface(iid, object);
}

IPublishedItem* PublishedItemContainer::getItem(int32 index)
{
    if (index < 0 || index >= countItems())
        return nullptr;
    return items_[static_cast<size_t>(index)].get();
}

tresult PublishedItemContainer::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IPublishedItemContainer)
    return Object::queryInterface(iid, object);
}

tresult HostContext::activate(IComponent* component)
{
    if (!component)
        return kInvalidArgument;
    ++activations_;
    if (onActivate)
        onActivate();
    return kResultOk;
}

tresult HostContext::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IHostContextActivation)
    return Object::queryInterface(iid, object);
}

tresult AlertCollector::presentAlert(const char* text, int32)
{
    if (!text)
        return kInvalidArgument;
    Alert alert{text, {}};
    for (const char* key : Engine::TextKeys::kAll)
        if (LanguageFile::text(key) == alert.text)
            alert.key = key;
    alerts_.push_back(alert);
    if (onAlert)
        onAlert(alert.text);
    if (!quiet_ && !holding_)
        complain("%s\n", text);
    return kResultOk;
}

void AlertCollector::printHeld(const char* withdrawn)
{
    if (!holding_)
        return;
    holding_ = false;
    for (size_t i = held_; i < alerts_.size(); ++i)
        if (!quiet_ && !(withdrawn && alerts_[i].key == withdrawn))
            complain("%s\n", alerts_[i].text.c_str());
}

bool AlertCollector::contains(const char* key) const
{
    return std::any_of(alerts_.begin(), alerts_.end(), [key](const Alert& alert) { return alert.key == key; });
}

tresult AlertCollector::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAlertPresenter)
    return Object::queryInterface(iid, object);
}

tresult OpenedPages::openUrl(const char* url)
{
    if (!url)
        return kInvalidArgument;
    const Url parsed = Url::fromDisplayString(url);
    if (parsed.protocol().isEmpty())
        return kInvalidArgument;
    std::string text = url;
    text = text.substr(0, text.find_first_of("?#"));
    pages_.push_back(text);
    if (onOpen)
        onOpen(url);
    lastProductId_.clear();
    for (const auto& parameter : parsed.parameters())
        if (parameter.name == "open_title")
            lastProductId_ = parameter.value.toUtf8();
    return kResultOk;
}

tresult OpenedPages::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IUrlOpener)
    return Object::queryInterface(iid, object);
}

} // namespace Host
