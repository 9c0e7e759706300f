#include "completion.h"

#include "program.h"

#include <algorithm>

namespace {

void AddOptions(const tcCommandLine& line, std::vector<tsOptionText>* options)
{
    for (const tsOptionText& option : line.Options()) {
        const bool isKnown = std::any_of(options->begin(), options->end(), [&](const auto& known) {
            return known.names == option.names;
        });
        if (!isKnown) options->push_back(option);
    }
}

tsVerbWords WordsOf(const tsVerb& verb)
{
    tcCommandLine line;
    const std::unique_ptr<tcVerb> run = verb.make();
    run->Declare(line);
    tsVerbWords words{verb.name, verb.summary, {}, {}, {}, line.HasOperand("FILE")};
    AddOptions(line, &words.options);
    for (const tcCommandLine& action : line.Actions()) {
        words.actions.emplace_back(action.Name(), action.Meaning());
        words.takesFile = words.takesFile || action.HasOperand("FILE");
        AddOptions(action, &words.options);
    }
    words.offered = line.Offered();
    std::sort(words.offered.begin(), words.offered.end());
    words.offered.erase(std::unique(words.offered.begin(), words.offered.end()),
                        words.offered.end());
    return words;
}

} // namespace

std::vector<tsVerbWords> AllVerbs()
{
    std::vector<tsVerbWords> all;
    for (const tsVerb& verb : Verbs()) {
        all.push_back(WordsOf(verb));
    }
    return all;
}

std::string Joined(const tpWords& words, const char* separator)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

std::string Quoted(const std::string& text, const char* quote)
{
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string(quote) : std::string(1, c);
    }
    return quoted + "'";
}

tpWords NamesOf(const tsVerbWords& verb)
{
    tpWords names;
    for (const tsOptionText& option : verb.options) {
        names.push_back(option.names.back());
    }
    return names;
}

tpWords Taking(const tsVerbWords& verb, bool file)
{
    tpWords names;
    for (const tsOptionText& option : verb.options) {
        if (option.type.empty() || (option.type == "FILE") != file) continue;
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

tpWords PropertyWords(bool settable)
{
    tpWords words;
    for (const vxcam::Property& property : vxcam::properties()) {
        if (!(settable ? property.isWritable() : property.isReadable())) continue;
        words.push_back(property.name + std::string(property.key != nullptr ? ":" : "") +
                        (settable && property.key == nullptr ? "=" : ""));
    }
    return words;
}

tpWords FieldWords(const vxcam::Property& property)
{
    tpWords fields;
    for (const vxcam::Field& field : property.shape.fields) {
        tpWords words;
        if (fields.empty() && property.shape.mayBeNone) words.emplace_back(vxcam::kNone);
        if (field.kind == vxcam::FieldKind::Switch) words = {"on", "off"};
        for (const vxcam::Choice& choice : field.choices) {
            words.emplace_back(choice.word);
        }
        fields.push_back(Joined(words));
    }
    return fields;
}

std::string FieldCases()
{
    std::string text;
    for (const vxcam::Property& property : vxcam::properties()) {
        tpWords fields = FieldWords(property);
        if (!property.isWritable() || Joined(fields, "").empty()) continue;
        std::transform(fields.begin(), fields.end(), fields.begin(),
                       [](const std::string& words) { return Quoted(words); });
        text += "        " + std::string(property.name) + ") fields=(" + Joined(fields) + ") ;;\n";
    }
    return text;
}
