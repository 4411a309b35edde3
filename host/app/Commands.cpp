#include "host/app/Commands.h"
#include "host/app/Complaint.h"

#include "host/app/JsonOutput.h"

#include "framework/services/ICredentialManager.h"
#include "framework/services/SecurityServices.h"
#include "host/ledger/PublishLedger.h"
#include "host/terminal/TextWidth.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace Host {

using namespace KVX;

namespace {

/// Starts the host and signs in; kDone or the exit code.
int startSignedIn(Runtime& runtime, const LoginOptions& login)
{
    if (int code = runtime.start(); code != kDone)
        return code;
    return runtime.signIn(login);
}

/// A figure of the dashboard as a number: its digits without the grouping the dashboard shows
/// ("1,234" is 1234); the text as it is shown when it holds anything else ("12k+", "$ 57.50") or
/// no digit at all.
JsonOutput::Value figure(JsonOutput& json, const std::string& text)
{
    std::string digits;
    for (char letter : text)
        if (std::isdigit(static_cast<unsigned char>(letter)) || letter == '.' || letter == '-')
            digits += letter;
        else if (letter != ',' && letter != ' ' && letter != '\'')
            return json.text(text); // a currency or a word: the text as it is shown
    if (digits.find_first_of("0123456789") == std::string::npos)
        return json.text(text); // no figure at all ("-" for none): not a zero
    if (digits.find('.') == std::string::npos)
        return JsonOutput::Value(static_cast<int64_t>(std::strtoll(digits.c_str(), nullptr, 10)));
    return JsonOutput::Value(std::strtod(digits.c_str(), nullptr));
}

} // namespace

void printFailureJson(int code, const std::string* reason)
{
    const char* result = "failed";
    switch (code)
    {
    case kUsage:
        result = "usage";
        break;
    case kSignInRefused:
        result = "sign_in_refused";
        break;
    case kConfiguration:
        result = "configuration";
        break;
    case kPreflightFailed:
        result = "preflight_failed";
        break;
    case kInterrupted:
        result = "interrupted";
        break;
    default:
        break;
    }
    JsonOutput output;
    output.set("result", result);
    std::string error = reason ? *reason : lastComplaint();
    if (error.empty() && code == kInterrupted)
        error = interruptReason();
    output.set("exit_code", exitCodeOf(code));
    output.set("error", error);
    output.print();
}

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
        JsonOutput output;
        JsonOutput::Value list = output.array();
        for (const std::string& name : products)
        {
            JsonOutput::Value product = output.object();
            output.set(product, "name", name);
            output.append(list, std::move(product));
        }
        output.set("products", std::move(list));
        output.print();
    }
    else if (products.empty())
        std::fprintf(stdout, "No products yet.\n");
    else
        for (const std::string& name : products)
            std::fprintf(stdout, "%s\n", printable(name).c_str());
    return kDone;
}

int showDashboard(const LoginOptions& login, bool json)
{
    Runtime runtime;
    if (int code = startSignedIn(runtime, login); code != kDone)
        return code;
    // Without the account's figures the dashboard would show nothing, or empty values, as if
    // they were the account's.
    if (!runtime.answers().figuresAnswered())
    {
        std::string reason = Runtime::takeServiceFailure();
        for (const ServiceAnswers::Refusal& refusal : runtime.answers().takeRefusals())
            reason = ServiceAnswers::describe(refusal);
        complain("the account's figures could not be read (%s). Try again in a moment.",
                 reason.empty() ? "the service's answer held none" : reason.c_str());
        return kServiceFailed;
    }
    const Gadget& gadget = runtime.gadget();
    // The dashboard's texts, as its component formats them; the figures as numbers in JSON.
    struct Field
    {
        const char* parameter;
        const char* key;
        const char* label;
        bool number;
    };
    const Field fields[] = {
        {"userName", "account", "Account", false},
        {"totalFans", "fans", "Fans", true},
        {"totalSales", "sales", "Sales", true},
        {"activePromotions", "active_promotions", "Active promotions", true},
        {"userMessage", "message", "Message", false},
        {"actionText", "action", "Action", false},
        {"actionLink", "action_link", "Link", false},
    };
    JsonOutput output;
    for (const Field& field : fields)
    {
        const std::string value = gadget.text(std::string("ActivityInfo.") + field.parameter);
        if (json)
            output.set(field.key, field.number ? figure(output, value) : output.text(value));
        else if (!value.empty())
            std::fprintf(stdout, "%-18s %s\n", (std::string(field.label) + ":").c_str(), printable(value).c_str());
    }
    if (json)
        output.print();
    return kDone;
}

int signInOnly(const LoginOptions& login, bool json)
{
    Runtime runtime;
    int code = startSignedIn(runtime, login);
    if (code != kDone)
        return code;
    const std::string user = runtime.gadget().text("Credentials.username");
    const bool remembered = login.remember && !runtime.rememberFailed();
    if (login.remember && !remembered)
        code = kConfiguration;
    if (json)
    {
        JsonOutput output;
        output.set("result", code == kDone ? "signed_in" : "not_remembered");
        output.set("exit_code", exitCodeOf(code));
        output.set("user", user);
        output.set("remembered", remembered);
        if (code != kDone)
            output.set("error", lastComplaint());
        output.print();
    }
    else
        std::fprintf(stdout, "Signed in as %s%s\n", user.c_str(),
                     remembered ? "; the login is kept in the keyring" : "");
    return code;
}

int signOut(bool forget, bool json)
{
    // Every command signs in for itself, so no session outlives the command that made it: what
    // signing out changes is the login kept in the keyring, which needs no service. Nothing is
    // sent, and the stored login is removed also when the service cannot be reached.
    Runtime runtime;
    if (int code = runtime.startOffline(); code != kDone)
        return code;
    const std::string user = Runtime::storedUser();
    bool forgotten = false;
    int code = kDone;
    if (forget)
    {
        ICredentialManager* store = GetCredentialManager();
        if (store && store->remove(Runtime::kCredentialTarget) == kResultOk)
            forgotten = !user.empty();
        else
        {
            complain("the stored login could not be removed from the keyring (is a Secret Service running and "
                     "unlocked?)");
            code = kConfiguration;
        }
    }
    if (json)
    {
        JsonOutput output;
        output.set("result", "signed_out");
        output.set("exit_code", exitCodeOf(code));
        output.set("forgotten", forgotten);
        if (code != kDone)
            output.set("error", lastComplaint());
        output.print();
    }
    else if (forget && forgotten)
        std::fprintf(stdout, "Signed out; the stored login of %s is removed\n", user.c_str());
    else if (forget && code == kDone)
        std::fprintf(stdout, "Signed out; no stored login\n");
    else
        std::fprintf(stdout, "Signed out\n");
    return code;
}

namespace {

/// `seconds` after 1970 as `format` (strftime), in local time or in UTC.
std::string timeText(int64 seconds, const char* format, bool utc)
{
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts = {};
    if (!(utc ? ::gmtime_r(&time, &parts) : ::localtime_r(&time, &parts)))
        return std::to_string(seconds);
    char text[64];
    return std::strftime(text, sizeof text, format, &parts) ? text : std::to_string(seconds);
}

} // namespace

int showHistory(const std::string& product, bool json)
{
    const std::filesystem::path file = PublishLedger::defaultFile();
    std::vector<PublishLedger::Record> records;
    std::error_code missing;
    // Nothing was published yet when there is no ledger; looking must not create one.
    if (std::filesystem::exists(file, missing))
    {
        std::string error;
        const std::unique_ptr<PublishLedger> ledger = PublishLedger::open(file, error);
        if (!ledger || !ledger->history(product, records, error))
        {
            complain("%s", error.c_str());
            return kConfiguration;
        }
    }
    if (json)
    {
        JsonOutput output;
        JsonOutput::Value uploads = output.array();
        for (const PublishLedger::Record& record : records)
        {
            JsonOutput::Value entry = output.object();
            output.set(entry, "published_at", timeText(record.publishedAt, "%Y-%m-%dT%H:%M:%SZ", true));
            output.set(entry, "published_unix", record.publishedAt);
            output.set(entry, "product_name", record.productName);
            output.set(entry, "product_id", record.productId);
            output.set(entry, "track_name", record.trackName);
            output.set(entry, "track_id", record.trackId);
            output.set(entry, "source", record.source);
            output.set(entry, "format", record.format);
            output.set(entry, "service", record.service);
            output.set(entry, "account", record.account);
            output.set(entry, "content_sha256", record.digests.content);
            output.set(entry, "metadata_sha256", record.digests.metadata);
            output.append(uploads, std::move(entry));
        }
        output.set("ledger", file.string());
        output.set("uploads", std::move(uploads));
        output.print();
        return kDone;
    }
    if (records.empty())
    {
        if (product.empty())
            std::fprintf(stdout, "Nothing published yet.\n");
        else
            std::fprintf(stdout, "Nothing published to \"%s\" yet.\n", product.c_str());
        return kDone;
    }
    // Columns are measured in what a terminal shows, as in the track table of `publish`.
    std::vector<std::string> times;
    size_t productWidth = 7, trackWidth = 5;
    for (const PublishLedger::Record& record : records)
    {
        times.push_back(timeText(record.publishedAt, "%Y-%m-%d %H:%M:%S", false));
        productWidth = std::max(productWidth, displayWidth(record.productName));
        trackWidth = std::max(trackWidth, displayWidth(record.trackName));
    }
    const size_t timeWidth = std::max<size_t>(9, displayWidth(times.front()));
    std::fprintf(stdout, "%s  %s  %s  %s\n", padToWidth("Published", timeWidth).c_str(),
                 padToWidth("Product", productWidth).c_str(), padToWidth("Track", trackWidth).c_str(), "File");
    for (size_t i = 0; i < records.size(); ++i)
        std::fprintf(stdout, "%s  %s  %s  %s\n", padToWidth(times[i], timeWidth).c_str(),
                     padToWidth(records[i].productName, productWidth).c_str(),
                     padToWidth(records[i].trackName, trackWidth).c_str(), printable(records[i].source).c_str());
    return kDone;
}

} // namespace Host
