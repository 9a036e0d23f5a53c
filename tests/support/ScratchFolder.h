// ScratchFolder.h - Temporary folders, open descriptors, error messages and environment variables.
#pragma once

#include "Testing.h"
#include <Vx/LightweightString.h>
#include <optional>

/// A new folder, removed with its content.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& below = std::filesystem::temp_directory_path())
    {
        std::string name = below + "/vxtest-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no scratch folder below " + below);
        path_ = name;
    }

    /// Returns a place in memory if there is one, for tests that save thousands of times.
    static std::string inMemory()
    {
        const std::string shared = "/dev/shm";
        return access(shared.c_str(), W_OK | X_OK) == 0
                   ? shared
                   : std::filesystem::temp_directory_path().string();
    }

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }

    /// Returns the path of \p name, which is ASCII, as the platform expects it.
    LightweightString<wchar_t> wide(const std::string& name) const
    {
        const std::string whole = path(name);
        return LightweightString<wchar_t>(std::wstring(whole.begin(), whole.end()).c_str());
    }

    void put(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    /// Returns the bytes of a file, or "(none)" if it cannot be read.
    std::string get(const std::string& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        if (!file)
            return "(none)";
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    /// Returns the sorted names in the folder or in one inside, each followed by a blank.
    std::string names(const std::string& inside = "") const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(path(inside)))
            found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        std::string all;
        for (const std::string& name : found)
            all += name + " ";
        return all;
    }

private:
    std::string path_;
};

/// Returns the permissions of a file.
inline unsigned int modeOf(const std::string& path)
{
    return static_cast<unsigned int>(std::filesystem::status(path).permissions());
}

/// Returns what \p work prints on standard error.
template <class Work> std::string reported(Work&& work)
{
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

/// Returns the number of open descriptors of the process.
inline int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

/// Sets an environment variable until it is destroyed.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name))
            old_ = old;
        set(value);
    }
    ~ScopedEnvironment() { set(old_ ? old_->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    void set(const char* value)
    {
        if (value != nullptr)
            setenv(name_, value, 1);
        else
            unsetenv(name_);
    }

    const char* name_;
    std::optional<std::string> old_;
};
