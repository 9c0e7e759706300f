#include "completion.h"
#include "pages.h"

#include <sstream>

namespace {

constexpr const char* gsFishStart = R"(# Completion of vxcam for fish.
function __vxcam_verb
    set -l words (commandline -opc)
    test "$words[2]" = "$argv[1]"
end
function __vxcam_mode
    set -l words (commandline -opc)
    set -l mode $words[2]
    contains -- "$mode" get set; and test (count $words) -gt 2; or return 1
    for word in $words[3..]
        contains -- $word get set; and set mode $word
    end
    test $mode = $argv[1]
end
function __vxcam_files
    set -l word (commandline -ct)
    string match -q '*@*' -- $word; or return
    set -l head (string replace -r '@.*' '@' -- $word)
    for path in (__fish_complete_path (string replace -r '^[^@]*@' '' -- $word))
        echo $head$path
    end
end
complete -c vxcam -f
complete -c vxcam -n 'test (count (commandline -opc)) -eq 1' -l help -d 'list the verbs'
complete -c vxcam -n 'test (count (commandline -opc)) -eq 1' -l version -d 'tell the versions'
complete -c vxcam -n '__vxcam_mode get' -a 'get set (__vxcam_files)'
complete -c vxcam -n '__vxcam_mode set' -a 'get set (__vxcam_files)'
)";

std::string FishLine(const std::string& condition, const std::string& rest,
                     const std::string& meaning)
{
    return "complete -c vxcam -n " + Quoted(condition) + " " + rest +
           (meaning.empty() ? "" : " -d " + Quoted(meaning, "\\'")) + "\n";
}

std::string FishVerb(const tsVerbWords& verb)
{
    const std::string isVerb = "__vxcam_verb " + verb.name;
    std::string text;
    for (const char* before : {"test (count (commandline -opc)) -eq 1", "__vxcam_verb help"}) {
        text += FishLine(before, "-a " + verb.name, verb.summary);
    }
    for (const tsOptionText& option : verb.options) {
        std::string names;
        for (const std::string& name : option.names) {
            names += (name[1] == '-' ? "-l " + name.substr(2) : "-s " + name.substr(1)) + " ";
        }
        const char* const value = option.type == "FILE" ? "-r -F" : "-x";
        text += FishLine(isVerb, names + (option.type.empty() ? "" : value), option.meaning);
    }
    for (const auto& [name, meaning] : verb.actions) {
        text += FishLine(isVerb, "-a " + name, meaning);
    }
    if (!verb.offered.empty()) {
        text += FishLine(isVerb, "-a " + Quoted(Joined(verb.offered)), "");
    }
    return text + (verb.takesFile ? FishLine(isVerb, "-F", "") : "");
}

// "on off" as "fan=on fan=off"
std::string Prefixed(const std::string& prefix, const std::string& words)
{
    std::istringstream in(words);
    tpWords all;
    for (std::string word; in >> word;) {
        all.push_back(prefix + word);
    }
    return Joined(all);
}

// Each value of a property that is one of some words.
std::string FishProperties()
{
    std::string text;
    for (const vxcam::Property& property : vxcam::properties()) {
        const std::string name = property.name + std::string(property.key != nullptr ? ":" : "");
        if (property.isReadable()) {
            text += FishLine("__vxcam_mode get", "-a " + Quoted(name), property.help);
        }
        if (!property.isWritable()) continue;
        const std::string sign = property.key != nullptr ? "" : "=";
        text += FishLine("__vxcam_mode set", "-a " + Quoted(name + sign), property.help);
        const std::string words = FieldWords(property).front();
        if (words.empty() || property.key != nullptr) continue;
        text += FishLine("__vxcam_mode set", "-a " + Quoted(Prefixed(name + "=", words)),
                         property.help);
    }
    return text;
}

} // namespace

std::string FishCompletion()
{
    std::string text = gsFishStart;
    text += FishLine("test (count (commandline -opc)) -eq 1", "-a help", "tell about a verb");
    for (const tsVerbWords& verb : AllVerbs()) {
        text += FishVerb(verb);
    }
    return text + FishProperties();
}
