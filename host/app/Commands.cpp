#include "host/app/Commands.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "framework/services/ICredentialManager.h"
#include "framework/services/SecurityServices.h"

#include <cstdio>

namespace Host {

using namespace KVX;

namespace {

/// The host name under which the plug-in keeps the user's login in the keyring.
constexpr const char* kCredentialTarget = "sorvel.com";

/// Starts the host and signs in; kDone or the exit code.
int startSignedIn(Runtime& runtime, const LoginOptions& login)
{
    if (int code = runtime.start(); code != kDone)
        return code;
    return runtime.signIn(login);
}

void printJson(const Attributes& document)
{
    std::fprintf(stdout, "%s\n", Json::toText(document).c_str());
}

} // namespace

int listProducts(const LoginOptions& login, bool json)
{
    Runtime runtime;
    if (int code = startSignedIn(runtime, login); code != kDone)
        return code;
    if (!runtime.productsListed())
        return Runtime::productsNotListed();
    std::vector<std::string> products = runtime.gadget().entries("titlesList");
    if (!products.empty())
        products.pop_back(); // the entry that proposes a new product
    if (json)
    {
        auto list = makeRef<AttributeArray>();
        for (const std::string& name : products)
            list->append(String(name));
        Attributes document;
        document.set("products", Variant(static_cast<Object*>(list.get())));
        printJson(document);
    }
    else if (products.empty())
        std::fprintf(stdout, "No products yet.\n");
    else
        for (const std::string& name : products)
            std::fprintf(stdout, "%s\n", name.c_str());
    return kDone;
}

int showDashboard(const LoginOptions& login, bool json)
{
    Runtime runtime;
    if (int code = startSignedIn(runtime, login); code != kDone)
        return code;
    const Gadget& gadget = runtime.gadget();
    // The dashboard's texts, as its component formats them.
    const std::pair<const char*, const char*> fields[] = {
        {"userName", "Account"},        {"totalFans", "Fans"},
        {"totalSales", "Sales"},        {"activePromotions", "Active promotions"},
        {"userMessage", "Message"},     {"actionText", "Action"},
        {"actionLink", "Link"},
    };
    Attributes document;
    for (const auto& [name, label] : fields)
    {
        const std::string value = gadget.text(std::string("ActivityInfo.") + name);
        if (json)
            document.set(name, String(value));
        else if (!value.empty())
            std::fprintf(stdout, "%-18s %s\n", (std::string(label) + ":").c_str(), value.c_str());
    }
    if (json)
        printJson(document);
    return kDone;
}

int signInOnly(const LoginOptions& login, bool json)
{
    Runtime runtime;
    const int code = startSignedIn(runtime, login);
    if (code == kDone)
    {
        const std::string user = runtime.gadget().text("Credentials.username");
        if (json)
        {
            Attributes document;
            document.set("signedIn", String(user));
            document.set("remembered", login.remember);
            printJson(document);
        }
        else
            std::fprintf(stdout, "Signed in as %s%s\n", user.c_str(),
                         login.remember ? "; the login is kept in the keyring" : "");
    }
    return code;
}

int signOut(bool forget, bool json)
{
    Runtime runtime;
    if (int code = runtime.start(); code != kDone)
        return code;
    Gadget& gadget = runtime.gadget();
    gadget.settle(Runtime::kTimeoutMs, &gInterrupted);
    const std::string user = gadget.text("Credentials.username");
    if (forget)
        gadget.setNumber("Credentials.saveChecked", 0);
    gadget.press("signOut");
    bool forgotten = false;
    if (forget && !user.empty())
        if (ICredentialManager* store = GetCredentialManager())
            forgotten = store->remove(kCredentialTarget) == kResultOk;
    if (json)
    {
        Attributes document;
        document.set("signedOut", true);
        document.set("forgotten", forgotten);
        printJson(document);
    }
    else if (forget)
        std::fprintf(stdout, forgotten ? "Signed out; the stored login of %s is removed\n" : "Signed out%s\n",
                     forgotten ? user.c_str() : "; no stored login");
    else
        std::fprintf(stdout, "Signed out\n");
    return kDone;
}

} // namespace Host
