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
