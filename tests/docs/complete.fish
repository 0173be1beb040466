# complete.fish COMPLETION LINE...: what fish offers at the end of each line, a word a line, under
# "> LINE".
source $argv[1]
for line in $argv[2..-1]
    echo "> $line"
    complete -C "$line" | string replace -r '\t.*' ''
end
true
