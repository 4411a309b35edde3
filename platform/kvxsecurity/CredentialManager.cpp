#include "platform/kvxsecurity/CredentialManager.h"

#include "framework/core/Ref.h"
#include "platform/kvxsecurity/ErrorTranslation.h"
#include "platform/kvxsecurity/StoredCredential.h"

#include <libsecret/secret.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace KVX::Security {

KVX_DEFINE_CLASS(CredentialManager, Object, "CredentialManager")

namespace {

constexpr const char* kTargetAttribute = "target";
constexpr const char* kUserAttribute = "user";

template <auto release>
struct Releaser
{
    template <class T>
    void operator()(T* pointer) const
    {
        release(pointer);
    }
};

void freeItems(GList* items)
{
    g_list_free_full(items, g_object_unref);
}

using ServiceHandle = std::unique_ptr<SecretService, Releaser<g_object_unref>>;
using ItemList = std::unique_ptr<GList, Releaser<freeItems>>;
using AttributeTable = std::unique_ptr<GHashTable, Releaser<g_hash_table_unref>>;
using SecretHandle = std::unique_ptr<SecretValue, Releaser<secret_value_unref>>;
using GText = std::unique_ptr<gchar, Releaser<g_free>>;

const SecretSchema& loginSchema()
{
    static const SecretSchema schema = [] {
        SecretSchema result{};
        result.name = "com.belvane.sorvel.Login";
        result.flags = SECRET_SCHEMA_NONE;
        result.attributes[0] = {kTargetAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
        result.attributes[1] = {kUserAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
        return result;
    }();
    return schema;
}

/// D-Bus carries only valid UTF-8 strings; anything else would be refused deep inside GLib.
bool isText(const char* text)
{
    return text && g_utf8_validate(text, -1, nullptr);
}

bool isNonEmptyText(const char* text)
{
    return isText(text) && *text != '\0';
}

tresult connectToService(const char* action, ServiceHandle& service)
{
    GError* error = nullptr;
    service.reset(secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error));
    return service ? kResultOk : secretServiceFailure(action, error);
}

tresult findLogins(SecretService* service, const char* target, int flags, const char* action, ItemList& items)
{
    AttributeTable attributes(secret_attributes_build(&loginSchema(), kTargetAttribute, target, nullptr));
    if (!attributes)
        return secretServiceFailure(action, nullptr, "the target cannot be used as an attribute");
    GError* error = nullptr;
    items.reset(secret_service_search_sync(service, &loginSchema(), attributes.get(),
                                           static_cast<SecretSearchFlags>(flags), nullptr, &error));
    return error ? secretServiceFailure(action, error) : kResultOk;
}

/// The user name of an entry; empty when another program stored one without it.
std::string userOf(SecretItem* item)
{
    AttributeTable attributes(secret_item_get_attributes(item));
    if (!attributes)
        return {};
    const auto* user = static_cast<const char*>(g_hash_table_lookup(attributes.get(), kUserAttribute));
    return user ? user : "";
}

SecretItem* newestOf(GList* items)
{
    SecretItem* newest = nullptr;
    for (GList* node = items; node; node = node->next)
    {
        auto* item = static_cast<SecretItem*>(node->data);
        if (!newest || secret_item_get_modified(item) > secret_item_get_modified(newest))
            newest = item;
    }
    return newest;
}

} // namespace

tresult CredentialManager::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ICredentialManager)
    return Object::queryInterface(iid, object);
}

tresult CredentialManager::lookup(const char* target, ICredential** credential)
{
    if (!credential)
        return kInvalidArgument;
    *credential = nullptr;
    if (!isNonEmptyText(target))
        return kInvalidArgument;

    // Unreported: a store that cannot be reached (no keyring on this machine) holds no login,
    // which is how the caller takes the failure; storing and removing, which the user asked
    // for, say why they failed.
    constexpr const char* kAction = nullptr;
    try
    {
        ServiceHandle service;
        if (tresult result = connectToService(kAction, service); result != kResultOk)
            return result;
        ItemList items;
        int flags = SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK | SECRET_SEARCH_LOAD_SECRETS;
        if (tresult result = findLogins(service.get(), target, flags, kAction, items); result != kResultOk)
            return result;

        // A target has a single entry unless another program added more; the newest one wins.
        SecretItem* item = newestOf(items.get());
        if (!item)
            return kResultOk;
        SecretHandle secret(secret_item_get_secret(item));
        if (!secret)
            return secretServiceFailure(kAction, nullptr, "the entry is still locked");
        if (!secret_value_get_text(secret.get()))
            return secretServiceFailure(kAction, nullptr, "the stored secret is not text");

        auto stored = makeRef<StoredCredential>(userOf(item), secret.get());
        static_cast<void>(secret.release()); // the credential owns it now
        *credential = stored.detach();
        return kResultOk;
    }
    catch (...)
    {
        return kUnexpected;
    }
}

tresult CredentialManager::store(const char* target, const char* userName, const char* password)
{
    if (!isNonEmptyText(target) || !isNonEmptyText(userName) || !isText(password))
        return kInvalidArgument;

    constexpr const char* kAction = "cannot store the login";
    try
    {
        ServiceHandle service;
        if (tresult result = connectToService(kAction, service); result != kResultOk)
            return result;

        AttributeTable attributes(secret_attributes_build(&loginSchema(), kTargetAttribute, target,
                                                          kUserAttribute, userName, nullptr));
        if (!attributes)
            return secretServiceFailure(kAction, nullptr, "the login cannot be used as attributes");
        SecretHandle secret(secret_value_new(password, -1, "text/plain"));
        GText label(g_strconcat("Login for ", target, nullptr));
        GError* error = nullptr;
        // The service replaces an item with exactly these attributes (same target and user).
        if (!secret_service_store_sync(service.get(), &loginSchema(), attributes.get(),
                                       SECRET_COLLECTION_DEFAULT, label.get(), secret.get(), nullptr, &error))
            return secretServiceFailure(kAction, error);

        // Entries of the target under other user names go only now, so that a store that fails
        // leaves the earlier login in place.
        constexpr const char* kRemoveAction = "cannot remove an earlier login";
        ItemList items;
        if (tresult result = findLogins(service.get(), target, SECRET_SEARCH_ALL, kRemoveAction, items);
            result != kResultOk)
            return result;
        for (GList* node = items.get(); node; node = node->next)
        {
            auto* item = static_cast<SecretItem*>(node->data);
            if (userOf(item) == userName)
                continue;
            if (!secret_item_delete_sync(item, nullptr, &error))
                return secretServiceFailure(kRemoveAction, error);
        }
        return kResultOk;
    }
    catch (...)
    {
        return kUnexpected;
    }
}

tresult CredentialManager::remove(const char* target)
{
    if (!isNonEmptyText(target))
        return kInvalidArgument;
    constexpr const char* kAction = "cannot remove the login";
    try
    {
        ServiceHandle service;
        if (tresult result = connectToService(kAction, service); result != kResultOk)
            return result;
        ItemList items;
        if (tresult result = findLogins(service.get(), target, SECRET_SEARCH_ALL, kAction, items); result != kResultOk)
            return result;
        for (GList* node = items.get(); node; node = node->next)
        {
            GError* error = nullptr;
            if (!secret_item_delete_sync(static_cast<SecretItem*>(node->data), nullptr, &error))
                return secretServiceFailure(kAction, error);
        }
        return kResultOk;
    }
    catch (...)
    {
        return kUnexpected;
    }
}

} // namespace KVX::Security
