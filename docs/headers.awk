# Tells doxygen how the headers' comments are meant; every line keeps its number.
#
# - The comment at the top is about the file, and "/*" is as good as "/**": C reads some headers.
# - A comment serves all declarations under it up to the next blank line, so that a group of operations has one
#   comment that is about all of them.

# Puts a mark at the end of line n, before a comment that ends it.
function mark(n, text) {
    if (!match(lines[n], / *\/\//)) {
        lines[n] = lines[n] " /** " text " */"
    } else {
        lines[n] = substr(lines[n], 1, RSTART - 1) " /** " text " */" substr(lines[n], RSTART)
    }
}

function isComment(n) { return lines[n] ~ /^ *(\/\/\/|\/\*\*|\*)/ || lines[n] ~ /^ \* / }

function indent(n) { match(lines[n], /^ */); return RLENGTH }

# Wraps what follows the comment that ends at line n, if that is more than one declaration.
function group(first, n,    last, ends) {
    last = n
    while (lines[last + 1] ~ /[^ ]/ && !isComment(last + 1) && lines[last + 1] !~ /^ *};?$|^ *(public|private|protected):$|^#/) {
        last++
        if (indent(last) == indent(first) && lines[last] ~ /^ *(class|struct|enum|namespace) [^;]*$/) return
        if (lines[last] ~ /[;}]( *\/\/.*)?$/ && indent(last) >= indent(first)) ends++
    }
    if (ends > 1) {
        mark(first - 1, "@{")
        mark(last, "@}")
    }
}

{ lines[NR] = $0 }

END {
    top = 1
    sub(/^\/\/ [A-Za-z]+\.h: /, "/// ", lines[1])
    inC = sub(/^\/\* [A-Za-z]+\.h: /, " * ", lines[1])
    while (lines[top] !~ /^#pragma once/) top++
    for (n = top; n > 1; n--) { # the line of the pragma makes room for the command
        lines[n] = lines[n - 1]
        if (!inC) sub(/^\/\/( |$)/, "/// ", lines[n])
    }
    lines[1] = inC ? "/** @file" : "/// @file"

    for (n = top + 1; n <= NR; n++) sub(/^\/\* /, "/** ", lines[n])
    first = 0
    for (n = top + 1; n <= NR; n++) {
        if (isComment(n) && !first) first = n
        if (first && !isComment(n)) {
            group(first, n - 1)
            first = 0
        }
    }
    for (n = 1; n <= NR; n++) print lines[n]
}
