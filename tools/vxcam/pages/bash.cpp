#include "completion.h"
#include "pages.h"

namespace {

// Words stay whole at colons and equal signs, however bash cuts them; what stands before the last
// cut is taken off the answers, since bash keeps it.
constexpr const char* gsBashStart = R"(
    local line=${COMP_LINE:0:COMP_POINT} word verb mode i
    local -a before fields
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
    local options='--help --version' words=$verbs files= valued= operand=
    case $verb in
)";

constexpr const char* gsBashWords = R"(    '') ;;
    help) options= ;;
    *) return ;;
    esac
    local last=" ${before[-1]} " head= path= isfile=
    if [[ $word == --*=* ]]; then
        last=" ${word%%=*} " head=${word%%=*}= path=${word#*=}
    else
        path=$word
    fi
    if [[ " $files " == *"$last"* ]]; then
        isfile=1
    elif [[ " $valued " == *"$last"* ]]; then
        return
    elif [[ $word == -* ]]; then
        words=$options
    elif [[ $verb == [gs]et && ${#before[@]} -gt 2 ]]; then
        words="get set $gettable"
        [[ $mode == set ]] && words="get set $settable"
        if [[ $word == *@* ]]; then
            isfile=1 head=${word%%@*}@ path=${word#*@}
        elif [[ $mode == set && $word == *=* ]]; then
            local name=${word%%=*} rest=${word##*[=,/]} done commas
            case ${name%%:*} in
)";

constexpr const char* gsBashEnd = R"(            esac
            done=${word%"$rest"}
            commas=${done##*/}
            commas=${commas//[^,]/}
            words=
            for i in ${fields[${#commas}]-}; do
                words+=" $done$i"
            done
        fi
    fi
    if [[ -z $isfile ]]; then
        COMPREPLY=($(compgen -W "$words" -- "$word"))
        [[ ${#COMPREPLY[@]} == 0 && -n $operand && $word != -* ]] && isfile=1
    fi
    if [[ -n $isfile ]]; then
        local IFS=$'\n'
        COMPREPLY=($(compgen -f -- "$path"))
        COMPREPLY=("${COMPREPLY[@]/#/$head}")
        compopt -o filenames 2>/dev/null
    fi
    [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[:=] ]] && compopt -o nospace 2>/dev/null
    local cut=${word%"${word##*[:=]}"}
    [[ -n $cut ]] && COMPREPLY=("${COMPREPLY[@]#"$cut"}")
    return 0
}
complete -F _vxcam vxcam
)";

std::string BashCase(const tsVerbWords& verb)
{
    tpWords words = verb.offered;
    for (const auto& [name, meaning] : verb.actions) {
        words.push_back(name);
    }
    return "    " + verb.name + ") options='" + Joined(NamesOf(verb)) + "' words='" +
           Joined(words) + "' files='" + Joined(Taking(verb, true)) + "' valued='" +
           Joined(Taking(verb, false)) + "'" + (verb.takesFile ? " operand=1" : "") + " ;;\n";
}

} // namespace

std::string BashCompletion()
{
    tpWords verbs{"help"};
    std::string cases;
    for (const tsVerbWords& verb : AllVerbs()) {
        verbs.push_back(verb.name);
        cases += BashCase(verb);
    }
    return "# Completion of vxcam for bash.\n_vxcam()\n{\n    local verbs='" + Joined(verbs) +
           "'\n    local gettable='" + Joined(PropertyWords(false)) + "'\n    local settable='" +
           Joined(PropertyWords(true)) + "'" + gsBashStart + cases + gsBashWords + FieldCases() +
           gsBashEnd;
}
