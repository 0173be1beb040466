# complete.bash COMPLETION LINE...: what bash offers at the end of each line, a word a line, under
# "> LINE". Words are cut as bash cuts them, and put together again.
source "$1"
shift

for line in "$@"; do
    echo "> $line"
    read -r _ _ function _ <<<"$(complete -p kxctl)"
    COMP_LINE=$line
    COMP_POINT=${#line}
    read -ra COMP_WORDS <<<"${line//[:=]/ & }"
    [[ $line == *' ' ]] && COMP_WORDS+=('')
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    "$function" "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    current=${line##* }
    head=
    if [[ $current == *[:=]* ]]; then
        head=${current%"${current##*[:=]}"}
    fi
    for word in "${COMPREPLY[@]}"; do
        echo "$head$word"
    done
done
