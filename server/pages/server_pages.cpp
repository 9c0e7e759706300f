#include "pages/server_pages.h"

#include "server_options.h"

#include <vxcamkit/error.h>

#include <array>
#include <set>

namespace vxcam {

namespace {

struct Words {
    const char* head;
    const char* text;
};

constexpr const char* kAbout =
    "A camera serves one client. Through the server many watch it, and one controls it: people by "
    "a page in the browser, scripts by REST, astronomy programs by Alpaca, operators by metrics. A "
    "camera that is not there yet is opened when it answers. SIGTERM and SIGINT end the server.";

constexpr std::array<Words, 3> kFiles{
    {{"/", "the page; /?camera=1 for another camera than the first"},
     {"/api/v1/openapi.json", "all that scripts may ask for"},
     {"/metrics, /healthz", "for operators"}}};

constexpr std::array<Words, 3> kVariables{
    {{"CREDENTIALS_DIRECTORY", "where the service manager leaves what only this service may read: "
                               "a token file there may be readable by a group"},
     {"DISPLAY, WAYLAND_DISPLAY", "the desktop in whose browser --open opens the page"},
     {"TCLOG_SUPPRESS_ERR_CONSOLE", "set, it keeps the library's own log away also with "
                                    "--verbose"}}};

// A formatter prints dashes, dots and backslashes as they are.
std::string escaped(const std::string& text)
{
    std::string result;
    for (const char letter : text) {
        if (letter == '\\') {
            result += "\\e";
        } else {
            result.append(letter == '-' ? "\\-" : std::string(1, letter));
        }
    }
    const bool isRequest = !result.empty() && (result[0] == '.' || result[0] == '\'');
    return isRequest ? "\\&" + result : result;
}

std::string entry(const std::string& head, const std::string& text)
{
    return ".TP\n\\fB" + escaped(head) + "\\fR\n" + escaped(text) + "\n";
}

std::string optionEntries()
{
    std::string text;
    for (const OptionFacts& option : optionFacts()) {
        const std::string kind = option.kind.empty() ? "" : " " + option.kind;
        const std::string usual = option.usual.empty() ? "" : " (" + option.usual + ")";
        text += entry(option.names + kind, option.help + usual);
    }
    return text;
}

std::string exitEntries()
{
    const auto code = [](ErrorKind kind) { return std::to_string(rowOf(kind).exitCode); };
    return entry("0", "it was told to end") +
           entry(code(ErrorKind::Usage),
                 "an option or a target that cannot be, or a second signal ended it at once") +
           entry(code(ErrorKind::File),
                 "a file cannot be read, or there are no threads or no memory");
}

template <class List>
std::string entries(const List& list)
{
    std::string text;
    for (const Words& words : list) {
        text += entry(words.head, words.text);
    }
    return text;
}

} // namespace

std::string serverManual()
{
    return ".TH VXCAMD 1 \"\" \"vxcamd " VXCAM_VERSION "\"\n.SH NAME\nvxcamd \\- shares cameras\n"
           ".SH SYNOPSIS\n.B vxcamd\n[\\fIOPTIONS\\fR] \\fITARGET\\fR...\n.SH DESCRIPTION\n" +
           escaped(kAbout) + "\n.SH OPTIONS\n" + optionEntries() + ".SH PATHS\n" + entries(kFiles) +
           ".SH ENVIRONMENT\n" + entries(kVariables) + ".SH EXIT STATUS\n" + exitEntries() +
           ".SH EXAMPLES\n.nf\n" + escaped(kServerExamples) +
           ".fi\n.SH SEE ALSO\n.BR vxcam (1),\n.BR vxcamsim (1)\n";
}

std::string serverCompletion()
{
    std::string options;
    for (const OptionFacts& option : optionFacts()) {
        const size_t dashes = option.names.rfind("--");
        if (dashes != std::string::npos) options += " " + option.names.substr(dashes);
    }
    return "# Completion for vxcamd.\n_vxcamd()\n{\n    local word=$2 before=$3\n    COMPREPLY=()\n"
           "    case $before in\n"
           "    --plans) COMPREPLY=($(compgen -d -- \"$word\")) ;;\n"
           "    --token-file | --tls) COMPREPLY=($(compgen -f -- \"$word\")) ;;\n"
           "    --at-end) COMPREPLY=($(compgen -W 'abort finish' -- \"$word\")) ;;\n"
           "    *) COMPREPLY=($(compgen -W 'sim" +
           options + "' -- \"$word\")) ;;\n    esac\n}\ncomplete -o filenames -F _vxcamd vxcamd\n";
}

} // namespace vxcam
