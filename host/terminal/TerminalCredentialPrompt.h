#pragma once

#include "framework/security/CredentialUIPrompt.h"

#include <string>

namespace Host {

/// What the login prompt asks through: the terminal, or a script in tests.
class PromptIO
{
public:
    virtual ~PromptIO() = default;
    /// Shows a line of text.
    virtual void show(const std::string& text) = 0;
    /// Asks `question` and gives back one answer line, shown as typed or not. False at the end of
    /// input or when the user interrupted (Ctrl-C): the dialog is then cancelled.
    virtual bool ask(const std::string& question, bool echo, std::string& answer) = 0;
};

/// Asks on the process's terminal: questions and answers on the controlling terminal.
class TerminalIO : public PromptIO
{
public:
    void show(const std::string& text) override;
    bool ask(const std::string& question, bool echo, std::string& answer) override;
};

/// The framework's login prompt made real on a terminal: it runs the theme's view
/// "CredentialsUIPrompt" as a modal dialog, walking the view's controls in order. A text bound to
/// "description" is shown; each edit box asks for its parameter (a password box without echo; an
/// empty answer keeps a user name already there); a check box asks yes or no, its current state
/// being the default. Answering everything is OK; the end of input or Ctrl-C is Cancel. OK with an
/// empty user name is refused by the component, and the dialog starts over.
class TerminalCredentialPrompt : public KVX::Security::CredentialUIPrompt
{
public:
    static constexpr const char* kViewName = "CredentialsUIPrompt";

    /// Asks through `io` (which must outlive the prompt) with the view of the theme `themeName`.
    explicit TerminalCredentialPrompt(PromptIO& io, std::string themeName = "sorvel")
        : io_(io), themeName_(std::move(themeName))
    {
    }

    /// A user name to start the dialog with when the component holds none (the one given on the
    /// command line).
    void setSuggestedUserName(std::string userName) { suggestedUserName_ = std::move(userName); }

protected:
    bool hasDialogView() const override;
    KVX::int32 runDialog(KVX::Security::CredentialComponent& component, const KVX::String& title) override;

private:
    PromptIO& io_;
    std::string themeName_;
    std::string suggestedUserName_;
};

} // namespace Host
