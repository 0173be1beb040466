# Converts the plain comments of the headers into documentation comments of doxygen, and gives each
# declaration of a group the comment above the group. Blocks that are indented further than their
# comment (layouts, messages) are shown as they stand.

# A line of comment text, escaped so that doxygen finds no commands in it.
function plain(text) {
    gsub(/\\/, "\\\\&", text)
    gsub(/[@<>#%&$]/, "\\\\&", text)
    return text
}

# Reads one line of a block comment that begins at `column`.
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

# A comment on lines of its own.
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

# The second and later declarations of a group.
comment != "" && used && !continued && /^((extern )?KX_EXPORT| +(int|virDomainPtr|char16_t\*) )/ {
    print_comment()
}

# A comment after a declaration, which may continue on the next lines.
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
