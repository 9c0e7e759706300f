# zsh_offers.zsh FOLDER LINE...: what an interactive zsh, which finds completions in the folder,
# offers behind each of these beginnings of a command line: one offer a line, and a line "." behind
# each beginning's.
zmodload zsh/zpty
out=$(mktemp)
zpty shell zsh -f -i
zpty -w shell "PS1= PS2=; stty -echo; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D
compadd() {
    [[ \${@[1,(i)(-|--)]} == *-(O|A|D)\\ * ]] || {
        local -a found
        builtin compadd -A found \"\$@\"
        print -rl -- \$found >>$out
    }
    builtin compadd \"\$@\"
}
finish() { print . >>$out; zle kill-whole-line; }
zle -N finish; bindkey '^X' finish; LISTMAX=10000; print . >>$out"
shift
said() {
    local drawn
    for ((i = 0; i < 1000; i++)); do
        while zpty -rt shell drawn; do :; done
        (( $(grep -cx '[.]' $out) > $1 )) && return
        sleep 0.02
    done
}
said 0
for ((n = 1; n <= $#; n++)); do
    zpty -w -n shell "$argv[n]"$'\t\x18'
    said $n
done
grep -vx '' $out | tail -n +2
rm $out
zpty -d shell
