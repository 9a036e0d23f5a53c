// SystemCallScript.h - Makes the platform's system calls fail.
#pragma once

#include "files/SystemCalls.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <type_traits>

/// Counts every call of the table while it exists; the n-th one can fail or be cut short. One
/// object at a time, and one thread.
class SystemCallScript {
public:
    SystemCallScript() : kept_(systemCalls)
    {
        current_ = this;
#define HOOK(name) hook<&SystemCalls::name>(#name)
        HOOK(openat), HOOK(close), HOOK(read), HOOK(write), HOOK(fstat), HOOK(fstatat),
            HOOK(fstatfs), HOOK(faccessat), HOOK(readlinkat), HOOK(fchmod), HOOK(fchown),
            HOOK(flistxattr), HOOK(fgetxattr), HOOK(fsetxattr), HOOK(fremovexattr), HOOK(fsync),
            HOOK(flock), HOOK(linkat), HOOK(renameat2), HOOK(unlinkat), HOOK(mkdirat),
            HOOK(getrandom), HOOK(ftruncate), HOOK(nanosleep);
#undef HOOK
    }
    ~SystemCallScript()
    {
        systemCalls = kept_;
        current_ = nullptr;
    }
    SystemCallScript(const SystemCallScript&) = delete;
    SystemCallScript& operator=(const SystemCallScript&) = delete;

    /// Makes the n-th call from now, 1 for the next, fail with \p error. A failing close() closes
    /// nevertheless, as the system's does.
    void failCall(int n, int error)
    {
        failAt_ = calls_ + n;
        error_ = error;
    }

    /// Makes every call of this name fail with \p error.
    void failAll(const std::string& name, int error)
    {
        failName_ = name;
        error_ = error;
    }

    /// Makes read() and write() transfer at most half of the bytes.
    void cutShort() { cutShort_ = true; }

    /// Makes opening unnamed files fail with \p error, as on some file systems.
    void refuseUnnamedFiles(int error = EOPNOTSUPP) { refusal_ = error; }

    int calls() const { return calls_; }
    const std::string& failedName() const { return failedName_; }
    bool fired() const { return !failedName_.empty(); }

    /// Called before each call with its name.
    std::function<void(const std::string& name)> before;

    /// Calls \p action before the n-th call from now.
    void beforeCall(int n, const std::function<void()>& action)
    {
        before = [this, last = calls_ + n, action](const std::string&) {
            if (calls_ == last)
                action();
        };
    }

    /// The number of calls that were made to fail.
    int attempts = 0;

private:
    template <auto> struct Tag {};

    template <auto Member, class R, class... P> static R hooked(P... arguments)
    {
        SystemCallScript& script = *current_;
        const std::string name = name_<Member>;
        ++script.calls_;
        if (script.before)
            script.before(name);
        if (script.calls_ == script.failAt_ || script.failName_ == name) {
            script.failedName_ = name;
            ++script.attempts;
            if constexpr (sizeof...(P) == 1)
                if (name == "close")
                    (script.kept_.*Member)(arguments...);
            errno = script.error_;
            return -1;
        }
        if constexpr (std::is_same_v<Tag<Member>, Tag<&SystemCalls::openat>>)
            if (script.refusal_ != 0 && script.opensUnnamed(arguments...)) {
                errno = script.refusal_;
                return -1;
            }
        return script.pass(script.kept_.*Member, arguments...);
    }

    static bool opensUnnamed(int, const char*, int flags, mode_t)
    {
        return (flags & O_TMPFILE) == O_TMPFILE;
    }

    template <class R, class... P> R pass(R (*call)(P...), P... arguments)
    {
        return call(arguments...);
    }
    // read() and write(); the others have no untyped bytes.
    template <class Bytes>
    std::enable_if_t<std::is_void_v<std::remove_pointer_t<Bytes>>, ssize_t>
    pass(ssize_t (*call)(int, Bytes, size_t), int descriptor, Bytes bytes, size_t count)
    {
        return call(descriptor, bytes, cutShort_ && count > 1 ? count / 2 : count);
    }

    template <auto Member, class R, class... P> void set(R (*SystemCalls::*)(P...))
    {
        systemCalls.*Member = hooked<Member, R, P...>;
    }
    template <auto Member> void hook(const char* name)
    {
        name_<Member> = name;
        set<Member>(Member);
    }

    static inline SystemCallScript* current_ = nullptr;
    template <auto Member> static inline const char* name_ = nullptr;

    const SystemCalls kept_;
    int calls_ = 0;
    int failAt_ = 0;
    int error_ = 0;
    bool cutShort_ = false;
    int refusal_ = 0;
    std::string failName_;
    std::string failedName_;
};

/// Calls body(error, n) with each error for n = 1, 2, ... until it returns false because its n-th
/// system call did not fail. \returns the number of failures
template <class Body> int forEachFault(std::initializer_list<int> errors, Body body)
{
    int points = 0;
    for (const int error : errors)
        for (int n = 1;; ++n, ++points) {
            SCOPED_TRACE(std::string(std::strerror(error)) + " in call " + std::to_string(n));
            if (n < 200 && body(error, n))
                continue;
            EXPECT_LT(n, 200) << "never completes";
            break;
        }
    return points;
}
