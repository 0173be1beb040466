# complete.zsh COMPLETION LINE...: what zsh offers at the end of each line, a word a line, under
# "> LINE". zsh completes only where someone types, so a second zsh runs on a terminal of its own.
zmodload zsh/zpty
local directory=$(mktemp -d)
trap 'rm -rf -- $directory' EXIT

cat >$directory/.zshrc <<'SETUP'
fpath=($completions $fpath)
autoload -Uz compinit
compinit -D -u

# Note each word that is offered.
compadd() {
    if [[ ${@[1,(i)(-|--)]} != *-(O|A|D)\ * ]]; then
        local -a offered
        builtin compadd -A offered "$@"
        (( $#offered )) && print -rl -- $IPREFIX$^offered >>$offers
    fi
    builtin compadd "$@"
}

complete-line() {
    zle list-choices
    BUFFER=
    print DONE.
}
zle -N complete-line
bindkey '^I' complete-line
PS1=
LISTMAX=9999
precmd() {
    print READY.
}
SETUP

# Read the lines that the terminal shows until one holds a word.
await() {
    local text
    while zpty -r terminal text; do
        [[ $text == *$1* ]] && return
    done
    exit 1
}

zpty terminal \
    "ZDOTDIR=${(q)directory} completions=${(q)1:h} offers=${(q)directory}/offers zsh -d -i"
await READY.
shift
for line; do
    print -r -- "> $line"
    : >$directory/offers
    zpty -w -n terminal "$line"$'\t'
    await DONE.
    cat $directory/offers
done
zpty -d terminal
