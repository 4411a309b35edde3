// sorvel: the reference host. Loads the plug-in as a workstation does and drives its gadget and
// publishing target from the command line.

#include "host/app/Commands.h"
#include "host/app/Complaint.h"
#include "host/app/JsonOutput.h"
#include "host/app/Version.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace Host;

namespace {

void addLoginOptions(CLI::App& command, LoginOptions& login)
{
    command.add_option("--user", login.user, "account user name (default: the stored login)");
    command.add_flag("--password-stdin", login.passwordFromStdin,
                     "read the password from the first line of standard input");
    command.add_flag("--remember", login.remember, "keep the login in the keyring after it succeeded");
}

/// Whether the command line names a command that prints JSON and gives it --json (before any
/// "--", after which every word is a file).
bool asksForJson(int argc, char** argv)
{
    static const std::set<std::string> kJsonCommands = {"publish", "check",   "products", "dashboard",
                                                        "signin",  "signout", "history"};
    bool command = false, json = false;
    for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i)
    {
        command = command || kJsonCommands.count(argv[i]) > 0;
        json = json || std::string(argv[i]) == "--json";
    }
    return command && json;
}

/// The metadata flags of `sorvel publish`: each once for all files, or once per file.
const std::pair<const char*, const char*> kFields[] = {
    {"title", "Media:Title"},       {"artist", "Media:Artist"},     {"genre", "Media:Genre"},
    {"year", "Media:Year"},         {"isrc", "Media:ISRC"},         {"ean", "Media:EAN"},
    {"comment", "Media:Comment"},   {"composer", "Media:Composer"}, {"arranger", "Media:Arranger"},
    {"songwriter", "Media:Songwriter"},
};

/// The metadata flags, into `values` by "Media:" key.
void addFieldOptions(CLI::App& command, std::map<std::string, std::vector<std::string>>& values)
{
    for (const auto& [flag, key] : kFields)
        command.add_option(std::string("--") + flag, values[key],
                           std::string(key).substr(6) + ": once for all files, or repeated once per file")
            ->allow_extra_args(false)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

/// The metadata values that were given.
std::map<std::string, std::vector<std::string>> givenFields(const std::map<std::string, std::vector<std::string>>& values)
{
    std::map<std::string, std::vector<std::string>> given;
    for (const auto& [key, list] : values)
        if (!list.empty())
            given[key] = list;
    return given;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"sorvel: publish rendered audio to a Sorvel store through the Sorvel plug-in.\n"
                 "Without a configured service it uses the embedded sandbox and its demo account."};
    app.require_subcommand(1);
    app.set_version_flag("--version", sorvelVersionLine());
    unsigned timeoutSeconds = 0;
    app.add_option("--timeout", timeoutSeconds,
                   "give up on a request of the service when nothing has moved for this many seconds (default 30)")
        ->check(CLI::Range(1u, 3600u));

    PublishOptions publishOptions;
    std::map<std::string, std::vector<std::string>> fieldValues;
    bool noProgress = false;
    CLI::App* publishCommand = app.add_subcommand("publish", "render audio files and upload them to a product");
    publishCommand->add_option("files", publishOptions.files, "audio files (anything libsndfile reads)")
        ->check(CLI::ExistingFile);
    CLI::Option* watchOption =
        publishCommand
            ->add_option("--watch", publishOptions.watchFolders,
                         "publish each audio file finished in this folder, until Ctrl-C or SIGTERM (repeatable; "
                         "then no files are named)")
            ->check(CLI::ExistingDirectory)
            ->allow_extra_args(false);
    publishCommand
        ->add_option("--settle", publishOptions.settleSeconds,
                     "with --watch: seconds without a newly finished file before the files go up as one batch "
                     "(default 2)")
        ->check(CLI::Range(0.0, 3600.0))
        ->needs(watchOption);
    publishCommand->add_option("--product", publishOptions.product,
                               "product to upload into; a new one when none has this name (default: the album)");
    publishCommand->add_flag("--new-product", publishOptions.newProduct,
                             "create a new product of that name, even when one exists or the products cannot be "
                             "listed");
    addLoginOptions(*publishCommand, publishOptions.login);
    publishCommand->add_flag("--json", publishOptions.json, "print the result as JSON");
    publishCommand->add_flag("--no-progress", noProgress, "no progress bars");
    publishCommand->add_option("--jobs", publishOptions.jobs, "files rendered at once (default: one per core)")
        ->check(CLI::Range(1u, 256u));
    publishCommand->add_flag("--force", publishOptions.force,
                             "send every file, also those unchanged since their last upload to the product");
    publishCommand->add_flag("--dry-run", publishOptions.dryRun,
                             "sign in, render and check, and print what would be sent; create and upload nothing");
    publishCommand->add_option("--retry", publishOptions.retries,
                               "publish again up to N times after a failure of the network or the service (default 0)")
        ->type_name("N")
        ->check(CLI::Range(0u, 100u));
    publishCommand->add_flag("--strict", publishOptions.strict,
                             "upload nothing when the pre-flight report has an error or a warning (exit 5)");
    addFieldOptions(*publishCommand, fieldValues);

    CheckOptions checkOptions;
    std::map<std::string, std::vector<std::string>> checkFieldValues;
    CLI::App* checkCommand = app.add_subcommand(
        "check", "render audio files and report their loudness, peaks, silence and catalogue codes (no sign-in)");
    checkCommand->add_option("files", checkOptions.files, "audio files (anything libsndfile reads)")
        ->required()
        ->check(CLI::ExistingFile);
    checkCommand->add_flag("--json", checkOptions.json, "print the report as JSON");
    checkCommand->add_flag("--strict", checkOptions.strict, "a warning fails the check too (exit 5)");
    checkCommand->add_option("--jobs", checkOptions.jobs, "files rendered at once (default: one per core)")
        ->check(CLI::Range(1u, 256u));
    addFieldOptions(*checkCommand, checkFieldValues);

    GadgetOptions gadgetOptions;
    bool noBrowser = false;
    CLI::App* gadgetCommand = app.add_subcommand(
        "gadget", "show the gadget in the browser, with these audio files in its track table");
    gadgetCommand->add_option("files", gadgetOptions.files, "audio files to render and hand to the gadget (not uploaded)")
        ->check(CLI::ExistingFile);
    gadgetCommand->add_option("--product", gadgetOptions.product, "product to suggest for the files (default: the album)");
    gadgetCommand->add_flag("--no-browser", noBrowser, "only print the page's address");
    gadgetCommand->add_flag("--force", gadgetOptions.force,
                            "keep every file in the table, also one unchanged on the product since its last upload");
    gadgetCommand->add_option("--jobs", gadgetOptions.jobs, "files rendered at once (default: one per core)")
        ->check(CLI::Range(1u, 256u));
    gadgetCommand->add_option("--watch", gadgetOptions.watchFolders,
                              "hand each audio file finished in this folder to the gadget while the page is open "
                              "(repeatable)")
        ->check(CLI::ExistingDirectory)
        ->allow_extra_args(false);
    std::map<std::string, std::vector<std::string>> gadgetFieldValues;
    addFieldOptions(*gadgetCommand, gadgetFieldValues);

    GadgetOptions addOptions;
    bool addNoBrowser = false;
    CLI::App* addCommand = app.add_subcommand(
        "add", "hand audio files to the gadget this user has open (with none open, open one with them)");
    addCommand->add_option("files", addOptions.files, "audio files to render and list in the gadget (not uploaded)")
        ->required()
        ->check(CLI::ExistingFile);
    addCommand->add_option("--product", addOptions.product, "product to suggest for the files (default: the page's)");
    addCommand->add_flag("--no-browser", addNoBrowser, "when a gadget is opened, only print the page's address");
    addCommand->add_option("--jobs", addOptions.jobs, "when a gadget is opened, files rendered at once")
        ->check(CLI::Range(1u, 256u));
    std::map<std::string, std::vector<std::string>> addFieldValues;
    addFieldOptions(*addCommand, addFieldValues);

    LoginOptions login;
    bool json = false;
    CLI::App* productsCommand = app.add_subcommand("products", "list the account's products");
    CLI::App* dashboardCommand = app.add_subcommand("dashboard", "show the account's fans, sales and promotions");
    CLI::App* signinCommand = app.add_subcommand("signin", "sign in (and with --remember keep the login)");
    for (CLI::App* command : {productsCommand, dashboardCommand, signinCommand})
    {
        addLoginOptions(*command, login);
        command->add_flag("--json", json, "print the result as JSON");
    }
    std::string historyProduct;
    CLI::App* historyCommand =
        app.add_subcommand("history", "list what was published, when and to which product (no sign-in)");
    historyCommand->add_option("--product", historyProduct, "only what was published to the product of this name");
    historyCommand->add_flag("--json", json, "print the result as JSON");
    bool forget = false;
    CLI::App* signoutCommand = app.add_subcommand("signout", "sign out");
    signoutCommand->add_flag("--forget", forget, "also remove the stored login from the keyring");
    signoutCommand->add_flag("--json", json, "print the result as JSON");

    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        // The help and the version go through stdout, whose write errors are kept (a stream
        // of its own would lose them in its flush).
        std::ostringstream shown;
        const int exitCode = app.exit(error, shown, std::cerr);
        std::fputs(shown.str().c_str(), stdout);
        if (exitCode == 0)
            return outputWritten() ? kDone : kServiceFailed; // --help or --version
        // A command asked for JSON gets its document also when its command line cannot be used.
        if (asksForJson(argc, argv))
        {
            const std::string reason = error.what();
            printFailureJson(kUsage, &reason);
        }
        return kUsage;
    }

    installInterruptHandler();
    // A reader of the output that goes away (`| head`) must not end a publish under way; the
    // write errors it causes are told apart by outputWritten().
    std::signal(SIGPIPE, SIG_IGN);
    Runtime::setStallTimeout(timeoutSeconds);
    const auto run = [&]() -> int {
        if (*publishCommand)
        {
            publishOptions.progress = !noProgress;
            publishOptions.fields = givenFields(fieldValues);
            if (publishOptions.watchFolders.empty() == publishOptions.files.empty())
            {
                complain(publishOptions.files.empty() ? "publish needs audio files, or --watch and a folder"
                                                      : "publish takes audio files or --watch, not both");
                return kUsage;
            }
            return publishOptions.watchFolders.empty() ? publish(publishOptions) : publishWatched(publishOptions);
        }
        if (*checkCommand)
        {
            checkOptions.fields = givenFields(checkFieldValues);
            return checkFiles(checkOptions);
        }
        if (*gadgetCommand)
        {
            gadgetOptions.openBrowser = !noBrowser;
            gadgetOptions.fields = givenFields(gadgetFieldValues);
            return showGadget(gadgetOptions);
        }
        if (*historyCommand)
            return showHistory(historyProduct, json);
        if (*addCommand)
        {
            addOptions.openBrowser = !addNoBrowser;
            addOptions.fields = givenFields(addFieldValues);
            return addToGadget(addOptions);
        }
        if (*productsCommand)
            return listProducts(login, json);
        if (*dashboardCommand)
            return showDashboard(login, json);
        if (*signinCommand)
            return signInOnly(login, json);
        return signOut(forget, json);
    };
    const int code = run();
    // With --json every outcome is one document on standard output, also when the command
    // ended before it could print its own.
    const bool wantsJson = (*publishCommand && publishOptions.json) || (*checkCommand && checkOptions.json) ||
                           (!*publishCommand && !*checkCommand && !*gadgetCommand && json);
    if (wantsJson && code != kDone && JsonOutput::printedCount() == 0)
        printFailureJson(code);
    if (!outputWritten() && code == kDone)
        return kServiceFailed;
    return exitCodeOf(code);
}
