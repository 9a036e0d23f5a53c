// ScratchFolder.h - a fresh folder for one test, removed with all it holds.
#pragma once

#include "Testing.h"
#include <Vx/LightweightString.h>
#include <optional>

class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& below = std::filesystem::temp_directory_path())
    {
        std::string name = below + "/vxtest-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no scratch folder below " + below);
        path_ = name;
    }

    /// Where a folder costs no disk, for tests that save a thousand times.
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

    /// An ASCII path as the platform takes it.
    LightweightString<wchar_t> wide(const std::string& name) const
    {
        const std::string whole = path(name);
        return LightweightString<wchar_t>(std::wstring(whole.begin(), whole.end()).c_str());
    }

    void put(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
    }

    /// The bytes of a file, or "(none)" when there is none to read.
    std::string get(const std::string& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        if (!file)
            return "(none)";
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    /// The names in the folder, or in one inside, sorted, each followed by a blank.
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

/// Descriptors that the process holds open.
inline int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

/// Sets an environment variable for as long as it lives.
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
