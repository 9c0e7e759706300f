#include "pages.h"

#include "program.h"
#include "propertytext.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

// A text as it comes out of the formatter: no line starts a request, no dash becomes a hyphen.
std::string Roff(const std::string& text)
{
    std::string roff;
    for (char c : text) {
        if (c == '\\') {
            roff += "\\e";
        } else if (c == '-') {
            roff += "\\-";
        } else if ((c == '.' || c == '\'') && (roff.empty() || roff.back() == '\n')) {
            roff += std::string("\\&") + c;
        } else {
            roff += c;
        }
    }
    return roff;
}

// A term and what it means.
std::string Entry(const std::string& term, const std::string& text)
{
    return ".TP\n\\fB" + Roff(term) + "\\fR\n" + Roff(text) + "\n";
}

std::string Joined(const std::vector<std::string>& words, const char* separator = " ")
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

std::string Options(const tcCommandLine& line)
{
    std::string text;
    for (const tsOptionText& option : line.Options()) {
        text += Entry(Joined(option.names, ", ") + (option.type.empty() ? "" : " " + option.type),
                      option.meaning + (option.initial.empty() ? "" : " (" + option.initial + ")"));
    }
    return text;
}

std::string VerbSection(const tsVerb& verb)
{
    tcCommandLine line;
    const std::unique_ptr<tcVerb> run = verb.make();
    run->Declare(line);
    std::string text = ".SS vxcam " + std::string(verb.name) + "\n" + Roff(verb.summary) + ".\n";
    text += Options(line);
    for (const tcCommandLine& action : line.Actions()) {
        text += Entry(action.Name(), action.Meaning());
        text += ".RS\n" + Options(action) + ".RE\n";
    }
    return text + ".PP\n.EX\n" + Roff(verb.examples) + "\n.EE\n";
}

std::string PropertySection()
{
    std::string text = ".SH PROPERTIES\nWhat vxcam get reads and vxcam set changes. A TIME is a "
                       "number and ms, s, min or h; HEX is two digits a byte.\n";
    for (const vxcam::Property& property : vxcam::properties()) {
        std::string term = property.fullName();
        std::string meaning = property.help;
        const std::string range = vxcam::rangeText(property.shape);
        if (property.isWritable()) term += "=" + SyntaxText(property);
        if (property.isWritable() && !range.empty()) meaning += "; " + range;
        text += Entry(term, meaning + " (" + property.accessText() + ")");
    }
    return text;
}

// ---- bash ------------------------------------------------------------------------------------

void AddOptions(const tcCommandLine& line, std::vector<std::string>* words)
{
    for (const tsOptionText& option : line.Options()) {
        const std::string& word = option.names.back();
        if (std::find(words->begin(), words->end(), word) == words->end()) words->push_back(word);
    }
}

// The words that may follow a verb: options and actions.
std::string VerbCase(const tsVerb& verb)
{
    tcCommandLine line;
    const std::unique_ptr<tcVerb> run = verb.make();
    run->Declare(line);
    std::vector<std::string> options, words;
    AddOptions(line, &options);
    for (const tcCommandLine& action : line.Actions()) {
        words.push_back(action.Name());
        AddOptions(action, &options);
    }
    if (line.HasOperand("TARGET") && words.empty()) words.emplace_back("sim");
    return "    " + std::string(verb.name) + ") options='" + Joined(options) + "' words='" +
           Joined(words) + "' ;;\n";
}

// With a colon behind those that need a key.
std::string PropertyWords(bool settable)
{
    std::vector<std::string> words;
    for (const vxcam::Property& property : vxcam::properties()) {
        if (!(settable ? property.isWritable() : property.isReadable())) continue;
        words.push_back(property.name + std::string(property.key != nullptr ? ":" : "") +
                        (settable && property.key == nullptr ? "=" : ""));
    }
    return Joined(words);
}

// Words stay whole at colons and equal signs, however bash cuts them; what stands before the last
// cut is taken off the answers, since bash keeps it.
constexpr const char* gsFunction = R"(
    local line=${COMP_LINE:0:COMP_POINT} word verb mode i
    local -a before
    read -ra before <<<"$line"
    word=
    if [[ $line != *[[:space:]] && ${#before[@]} -gt 0 ]]; then
        word=${before[-1]}
        unset 'before[-1]'
    fi
    verb=${before[1]:-}
    mode=$verb
    for ((i = 2; i < ${#before[@]}; i++)); do
        [[ $verb == [gs]et && ${before[i]} == [gs]et ]] && mode=${before[i]}
    done
    local options='--help --version' words=$verbs
    case $verb in
)";

constexpr const char* gsFunctionEnd = R"(    '') ;;
    help) options= ;;
    *) return ;;
    esac
    if [[ $verb == [gs]et && ${#before[@]} -gt 2 ]]; then
        words="get set $gettable"
        [[ $mode == set ]] && words="get set $settable"
    fi
    [[ $word == -* ]] && words=$options
    COMPREPLY=($(compgen -W "$words" -- "$word"))
    if [[ ${#COMPREPLY[@]} == 0 && $word != -* ]]; then
        local file=${word##*@}
        [[ $word == *@* || $verb != [gs]et ]] && COMPREPLY=($(compgen -f -- "$file"))
        [[ $word == *@* ]] && COMPREPLY=("${COMPREPLY[@]/#/${word%@*}@}")
    fi
    [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[:=] ]] && compopt -o nospace 2>/dev/null
    local cut=${word%"${word##*[:=]}"}
    [[ -n $cut ]] && COMPREPLY=("${COMPREPLY[@]#"$cut"}")
    return 0
}
complete -F _vxcam vxcam
)";

} // namespace

std::string ManualPage()
{
    std::string text = ".TH VXCAM 1 \"\" \"vxcam " VXCAM_VERSION "\"\n"
                       ".SH NAME\nvxcam \\- drives cameras from the command line\n"
                       ".SH SYNOPSIS\n\\fBvxcam\\fR \\fIVERB\\fR [\\fIOPTIONS\\fR] "
                       "[\\fITARGET\\fR]\n"
                       ".SH DESCRIPTION\n";
    text += Roff("A TARGET is HOST:PORT, serial:NUMBER, or sim for a simulated camera that lives "
                 "as long as the command; sim is what is taken without one. vxcam --version "
                 "prints the version, vxcam VERB --help tells about a verb.") +
            "\n.SH VERBS\n";
    for (const tsVerb& verb : Verbs()) {
        text += VerbSection(verb);
    }
    text += PropertySection();
    text += ".SH EXIT STATUS\n";
    for (const auto& [code, meaning] : std::vector<std::pair<const char*, const char*>>{
             {"0", "done"},
             {"1", "usage: unknown verb or option, impossible value"},
             {"2", "no camera: it cannot be reached, does not answer or serves somebody else"},
             {"3", "time-out: the camera answered first and then fell silent"},
             {"4", "camera error: the camera reports one, or refuses a command"},
             {"5", "file error: a file exists already or cannot be written"},
             {"128 + N", "ended by signal N; 130 after Ctrl-C"}}) {
        text += Entry(code, meaning);
    }
    return text;
}

std::string BashCompletion()
{
    std::vector<std::string> verbs{"help"};
    std::string cases;
    for (const tsVerb& verb : Verbs()) {
        verbs.emplace_back(verb.name);
        cases += VerbCase(verb);
    }
    return "# Completion of vxcam for bash.\n_vxcam()\n{\n    local verbs='" + Joined(verbs) +
           "'\n    local gettable='" + PropertyWords(false) + "'\n    local settable='" +
           PropertyWords(true) + "'" + gsFunction + cases + gsFunctionEnd;
}
