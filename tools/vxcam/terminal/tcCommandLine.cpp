#include "tcCommandLine.h"

#include "failure.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

// Decimal, or hexadecimal behind 0x; the parser itself takes -1 for the largest number.
template <class Type>
std::string WhyNotWhole(const std::string& text)
{
    const bool isHex = text.rfind("0x", 0) == 0;
    const char* const end = text.data() + text.size();
    Type number = 0;
    const auto [rest, error] =
        std::from_chars(text.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    if (error == std::errc() && rest == end) return "";
    return "'" + text + "' is no whole number from 0 to " +
           std::to_string(std::numeric_limits<Type>::max());
}

CLI::Option* Declare(CLI::App& app, const char* names, const tpValue& value, const char* meaning)
{
    return std::visit(
        [&](auto* variable) {
            using Type = std::remove_pointer_t<decltype(variable)>;
            CLI::Option* const option = app.add_option(names, *variable, meaning);
            if constexpr (std::is_arithmetic_v<Type> || std::is_same_v<Type, std::string>) {
                option->capture_default_str();
            }
            if constexpr (std::is_unsigned_v<Type>) {
                option->check(CLI::Validator(WhyNotWhole<Type>, ""));
            }
            // The last one of an option that is repeated holds, unless they are collected; of
            // operands, one is enough.
            if (option->get_positional()) return option;
            if constexpr (std::is_same_v<Type, std::vector<std::string>>) {
                option->allow_extra_args(false);
            } else {
                option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
            }
            return option;
        },
        value);
}

tsOptionText Told(const CLI::Option& option)
{
    tsOptionText text;
    for (const std::string& name : option.get_snames()) {
        text.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        text.names.push_back("--" + name);
    }
    const std::string type = option.get_type_name();
    text.type = type.substr(0, type.find(':')); // behind it: what the value may be
    text.initial = option.get_default_str();
    text.meaning = option.get_description();
    return text;
}

// The actions, "list, get or dump"; empty where there are none.
std::string Actions(const CLI::App& app)
{
    const auto actions = app.get_subcommands([](const CLI::App*) { return true; });
    std::string text;
    for (size_t i = 0; i < actions.size(); ++i) {
        if (i > 0) text += i + 1 < actions.size() ? ", " : " or ";
        text += actions[i]->get_name();
    }
    return text;
}

// What is wrong with the words.
std::string Reason(const CLI::App& app, const CLI::ParseError& error)
{
    std::string text = error.what();
    const std::string name = text.substr(0, text.find(": "));
    const std::vector<std::string> rest = app.remaining(true);
    const std::string first = rest.empty() ? "" : rest.front();
    if (!first.empty() && first.front() == '-') return "unknown option '" + first + "'";
    if (text == "A subcommand is required") {
        return first.empty() ? "an action is missing: " + Actions(app)
                             : "'" + first + "' is none of " + Actions(app);
    }
    if (!first.empty()) return "'" + first + "' is one word too many";
    if (text.rfind(name + ": 1 required ", 0) == 0) return name + ": its value is missing";
    const size_t sign = text.find(" = ");
    if (name != "Could not convert" || sign == std::string::npos) return text;
    const size_t option = name.size() + 2;
    return text.substr(option, sign - option) + ": it does not take '" + text.substr(sign + 3) +
           "'";
}

} // namespace

tcOption tcOption::Required() const
{
    mpOption->required()->default_str("");
    return *this;
}

tcOption tcOption::Within(int least, int most) const
{
    mpOption->check(CLI::Range(least, most));
    return *this;
}

tcOption tcOption::Within(double least, double most) const
{
    mpOption->check(CLI::Range(least, most));
    return *this;
}

tcOption tcOption::OneOf(const std::vector<std::string>& words) const
{
    mpOption->check(CLI::IsMember(words));
    return *this;
}

tcOption tcOption::Checked(void (*check)(const std::string&)) const
{
    mpNotes->checks.push_back([option = mpOption, check] {
        if (option->count() > 0) check(option->as<std::string>());
    });
    return *this;
}

tcOption tcOption::Offers(const std::vector<std::string>& words) const
{
    mpNotes->offered.insert(mpNotes->offered.end(), words.begin(), words.end());
    return *this;
}

tcOption tcOption::Excludes(const tcOption& other) const
{
    mpOption->excludes(other.mpOption);
    return *this;
}

tcOption tcOption::Group(const char* title) const
{
    mpOption->group(title);
    return *this;
}

tcCommandLine::tcCommandLine(const std::string& name, const std::string& summary)
    : tcCommandLine(std::make_shared<CLI::App>(summary, name),
                    std::make_shared<tcOption::tsNotes>())
{}

tcOption tcCommandLine::Option(const char* names, tpValue value, const char* type,
                               const char* meaning)
{
    return {Declare(*mpApp, names, value, meaning)->type_name(type), mpNotes};
}

tcOption tcCommandLine::Flag(const char* names, bool* value, const char* meaning)
{
    return {mpApp->add_flag(names, *value, meaning), mpNotes};
}

tcOption tcCommandLine::Operand(const char* name, tpValue value, const char* meaning)
{
    return Option(name, value, "", meaning);
}

void tcCommandLine::Command(const char* name, std::vector<std::string>* words, const char* meaning)
{
    mpCommand = words;
    mpApp->prefix_command();
    mpApp->footer(std::string(name) + ": " + meaning + "\n\n" + mpApp->get_footer());
}

tcCommandLine tcCommandLine::Action(const char* name, const char* meaning,
                                    std::function<void()> chosen)
{
    mpApp->require_subcommand(1);
    CLI::App* const action = mpApp->add_subcommand(name, meaning);
    action->fallthrough();
    action->callback(std::move(chosen));
    return {std::shared_ptr<CLI::App>(mpApp, action), mpNotes};
}

void tcCommandLine::AddFooter(const std::string& text)
{
    mpApp->footer(mpApp->get_footer() + text);
}

bool tcCommandLine::Parse(std::vector<std::string> arguments)
{
    std::reverse(arguments.begin(), arguments.end());
    try {
        mpApp->parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        return false;
    } catch (const CLI::ParseError& error) {
        throw tcFailure(eExitUsage, Reason(*mpApp, error) + " (see " + Name() + " --help)");
    }
    for (const auto& check : mpNotes->checks) {
        check();
    }
    if (mpCommand != nullptr) *mpCommand = mpApp->remaining();
    return true;
}

std::string tcCommandLine::Given(const std::string& option) const
{
    const CLI::Option* const found = mpApp->get_option_no_throw(option);
    return found == nullptr || found->count() == 0 ? "" : found->results().back();
}

std::string tcCommandLine::Help() const
{
    std::string help = mpApp->help();
    while (!help.empty() && help.back() == '\n') {
        help.pop_back();
    }
    return help;
}

std::string tcCommandLine::Name() const
{
    return mpApp->get_name();
}

std::string tcCommandLine::Meaning() const
{
    return mpApp->get_description();
}

std::vector<tsOptionText> tcCommandLine::Options() const
{
    std::vector<tsOptionText> options;
    for (const CLI::Option* option : std::as_const(*mpApp).get_options()) {
        if (!option->get_lnames().empty()) options.push_back(Told(*option));
    }
    return options;
}

std::vector<tcCommandLine> tcCommandLine::Actions() const
{
    std::vector<tcCommandLine> actions;
    for (CLI::App* action : mpApp->get_subcommands(nullptr)) {
        actions.push_back({std::shared_ptr<CLI::App>(mpApp, action), mpNotes});
    }
    return actions;
}

bool tcCommandLine::HasOperand(const std::string& name) const
{
    return mpApp->get_option_no_throw(name) != nullptr;
}
