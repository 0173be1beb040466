# Moves the paragraph requests of scdoc(1) to the beginning of paragraphs: a request at the end of
# an indentation moves after it; a request next to a heading or at the end of the page is removed.
# Blanks at the end of a line are removed too.
{
    sub(/[ \t]+$/, "")
}
/^\.P$/ {
    waiting = 1
    next
}
/^\.RE/ {
    print
    next
}
{
    if (waiting && !heading && !/^\.(SH|SS)/) {
        print ".P"
    }
    waiting = 0
    heading = /^\.(SH|SS|TH)/
    print
}
