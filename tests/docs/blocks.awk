# Writes each named code block of the pages to `out`, one file a block: "```cpp flood.cpp" begins flood.cpp. A
# block of C, C++ or CMake must have a name, so that none goes unchecked.
function fail(text) {
    print FILENAME ":" FNR ": " text > "/dev/stderr"
    failed = 1
    exit 1
}

/^```/ && !inside {
    inside = 1
    language = substr($1, 4)
    name = $2
    if (name == "" && language ~ /^(c|cpp|cmake)$/) fail("a block of " language " without a name")
    if (name in seen) fail("a second " name)
    seen[name]
    if (name == "") delete seen[name]
    next
}
/^```/ {
    inside = 0
    if (name != "") close(out "/" name)
    next
}
inside && name != "" { print > (out "/" name) }
END { if (!failed && inside) fail("a block without an end") }
