// docs/properties.md is made from the table. With VX_WRITE_PAGES=1 in the environment, this test
// writes it instead of comparing it.
#include <vxcamkit/property.h>

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

using vxcam::Property;

namespace {

const std::string kHead =
    R"(# Properties

Every value of a camera that can be read or set. This page is made from the table in `kit/properties`, like everything else that
knows properties: `vxcam get` and `set`, their help, the manual page, and the names elsewhere. A value is written as `vxcam set`
takes it: a TIME is a number and `ms`, `s`, `min` or `h`; HEX is two digits a byte; what stands in brackets may be left out.

What they are:

- **setting**: stays as it was set. Made again after a reconnect, and part of a profile if it can be read.
- **action**: does something when it is set, or may do. Never made again by itself.
- **state**: changes by itself. Read anew for every snapshot.
- **derived**: follows from settings, or from what the camera is.
- **identity**: what only this one camera is. Never made again, nor copied to another camera.

Reading one costs nothing (told already), a question, or many questions.
)";

const std::string kNamesHead = R"(
## Names elsewhere

A name follows from the property's own, unless there is a customary one. Alpaca knows only its own names.

| property | Python | Tango | INDI | FITS | Alpaca |
|---|---|---|---|---|---|
)";

std::string code(std::string text)
{
    for (size_t at = 0; (at = text.find('|', at)) != std::string::npos; at += 2) {
        text.insert(at, "\\");
    }
    return text.empty() ? "" : "`" + text + "`";
}

std::string title(std::string text)
{
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text == "Cis" ? "CIS sensors" : text;
}

const char* costText(vxcam::Cost cost)
{
    switch (cost) {
    case vxcam::Cost::None:
        return "nothing";
    case vxcam::Cost::Answer:
        return "a question";
    case vxcam::Cost::Many:
        break;
    }
    return "many";
}

std::string row(const Property& property)
{
    const std::string range = vxcam::rangeText(property.shape);
    return "| " + code(property.fullName()) + " | " + code(vxcam::syntaxText(property.shape)) +
           " | " + range + " | " + property.help + " | " + property.accessText() + " | " +
           nameOf(property.nature) + " | " +
           (property.isReadable() ? costText(property.cost) : "") + " |\n";
}

std::string namesRow(const Property& property)
{
    const std::string alias = property.names.tangoAlias;
    const std::string tango =
        code(property.tangoName()) + (alias.empty() ? "" : ", " + code(alias));
    return "| " + code(property.fullName()) + " | " + code(property.pythonName()) + " | " + tango +
           " | " + code(property.indiName()) + " | " + code(property.fitsName()) + " | " +
           code(property.alpacaName()) + " |\n";
}

std::string page()
{
    std::string text = kHead, group, names = kNamesHead;
    for (const Property& property : vxcam::properties()) {
        if (group != nameOf(property.group)) {
            group = nameOf(property.group);
            text +=
                "\n## " + title(group) +
                "\n\n| property | value | range | meaning | access | what it is | reading costs |\n"
                "|---|---|---|---|---|---|---|\n";
        }
        text += row(property);
        names += namesRow(property);
    }
    return text + names;
}

} // namespace

TEST(PropertiesPage, IsMadeFromTheTable)
{
    if (std::getenv("VX_WRITE_PAGES") != nullptr) std::ofstream(VX_PROPERTIES_PAGE) << page();
    std::ostringstream text;
    text << std::ifstream(VX_PROPERTIES_PAGE).rdbuf();
    EXPECT_EQ(text.str(), page()) << "VX_WRITE_PAGES=1 makes it anew";
}
