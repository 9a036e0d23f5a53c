// Host.h - Runs InspectHost and vx for tests.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// An InspectHost in the state that its arguments name. It ends with this object.
class Host {
public:
    explicit Host(const std::vector<std::string>& arguments, const std::string& libraries = "")
    {
        int input[2];
        int output[2];
        if (pipe(input) != 0 || pipe(output) != 0)
            std::abort();
        id_ = fork();
        if (id_ == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            for (const int end : {input[0], input[1], output[0], output[1]})
                close(end);
            if (!libraries.empty())
                setenv("LD_LIBRARY_PATH", libraries.c_str(), 1);
            std::vector<char*> words{const_cast<char*>(INSPECT_HOST)};
            for (const std::string& argument : arguments)
                words.push_back(const_cast<char*>(argument.c_str()));
            words.push_back(nullptr);
            execv(INSPECT_HOST, words.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        output_ = fdopen(output[0], "r");
        while (line() != "ready")
            if (std::feof(output_) != 0) {
                ADD_FAILURE() << "the host never got ready";
                break;
            }
    }
    ~Host()
    {
        end();
        std::fclose(output_);
        waitpid(id_, nullptr, 0);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Lets the host end.
    void end()
    {
        if (input_ >= 0)
            close(input_);
        input_ = -1;
    }

    /// The next line that the host prints, empty at the end.
    std::string line()
    {
        char text[256] = "";
        if (std::fgets(text, sizeof text, output_) == nullptr)
            return "";
        text[strcspn(text, "\n")] = 0;
        return text;
    }

    /// All that the host prints from here on.
    std::string rest()
    {
        std::string text;
        for (int c = std::fgetc(output_); c != EOF; c = std::fgetc(output_))
            text += static_cast<char>(c);
        return text;
    }

    pid_t id() const { return id_; }
    std::string word() const { return std::to_string(id_); }

    /// Whether the kernel lets this process read that one.
    bool readable() const
    {
        char byte;
        iovec local{&byte, 1};
        iovec remote{nullptr, 1};
        return process_vm_readv(id_, &local, 1, &remote, 1, 0) == 1 || errno == EFAULT;
    }

private:
    pid_t id_;
    int input_;
    std::FILE* output_;
};

/// What a command printed, and its exit status: -1 if a signal ended it.
struct Result {
    int status;
    std::string output;
};

inline Result runCommand(const std::string& command)
{
    Result result{-1, ""};
    std::FILE* const pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return result;
    char piece[4096];
    while (const std::size_t got = std::fread(piece, 1, sizeof piece, pipe))
        result.output.append(piece, got);
    const int status = pclose(pipe);
    // The shell reports the signal that ended a command as 128 + its number.
    if (WIFEXITED(status) && WEXITSTATUS(status) < 126)
        result.status = WEXITSTATUS(status);
    return result;
}

inline Result inspect(const std::string& arguments)
{
    return runCommand(std::string(VX_TOOL) + " inspect " + arguments);
}

/// The report on a process or core file as JSON; null, and a failure, if it is none.
inline nlohmann::json report(const std::string& arguments, int expectedStatus = 0)
{
    const Result result = inspect("--json " + arguments);
    EXPECT_EQ(result.status, expectedStatus) << result.output;
    const auto parsed = nlohmann::json::parse(result.output, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << result.output;
    return parsed.is_discarded() ? nlohmann::json() : parsed;
}

inline nlohmann::json lockNamed(const nlohmann::json& report, const std::string& name)
{
    for (const auto& lock : report["locks"])
        if (lock["name"] == name)
            return lock;
    ADD_FAILURE() << "no lock " << name << " in " << report["locks"];
    return {};
}

/// Skips the test where the kernel forbids to read another process of the same user.
#define VX_NEED_READABLE(host)                                                                     \
    if (!(host).readable())                                                                        \
    GTEST_SKIP() << "the kernel does not permit process_vm_readv() on a child"
