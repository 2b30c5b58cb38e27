// tChildProcess: a program run beside the test, its output kept in files, ended at the latest with the object.
#ifndef KESTOVA_TESTS_CHILDPROCESS_H
#define KESTOVA_TESTS_CHILDPROCESS_H

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <vector>

#include "support/filebytes.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

class tChildProcess
{
public:
    // Starts `arguments` (the program first). Its standard output goes to `output` if that is a descriptor; its
    // standard input comes from `input`, which is empty otherwise.
    explicit tChildProcess(std::vector<std::string> arguments, int output = -1, int input = -1)
    {
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (input >= 0)
            posix_spawn_file_actions_adddup2(&actions, input, 0);
        else
            posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        if (output >= 0)
            posix_spawn_file_actions_adddup2(&actions, output, 1);
        else
            posix_spawn_file_actions_addopen(&actions, 1, m_dir.file("out").c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, m_dir.file("err").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        const int error = posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0)
            throw std::system_error(error, std::generic_category(), arguments[0]);
    }
    ~tChildProcess()
    {
        if (m_status)
            return;
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    tChildProcess(const tChildProcess&) = delete;
    tChildProcess& operator=(const tChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    void signal(int number) const { ::kill(m_pid, number); }

    // The exit status; 1000 and the signal's number for a child that a signal ended, -1 for one that does not end.
    int wait(std::chrono::steady_clock::duration timeout = std::chrono::seconds(120))
    {
        waitUntil([this] { return ended(); }, timeout);
        if (!m_status)
            return -1;
        return WIFEXITED(*m_status) ? WEXITSTATUS(*m_status) : 1000 + WTERMSIG(*m_status);
    }

    std::string out() const { return contentsOf(m_dir.file("out")); }
    std::string err() const { return contentsOf(m_dir.file("err")); }
    // Waits until standard error holds `text`, or the child has ended without it.
    bool says(const std::string& text)
    {
        waitUntil([&] { return err().find(text) != std::string::npos || ended(); }, std::chrono::seconds(20));
        return err().find(text) != std::string::npos;
    }

private:
    bool ended()
    {
        int status = 0;
        if (!m_status && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
            m_status = status;
        return m_status.has_value();
    }

    tTempDir m_dir;
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

#endif
