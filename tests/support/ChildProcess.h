// ChildProcess.h: runs a program as a child and keeps everything that it wrote.
#pragma once

#include <map>
#include <string>
#include <vector>

struct ChildResult {
    std::string out;
    std::string err;
    int exitCode = -1; ///< the exit status, or -1 if a signal ended the child
    int signal = 0;    ///< the signal that ended the child, or 0
};

/// What the child is run with, beside its words.
struct ChildInput {
    std::string in;                                 ///< its standard input, whole
    std::map<std::string, std::string> environment; ///< variables added to this process's own
    std::vector<std::string> unset;                 ///< variables taken out of it
};

/// Runs words[0] with its arguments to its end and gives what it wrote and how it ended; a program that can't
/// be started gives the exit code 126 or 127 and a reason on stderr. What a grandchild writes after the
/// child's end is lost. Safe from any thread.
ChildResult runChild(std::vector<std::string> const& words, ChildInput const& input = {});

/// The text with each address, as "%p" prints it, written as 0x#: addresses differ from run to run.
std::string maskAddresses(std::string text);
