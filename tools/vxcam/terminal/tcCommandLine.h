// The command line of a verb: what may stand there, declared once, parsed, and told to those who
// write it down.
#ifndef TCCOMMANDLINE_H
#define TCCOMMANDLINE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

// Where a value goes. What a number or a text holds before is told in the help.
using tpValue = std::variant<std::string*, int*, uint16_t*, uint64_t*, double*, std::optional<int>*,
                             std::optional<double>*, std::vector<std::string>*>;

// What has been declared, for more to be said about it. Copies mean the same option; it lives as
// long as the command line.
class tcOption
{
public:
    // What the parser does not know, of a whole command line.
    struct tsNotes {
        std::vector<std::function<void()>> checks;
        std::vector<std::string> offered;
    };

    tcOption(CLI::Option* option, std::shared_ptr<tsNotes> notes)
        : mpOption(option), mpNotes(std::move(notes))
    {}

    tcOption Required() const; // and so without an initial value
    tcOption Within(int least, int most) const;
    tcOption Within(double least, double most) const;
    tcOption OneOf(const std::vector<std::string>& words) const;
    // When all has been parsed, with what is given. Throws tcFailure when that cannot be.
    tcOption Checked(void (*check)(const std::string&)) const;
    // Words that a completion offers for it.
    tcOption Offers(const std::vector<std::string>& words) const;
    tcOption Excludes(const tcOption& other) const;
    tcOption Group(const char* title) const; // of the help

private:
    CLI::Option* mpOption;
    std::shared_ptr<tsNotes> mpNotes;
};

// An option as documents tell of it.
struct tsOptionText {
    std::vector<std::string> names; // with their dashes, the long one last
    std::string type;               // of its value; empty for a flag
    std::string initial;            // empty: none
    std::string meaning;
};

// The variables that are declared here outlive Parse.
//
// Threads: one. Owns: what is declared, together with its copies and actions.
class tcCommandLine
{
public:
    // `name` is how the program is called so far, "vxcam grab".
    explicit tcCommandLine(const std::string& name = "", const std::string& summary = "");

    // "-e,--exposure" or "--exposure", with a value of that type: "TIME".
    tcOption Option(const char* names, tpValue value, const char* type, const char* meaning);
    // An option without a value, which is then true.
    tcOption Flag(const char* names, bool* value, const char* meaning);
    // A value without an option before it, known by its place. A vector takes all that is left.
    tcOption Operand(const char* name, tpValue value, const char* meaning);
    // Words of another command, from the first one on that is neither option nor operand here.
    void Command(const char* name, std::vector<std::string>* words, const char* meaning);
    // A word with options of its own, which may be mixed with those declared here. One of the
    // actions must be given; `chosen` is called when it is this one.
    tcCommandLine Action(const char* name, const char* meaning, std::function<void()> chosen);
    // Behind the options in the help, and behind what was added before.
    void AddFooter(const std::string& text);

    // Takes the arguments behind the name. False when the help was asked for instead. Throws
    // tcFailure with eExitUsage.
    bool Parse(std::vector<std::string> arguments);
    std::string Help() const; // without a line end behind it
    // What was given for an option: "--output"; empty: nothing.
    std::string Given(const std::string& option) const;

    std::string Name() const;
    std::string Meaning() const;
    std::vector<tsOptionText> Options() const; // in the order of their declaration, --help first
    std::vector<tcCommandLine> Actions() const;
    bool HasOperand(const std::string& name) const;
    // What may stand for operands, those of actions too.
    const std::vector<std::string>& Offered() const { return mpNotes->offered; }

private:
    tcCommandLine(std::shared_ptr<CLI::App> app, std::shared_ptr<tcOption::tsNotes> notes)
        : mpApp(std::move(app)), mpNotes(std::move(notes))
    {}

    std::shared_ptr<CLI::App> mpApp;
    std::vector<std::string>* mpCommand = nullptr;
    std::shared_ptr<tcOption::tsNotes> mpNotes; // shared with actions
};

#endif
