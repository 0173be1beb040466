# Makes documentation comments of the headers' plain ones, as doxygen wants them, and gives each
# declaration of a group the comment that stands over the group. Blocks that are indented further
# than their comment (layouts, messages) are shown as they stand.

# A line of a comment's text in which nothing is a command of doxygen's.
function plain(text) {
    gsub(/\\/, "\\\\&", text)
    gsub(/[@<>#%&$]/, "\\\\&", text)
    return text
}

# Takes in one line of a block comment, which begins at `column`.
function take(line,    text, indented) {
    text = line
    sub(/^ *\/\*/, "", text)
    ends = sub(/ *\*\/ *$/, "", text)
    indented = lines > 0 && match(text, /[^ ]/) && RSTART > column + 5
    sub(/^ +/, "", text)
    if (indented && !verbatim) {
        comment = comment "\n@verbatim"
        verbatim = 1
    } else if (!indented && verbatim) {
        comment = comment "\n@endverbatim"
        verbatim = 0
    }
    comment = comment "\n" (verbatim ? text : plain(text))
    ++lines
    if (ends && verbatim) {
        comment = comment "\n@endverbatim"
        verbatim = 0
    }
    return ends
}

function print_comment() {
    print "/**" (seen++ == 0 ? " @file" : "") comment "\n*/"
}

# A heading between declarations.
/^ *\/\* ----/ {
    print
    next
}

# A comment that has its lines to itself.
/^ *\/\*/ {
    column = match($0, /\//)
    comment = ""
    lines = 0
    while (!take($0)) {
        if ((getline) <= 0) {
            exit 1
        }
    }
    print_comment()
    used = 0
    next
}

/^ *$/ {
    comment = ""
}

# The second declaration of a group and those behind it.
comment != "" && used && !continued && /^((extern )?KX_EXPORT| +(int|virDomainPtr|char16_t\*) )/ {
    print_comment()
}

# A comment behind a declaration, which may go on in the next lines.
/[;,{] *\/\*/ || /^ *KX_[A-Z_0-9]+ = [^,]* *\/\*/ {
    text = $0
    while (text !~ /\*\//) {
        getline more
        sub(/^ +/, " ", more)
        text = text more
    }
    at = index(text, "/*")
    print substr(text, 1, at - 1) "/**<" plain(substr(text, at + 2, length(text) - at - 3)) "*/"
    used = 1
    continued = 0
    next
}

{
    print
    continued = !/[;}] *$/ && !/^ *$/
    used = 1
}
