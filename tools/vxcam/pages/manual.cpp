#include "pages.h"

#include "document.h"
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

// Text of a document: what stands in back quotes is bold.
std::string Marked(const std::string& text)
{
    std::string marked;
    bool isBold = false;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('`', at), text.size());
        marked += Roff(text.substr(at, end - at));
        if (end < text.size()) marked += (isBold = !isBold) ? "\\fB" : "\\fR";
        at = end + 1;
    }
    return marked;
}

std::string MarkedEntry(const std::string& term, const std::string& text)
{
    return ".TP\n" + Marked(term) + "\n" + Marked(text) + "\n";
}

// What its table of that title says.
std::string Table(const std::string& section, const std::string& title)
{
    std::string text;
    for (const auto& [term, meaning] : RowsOf(section, title)) {
        text += MarkedEntry(term, meaning);
    }
    return text;
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

// What is said of the documents of --json: in the table of the options, under a heading of its own,
// or in a paragraph.
std::string JsonEntry(const std::string& document, const std::string& heading,
                      const std::string& term)
{
    const std::string section = SectionOf(document, heading);
    std::vector<std::string> texts;
    for (const char* title : {"option", "action"}) {
        for (const auto& [name, meaning] : RowsOf(section, title)) {
            const bool isTold = name == "`--json`" && meaning.find('`') != std::string::npos;
            if (isTold) texts.push_back(meaning + ".");
        }
    }
    if (section.find("\n### JSON\n") != std::string::npos) {
        for (const std::string& paragraph : ParagraphsOf(SectionOf(section, "### JSON"))) {
            texts.push_back(paragraph);
        }
    }
    for (const std::string& paragraph : ParagraphsOf(section)) {
        if (paragraph.rfind("With `--json`", 0) == 0) texts.push_back(paragraph);
    }
    return texts.empty() ? "" : MarkedEntry("`" + term + "`", Joined(texts));
}

std::string JsonSection(const std::string& document)
{
    std::string text = ".SH JSON\nWith " + Marked("`--json`") +
                       " a verb prints one document, or an object a line, on standard output.\n";
    for (const tsVerb& verb : Verbs()) {
        const std::string name = std::string("vxcam ") + verb.name;
        text += JsonEntry(document, "## " + name, name);
    }
    return text + JsonEntry(document, "## Properties", "vxcam get, vxcam set");
}

} // namespace

std::string ManualPage(const std::string& document)
{
    std::string text = ".TH VXCAM 1 \"\" \"vxcam " VXCAM_VERSION "\"\n"
                       ".ad l\n" // words like paths do not fit into every line
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
    text += ".SH FITS HEADER\nWhat stands in the files of vxcam grab:\n" +
            Table(SectionOf(document, "## vxcam grab"), "keyword");
    text += JsonSection(document);
    text += ".SH ENVIRONMENT\n" + Table(SectionOf(document, "## Environment"), "variable");
    text += ".SH FILES\n" + Table(SectionOf(document, "## Files"), "file");
    text += ".SH EXIT STATUS\n" + Table(SectionOf(document, "## Exit codes"), "code");
    return text + ".SH SEE ALSO\n.BR vxcamsim (1)\n";
}
