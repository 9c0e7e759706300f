#include "simpages.h"

#include "faultkinds.h"
#include "simoptions.h"

#include <CLI/CLI.hpp>

#include <utility>
#include <vector>

namespace {

constexpr std::pair<const char*, const char*> gaExits[] = {
    {"0", "ended by SIGINT, SIGTERM or --once"},
    {"1", "an unknown option or an impossible value"},
    {"2", "the address or port cannot be had"},
    {"3", "standard output takes nothing any more: its reader has gone, or the disk is full"}};

constexpr std::pair<const char*, const char*> gaVariables[] = {
    {"DBGITEM_BIND, DBGD_BIND", "where the services of --item-port and --debug-port listen; "
                                "without them, where the camera does"},
    {"DBGITEM_ALLOW, DBGD_ALLOW", "who may connect to them"}};

// As the formatter prints it: dashes stay dashes, backslashes backslashes.
std::string Plain(const std::string& text)
{
    std::string plain;
    for (char letter : text) {
        if (letter == '-' || letter == '\\') plain += '\\';
        plain += letter == '\\' ? 'e' : letter;
    }
    return plain;
}

std::string Item(const std::string& head, const std::string& text)
{
    return ".TP\n.B " + Plain(head) + "\n" + Plain(text) + "\n";
}

template <class Pairs>
std::string Items(const Pairs& pairs)
{
    std::string text;
    for (const auto& [head, meaning] : pairs) {
        text += Item(head, meaning);
    }
    return text;
}

std::string FaultItems()
{
    std::string text;
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        const tsSimKind& kind = KindOf(static_cast<teSimFault>(i));
        std::string head = kind.name, separator = ":";
        for (const tsSimArgument& argument : kind.arguments) {
            if (!argument.name) continue;
            head += std::exchange(separator, ",") + argument.name + "=";
        }
        text += Item(head, kind.effect);
    }
    return text;
}

struct tsOption {
    std::string names, type, meaning, initial;
};

std::vector<tsOption> Options()
{
    CLI::App app{gsSimSummary, "vxcamsim"};
    tsProgram program;
    Declare(app, program);
    std::vector<tsOption> options;
    for (const CLI::Option* option : app.get_options()) {
        options.push_back({option->get_name(false, true),
                           option->get_type_size() > 0 ? option->get_type_name() : "",
                           option->get_description(), option->get_default_str()});
    }
    return options;
}

std::string Words(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// Words stay whole at colons, however bash cuts them.
constexpr const char* gsCompletion = R"(
    local line=${COMP_LINE:0:COMP_POINT} word before
    word=${line##*[[:space:]]}
    before=${line%"$word"}
    before=${before%"${before##*[![:space:]]}"}
    case ${before##*[[:space:]]} in
    --fault) COMPREPLY=($(compgen -W "$kinds" -- "$word")) ;;
    --scenario) COMPREPLY=($(compgen -f -- "$word")) ;;
    *) [[ -z $word || $word == -* ]] && COMPREPLY=($(compgen -W "$options" -- "$word")) ;;
    esac
    return 0
}
complete -o filenames -F _vxcamsim vxcamsim
)";

} // namespace

std::string SimManualPage()
{
    std::string text = ".TH VXCAMSIM 1 \"\" \"vxcamsim " VXCAMSIM_VERSION "\"\n"
                       ".SH NAME\nvxcamsim \\- a simulated camera\n"
                       ".SH SYNOPSIS\n.B vxcamsim\n[\\fIOPTIONS\\fR]\n.SH DESCRIPTION\n";
    text +=
        Plain(gsSimSummary) +
        "\nThe first line that it prints tells the address; then it prints what happens, a line "
        "each, until it is ended.\n.SH OPTIONS\n";
    for (const tsOption& option : Options()) {
        text += Item(option.names + (option.type.empty() ? "" : " " + option.type),
                     option.meaning + (option.initial.empty() ? "" : " (" + option.initial + ")"));
    }
    text += ".SH FAULTS\nWhat \\fB" + Plain("--fault") +
            "\\fR takes: a kind, and behind a colon any of its numbers and of the places where it "
            "strikes (" +
            Plain(Words(SimFaultPlaces())) + "), each NAME=VALUE, with commas between them.\n" +
            FaultItems();
    text += ".SH ENVIRONMENT\n" + Items(gaVariables) + ".SH EXIT STATUS\n" + Items(gaExits);
    return text + ".SH SEE ALSO\n.BR vxcam (1)\n";
}

std::string SimCompletion()
{
    std::vector<std::string> options, kinds;
    for (const tsOption& option : Options()) {
        options.push_back(option.names.substr(option.names.rfind("--")));
    }
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        kinds.emplace_back(NameOf(static_cast<teSimFault>(i)));
    }
    return "# Completion for vxcamsim.\n_vxcamsim()\n{\n    COMPREPLY=()\n    local options='" +
           Words(options) + "'\n    local kinds='" + Words(kinds) + "'" + gsCompletion;
}
