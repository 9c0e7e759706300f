#include "completion.h"
#include "pages.h"

#include <algorithm>

namespace {

constexpr const char* gsZshStart = R"(
    if (( CURRENT == 2 )); then
        [[ $PREFIX == -* ]] && compadd -- --help --version || _describe verb verbs
        return
    fi
    case $words[2] in
    help) _describe verb verbs; return ;;
)";

constexpr const char* gsZshWords = R"(    *) return 1 ;;
    esac
    last=$words[CURRENT-1]
    if [[ $PREFIX == --*=* ]]; then
        last=${PREFIX%%=*}
        compset -P '*='
    fi
    (( ${files[(Ie)$last]} )) && { _files; return; }
    (( ${valued[(Ie)$last]} )) && return 1
    [[ $PREFIX == -* ]] && { _describe option options; return; }
    mode=$words[2]
    for ((i = 3; i < CURRENT; i++)); do
        [[ $mode == [gs]et && $words[i] == [gs]et ]] && mode=$words[i]
    done
    if [[ $mode == [gs]et ]] && (( CURRENT > 3 )); then
        if [[ $PREFIX == *@* ]]; then
            compset -P '*@'
            _files
            return
        elif [[ $mode == set && $PREFIX == *=* ]]; then
            case ${${PREFIX%%=*}%%:*} in
)";

constexpr const char* gsZshEnd = R"(            esac
            commas=${${PREFIX%${PREFIX##*[=,/]}}##*/}
            commas=${commas//[^,]/}
            compset -P '*[=,/]'
            compadd -- ${=fields[$#commas+1]}
            return
        fi
        compadd -- get set
        if [[ $mode == set ]]; then
            compadd -S '' -- $settable
        else
            compadd -S '' -- ${(M)gettable:#*:}
            compadd -- ${gettable:#*:}
        fi
        return
    fi
    (( $#actions )) && _describe action actions
    (( $#offered )) && compadd -- $offered
    (( operand )) && _files
}
_vxcam "$@"
)";

// "'grab:expose and save'": a colon stands between a word and what it means.
std::string Described(const std::string& word, std::string meaning)
{
    std::replace(meaning.begin(), meaning.end(), ':', ';');
    return Quoted(word + ":" + meaning);
}

std::string ZshCase(const tsVerbWords& verb)
{
    tpWords options, actions;
    for (const tsOptionText& option : verb.options) {
        options.push_back(Described(option.names.back(), option.meaning));
    }
    for (const auto& [name, meaning] : verb.actions) {
        actions.push_back(Described(name, meaning));
    }
    return "    " + verb.name + ")\n        options=(" + Joined(options) + ")\n        actions=(" +
           Joined(actions) + ")\n        offered=(" + Joined(verb.offered) + ")\n        files=(" +
           Joined(Taking(verb, true)) + ")\n        valued=(" + Joined(Taking(verb, false)) +
           ")\n        operand=" + (verb.takesFile ? "1" : "0") + "\n        ;;\n";
}

} // namespace

std::string ZshCompletion()
{
    tpWords verbs{Described("help", "tell about a verb")};
    std::string cases;
    for (const tsVerbWords& verb : AllVerbs()) {
        verbs.push_back(Described(verb.name, verb.summary));
        cases += ZshCase(verb);
    }
    return "#compdef vxcam\n# Completion of vxcam for zsh.\n_vxcam() {\n"
           "    local -a verbs options actions offered files valued fields gettable settable\n"
           "    local mode last commas i operand\n    verbs=(" +
           Joined(verbs) + ")\n    gettable=(" + Joined(PropertyWords(false)) +
           ")\n    settable=(" + Joined(PropertyWords(true)) + ")" + gsZshStart + cases +
           gsZshWords + FieldCases() + gsZshEnd;
}
