#include "host/terminal/TerminalCredentialPrompt.h"

#include "framework/component/Parameter.h"
#include "framework/services/GuiServices.h"
#include "host/terminal/PasswordInput.h"

#include <vector>

namespace Host {

using namespace KVX;
using Security::CredentialComponent;

namespace {

/// One control of the view that the dialog shows or asks for, in the view's order.
struct Control
{
    enum Kind
    {
        kText,
        kEdit,
        kSecret,
        kCheck,
    };
    Kind kind;
    std::string name;  // the parameter it binds to
    std::string label; // what the user reads before it
};

std::string attributeOf(IThemeElement& element, const char* name)
{
    const char* value = element.getAttribute(name);
    return value ? value : "";
}

/// The view's controls in document order; `label` carries the last label's title to the control
/// after it.
void collect(IThemeElement& element, std::vector<Control>& controls, std::string& label)
{
    const std::string type = element.getType();
    BindingRecord binding{};
    const bool bound = element.getBinding(binding) == kResultOk && binding.kind == BindingRecord::kParameter;
    if (type == "Label")
        label = attributeOf(element, "title");
    else if (bound && type == "Text")
        controls.push_back({Control::kText, binding.name, {}});
    else if (bound && type == "EditBox")
    {
        const bool secret = attributeOf(element, "options").find("password") != std::string::npos;
        controls.push_back({secret ? Control::kSecret : Control::kEdit, binding.name, label.empty() ? binding.name : label});
        label.clear();
    }
    else if (bound && type == "CheckBox")
        controls.push_back({Control::kCheck, binding.name, attributeOf(element, "title")});
    for (uint32 i = 0; i < element.countChildren(); ++i)
        if (IThemeElement* child = element.getChild(i))
            collect(*child, controls, label);
}

bool isYes(const std::string& answer)
{
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
}

bool isNo(const std::string& answer)
{
    return answer == "n" || answer == "N" || answer == "no" || answer == "No" || answer == "NO";
}

} // namespace

void TerminalIO::show(const std::string& text)
{
    writeToTerminal(text + "\n");
}

bool TerminalIO::ask(const std::string& question, bool echo, std::string& answer)
{
    return echo ? promptLine(question, answer) : promptWithoutEcho(question, answer);
}

bool TerminalCredentialPrompt::hasDialogView() const
{
    ITheme* theme = GetThemeManager()->getTheme(themeName_.c_str());
    return theme && theme->getForm(kViewName);
}

int32 TerminalCredentialPrompt::runDialog(CredentialComponent& component, const String& title)
{
    ITheme* theme = GetThemeManager()->getTheme(themeName_.c_str());
    IThemeElement* view = theme ? theme->getForm(kViewName) : nullptr;
    if (!view)
        return IDialogButtonInterest::kCancel;
    std::vector<Control> controls;
    std::string label;
    collect(*view, controls, label);

    if (Parameter* userName = component.findParameter(CredentialComponent::kUserName);
        userName && userName->stringValue().isEmpty() && !suggestedUserName_.empty())
        userName->setValue(String(suggestedUserName_), true);

    const std::string heading = !title.isEmpty() ? title.toUtf8() : attributeOf(*view, "title");
    if (!heading.empty())
        io_.show(heading);
    for (;;)
    {
        for (const Control& control : controls)
        {
            Parameter* parameter = component.findParameter(control.name);
            if (!parameter)
                continue;
            std::string answer;
            switch (control.kind)
            {
            case Control::kText:
                if (const std::string text = parameter->stringValue().toUtf8(); !text.empty())
                    io_.show(text);
                break;
            case Control::kEdit: {
                const std::string current = parameter->stringValue().toUtf8();
                if (!io_.ask(control.label + (current.empty() ? "" : " [" + current + "]") + ": ", true, answer))
                    return IDialogButtonInterest::kCancel;
                if (!answer.empty() || current.empty())
                    parameter->setValue(String(answer), true);
                break;
            }
            case Control::kSecret:
                if (!io_.ask(control.label + ": ", false, answer))
                    return IDialogButtonInterest::kCancel;
                parameter->setValue(String(answer), true);
                break;
            case Control::kCheck: {
                const bool ticked = parameter->intValue() != 0;
                for (;;)
                {
                    if (!io_.ask(control.label + (ticked ? " [Y/n]: " : " [y/N]: "), true, answer))
                        return IDialogButtonInterest::kCancel;
                    if (answer.empty() || isYes(answer) || isNo(answer))
                        break;
                    io_.show("Please answer y or n.");
                }
                parameter->setValue(answer.empty() ? int64(ticked) : int64(isYes(answer)), true);
                break;
            }
            }
        }
        // The dialog's OK: the component may keep the dialog open (no user name yet).
        if (!component.onDialogButtonHit(IDialogButtonInterest::kOkay))
            return IDialogButtonInterest::kOkay;
        io_.show("A user name is needed.");
    }
}

} // namespace Host
