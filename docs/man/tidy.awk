# Puts the paragraph requests of scdoc(1) where they begin a paragraph: one at the end of an
# indentation goes behind it; one next to a heading or at the end of the page goes away. So do
# blanks at the end of a line.
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
