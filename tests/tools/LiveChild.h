// LiveChild.h: a program that runs while the test talks to it over pipes.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// Starts words[0], its signals at their default actions, its stderr going where its stdout goes.
class LiveChild {
public:
    explicit LiveChild(std::vector<std::string> words);
    ~LiveChild();
    LiveChild(LiveChild const&) = delete;
    LiveChild& operator=(LiveChild const&) = delete;

    void write(std::string const& text) const;
    void kill(int signal) const;

    /// Waits for `text` to come and gives all that came with it since the last call. Throws where the output
    /// ends without it, or brings nothing for 30 s.
    std::string readTo(std::string const& text);

    /// Closes the input and gives the output up to its end.
    std::string finish();

    /// Waits for the end: the exit code, or minus the signal.
    int wait();

private:
    bool readMore(std::string& all) const;

    pid_t m_pid = 0;
    int m_in = -1;
    int m_out = -1;
};
