// A program started as a child process with its standard output and error
// in files and environment variables of its own added (a fault shim's, a
// stop hook's), so that a test can wait for it, stop it or kill it.
#ifndef FILEINFO_TESTS_CHILDPROCESS_H
#define FILEINFO_TESTS_CHILDPROCESS_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

extern char** environ;

// Starts arguments[0] with `arguments`; `environment` entries (KEY=VALUE)
// come before the test's own, so they win.
inline pid_t StartChild(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                        const std::string& outFile, const std::string& errFile) {
    std::vector<std::string> env(environment);
    for (char** e = environ; *e != nullptr; ++e) env.push_back(*e);
    std::vector<std::string> args(arguments);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    std::vector<char*> argv, envp;
    for (std::string& a : args) argv.push_back(&a[0]);
    for (std::string& e : env) envp.push_back(&e[0]);
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
}

// The exit status, or 128 + the signal that ended the child; -1 when it
// cannot be waited for.
inline int WaitChild(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#endif  // FILEINFO_TESTS_CHILDPROCESS_H
