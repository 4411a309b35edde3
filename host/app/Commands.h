#pragma once

#include "host/app/Runtime.h"
#include "host/app/SourceFile.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Host {

class PublishLedger;

/// `sorvel publish`: what to publish and how to report it.
struct PublishOptions
{
    std::vector<std::string> files;
    std::string product;     ///< the product to upload into (existing or new); empty: the files' album
    bool newProduct = false; ///< create a new product of that name, whether or not one exists
    LoginOptions login;
    bool json = false;       ///< one JSON document on standard output instead of text
    bool progress = true;    ///< progress bars (lines when standard error is no terminal)
    unsigned jobs = 0;       ///< files rendered at once; 0: one per core
    bool strict = false;     ///< refuse to upload when the pre-flight report has an error or a warning
    bool force = false;      ///< send every file, also those the ledger finds unchanged
    bool dryRun = false;     ///< print the plan; create and upload nothing
    unsigned retries = 0;    ///< publish again this often after a failure of the network or the service
    /// Metadata given on the command line by "Media:" key: one value for every file, or one per
    /// file in the order of the files.
    std::map<std::string, std::vector<std::string>> fields;
    /// Hot folders: each audio file finished in them is published, files finished close together
    /// as one batch; no files are named then.
    std::vector<std::string> watchFolders;
    double settleSeconds = 2.0; ///< the quiet time after the last finished file that ends a batch
};

/// `sorvel check`: the pre-flight report of files, without signing in or uploading.
struct CheckOptions
{
    std::vector<std::string> files;
    std::map<std::string, std::vector<std::string>> fields;
    bool json = false;
    bool strict = false; ///< a warning fails the check too
    unsigned jobs = 0;
};

/// Renders the files as the publishing target asks, measures them, checks their codes and
/// prints the report; kDone, or kPreflightFailed when it found an error (or a warning, strict).
int checkFiles(const CheckOptions& options);

/// Renders the files to the format the publishing target asks for, hands them to it, shows the
/// track table, uploads with progress per row and reports how it ended.
int publish(const PublishOptions& options);

/// How a batch of the hot folder begins.
struct BatchStart
{
    double signInSeconds = 0;       ///< what the report gives for the sign-in (the first batch's)
    bool listProductsAgain = false; ///< read the account's products before the batch
};

/// Publishes one batch of opened files with a started and signed-in `runtime`, as publish does
/// after its sign-in: claims the product in `ledger` for the batch (waiting for another run that
/// holds it), reads the products again when `start` asks, sends what the ledger does not find
/// unchanged and records each confirmed upload. The exit code of the batch; kServiceFailed also
/// when another run still held the product. With kUsage, `unusable` names the file that could not
/// be rendered or read when one did that.
int publishBatch(const PublishOptions& options, Runtime& runtime, PublishLedger& ledger,
                 const std::vector<SourceFile>& sources, const BatchStart& start, std::filesystem::path& unusable);

/// `sorvel publish --watch`: signs in once, then publishes what is finished in the watched
/// folders batch after batch until Ctrl-C (the running batch is cancelled, kInterrupted) or
/// SIGTERM (the running batch finishes, kDone). kUsage when a folder cannot be watched (or is
/// no longer), after saying why.
int publishWatched(const PublishOptions& options);

/// `sorvel gadget`: what to show first and where.
struct GadgetOptions
{
    std::vector<std::string> files; ///< rendered and handed to the publishing target, not uploaded
    std::string product;
    std::map<std::string, std::vector<std::string>> fields;
    bool openBrowser = true; ///< else only the address is printed
    unsigned jobs = 0;       ///< files rendered at once; 0: one per core
    /// Folders whose finished audio files are handed to the gadget while the page is open.
    std::vector<std::string> watchFolders;
    bool force = false; ///< list every file, also those the ledger finds unchanged on the product
};

/// Serves the gadget's forms as a page in the user's browser until interrupted (kDone), or until
/// a watched folder can no longer be watched (kUsage, after saying why).
int showGadget(const GadgetOptions& options);

/// Checks metadata values of the command line that the service cannot take (a year that is not
/// one from 1 to 9999) and, when given, a product name that is blank. kDone, or kUsage after
/// saying which flag.
int checkFieldValues(const std::map<std::string, std::vector<std::string>>& fields, const std::string* product);

/// A command's JSON document when it ended before it could print its own: "result" names the
/// exit code, "error" is the reason it gave (the last complaint, unless `reason` is given).
void printFailureJson(int code, const std::string* reason = nullptr);

/// `sorvel add`: hands the files to the gadget this user has open, through its socket; with none
/// open, opens one as showGadget does. kDone, kUsage when the gadget took nothing (it says why),
/// kServiceFailed when it could not be reached.
int addToGadget(const GadgetOptions& options);

/// The files named on the command line, opened; kDone, or kUsage after saying why.
int openSourceFiles(const std::vector<std::string>& files, const std::map<std::string, std::vector<std::string>>& fields,
                    std::vector<SourceFile>& sources);

/// `sorvel products`: the account's products.
int listProducts(const LoginOptions& login, bool json);
/// `sorvel dashboard`: the account's figures as the dashboard shows them.
int showDashboard(const LoginOptions& login, bool json);
/// `sorvel signin`: signs in once, storing the login with `remember`.
int signInOnly(const LoginOptions& login, bool json);
/// `sorvel signout`: signs out; with `forget` the stored login is removed from the keyring.
int signOut(bool forget, bool json);
/// `sorvel history`: what was published, when and to which product, newest first, as the publish
/// ledger recorded it; only into products named `product` when it is not empty. Needs no sign-in
/// and creates no ledger. kDone, or kConfiguration after saying why the ledger cannot be read.
int showHistory(const std::string& product, bool json);

} // namespace Host
