#pragma once
// Runs a built program as a child with limits (file size, address space), optionally without
// root's rights, and reports how it ended and its peak memory.

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/test_support.h"

extern char** environ;

namespace kinefix_test {

// Identity the tests drop to when they run as root, so that permissions apply.
constexpr uid_t kNobody = 65534;
constexpr const char* kTimeTool = "/usr/bin/time";

struct ChildOptions {
    std::map<std::string, std::string> env;  // added to, or replacing, the test's environment
    int64_t file_size_limit = -1;            // RLIMIT_FSIZE in bytes; SIGXFSZ is then ignored
    int64_t address_space_limit = -1;        // RLIMIT_AS in bytes
    bool unprivileged = false;               // when root: run as nobody
};

struct ChildResult {
    int exit_code = -1;  // -1 when the child did not exit normally
    int signal = 0;      // the signal that ended it, if any
    std::string out;
    std::string err;
    long max_rss_kb = 0;
};

// Gives a tree to nobody so that an unprivileged child can work in it (root only).
inline void hand_to_nobody(const fs::path& root) {
    if (geteuid() != 0) return;
    if (lchown(root.c_str(), kNobody, kNobody) != 0) return;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
        if (lchown(it->path().c_str(), kNobody, kNobody) != 0) return;
}

inline ChildResult run_child(const std::string& program, const std::vector<std::string>& args,
                             const ChildOptions& options, const TempDir& scratch) {
    std::map<std::string, std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string kv = *e;
        const size_t eq = kv.find('=');
        if (eq != std::string::npos) env[kv.substr(0, eq)] = kv.substr(eq + 1);
    }
    for (const auto& kv : options.env) env[kv.first] = kv.second;
    std::vector<std::string> env_text;
    for (const auto& kv : env) env_text.push_back(kv.first + "=" + kv.second);
    std::vector<char*> envp;
    for (auto& s : env_text) envp.push_back(&s[0]);
    envp.push_back(nullptr);
    // GNU time measures the program from its own small process: a child forked from this
    // test, which may hold large buffers, would otherwise count the test's pages as its own.
    const std::string rss_path = scratch / "child.rss";
    const bool timed = fs::exists(kTimeTool);
    std::vector<std::string> arg_text;
    if (timed) {
        arg_text = {kTimeTool, "-f", "%M", "-o", rss_path};
        const int fd = open(rss_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (fd >= 0) {
            fchmod(fd, 0666);  // an unprivileged child must be able to write it
            close(fd);
        }
    }
    arg_text.push_back(program);
    arg_text.insert(arg_text.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& s : arg_text) argv.push_back(&s[0]);
    argv.push_back(nullptr);

    // Pipes, as a front end reads them: a file-size limit on the child never cuts them short.
    int out_pipe[2] = {-1, -1};
    int err_pipe[2] = {-1, -1};
    const int in_fd = open("/dev/null", O_RDONLY);
    ChildResult r;
    if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0 || in_fd < 0) return r;

    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in_fd, 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        close(out_pipe[0]);
        close(err_pipe[0]);
        if (options.file_size_limit >= 0) {
            const rlimit lim = {static_cast<rlim_t>(options.file_size_limit),
                                static_cast<rlim_t>(options.file_size_limit)};
            setrlimit(RLIMIT_FSIZE, &lim);
            signal(SIGXFSZ, SIG_IGN);  // writes then fail with EFBIG, as on a full disk
        }
        if (options.address_space_limit >= 0) {
            const rlimit lim = {static_cast<rlim_t>(options.address_space_limit),
                                static_cast<rlim_t>(options.address_space_limit)};
            setrlimit(RLIMIT_AS, &lim);
        }
        if (options.unprivileged && geteuid() == 0) {
            if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)
                _exit(126);
        }
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    close(in_fd);
    if (pid >= 0) {
        pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
        std::string* sinks[2] = {&r.out, &r.err};
        int open_count = 2;
        char buffer[65536];
        while (open_count > 0 && poll(fds, 2, -1) >= 0) {
            for (int i = 0; i < 2; ++i) {
                if (fds[i].fd < 0 || fds[i].revents == 0) continue;
                const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
                if (n > 0) {
                    sinks[i]->append(buffer, static_cast<size_t>(n));
                } else {
                    fds[i].fd = -1;
                    --open_count;
                }
            }
        }
    }
    close(out_pipe[0]);
    close(err_pipe[0]);
    if (pid < 0) return r;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) == pid) {
        if (WIFEXITED(status)) r.exit_code = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) r.signal = WTERMSIG(status);
        r.max_rss_kb = usage.ru_maxrss;
    }
    if (timed) {
        // "Command terminated by signal N" or "Command exited with ...", then the peak in KiB.
        for (const std::string& line : lines_of(read_file(rss_path))) {
            int sig = 0;
            if (sscanf(line.c_str(), "Command terminated by signal %d", &sig) == 1) {
                r.signal = sig;
                r.exit_code = -1;
            } else if (!line.empty() && line[0] >= '0' && line[0] <= '9') {
                r.max_rss_kb = std::stol(line);
            }
        }
        fs::remove(rss_path);
    }
    return r;
}

}  // namespace kinefix_test
