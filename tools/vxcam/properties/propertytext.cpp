#include "propertytext.h"

#include "failure.h"

#include <vxcamkit/error.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

constexpr char gcFile = '@';
constexpr size_t gnNameWidth = 22;

vxcam::Value ReadWhole(const std::string& name, const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw tcFailure(eExitFile, name + ": " + path + ": " + std::strerror(errno));
    try {
        return std::vector<uint8_t>{std::istreambuf_iterator<char>(file), {}};
    } catch (const std::ios_base::failure& failure) { // a folder can be opened, but not read
        throw tcFailure(eExitFile, name + ": " + path + ": " + failure.what());
    }
}

} // namespace

bool TakesFile(const vxcam::Property& property)
{
    return property.field().kind == vxcam::FieldKind::Bytes;
}

std::string SyntaxText(const vxcam::Property& property)
{
    return vxcam::syntaxText(property.shape) + (TakesFile(property) ? "|@FILE" : "");
}

std::string PropertyHelp()
{
    std::string text;
    for (const vxcam::Property& property : vxcam::properties()) {
        const std::string name = property.fullName();
        const bool isWritable = property.isWritable();
        text +=
            "  " + name + std::string(gnNameWidth - std::min(gnNameWidth - 1, name.size()), ' ');
        if (isWritable) text += SyntaxText(property) + "\n" + std::string(gnNameWidth + 4, ' ');
        const std::string range = vxcam::rangeText(property.shape);
        text += property.help;
        if (!range.empty() && isWritable) text += "; " + range;
        if (!isWritable || !property.isReadable()) {
            text += std::string(" (") + property.accessText() + ")";
        }
        text += "\n";
    }
    return text;
}

vxcam::Value ParseValue(const vxcam::PropertyName& named, const std::string& text)
{
    const vxcam::Property& property = *named.property;
    if (!TakesFile(property)) return vxcam::parsedText(named.text, property.shape, text);
    const bool isFile = !text.empty() && text[0] == gcFile;
    if (isFile) {
        return vxcam::fitted(named.text, property.shape, ReadWhole(named.text, text.substr(1)));
    }
    try {
        return vxcam::parsedText(named.text, property.shape, text);
    } catch (const vxcam::Error& error) {
        throw vxcam::Error(error.kind(), std::string(error.what()) + ", or @FILE");
    }
}

nlohmann::ordered_json ValueJson(const vxcam::Value& value)
{
    return nlohmann::ordered_json::parse(value.json());
}
