// LiveChild.h: a program that runs while the test talks to it over pipes.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// Starts words[0]; signals have their default actions in it. A wait of more than 30 s throws.
class LiveChild {
public:
    explicit LiveChild(std::vector<std::string> words);
    ~LiveChild();
    LiveChild(LiveChild const&) = delete;
    LiveChild& operator=(LiveChild const&) = delete;

    void write(std::string const& text);
    void closeInput();
    void closeOutput();
    void kill(int signal);

    /// Waits for `count` line feeds of output and gives all that came with them.
    std::string read(int count);

    /// The output up to its end.
    std::string readRest();

    /// What it wrote to stderr up to its end.
    std::string errors();

    /// Waits for the end: the exit code, or minus the signal.
    int wait();

private:
    pid_t m_pid = 0;
    int m_in = -1;
    int m_out = -1;
    int m_err = -1;
};
