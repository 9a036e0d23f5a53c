// ScriptedObjects.h - The files, locks and settings that a ScriptedPlatform hands out.
#pragma once

#include <Vx/testing/ScriptedPlatform.h>

#include <cstring>
#include <string_view>

/// The details are only computed for a log, because they allocate.
template <class Details> void ScriptedPlatform::enter(const char* operation, Details&& details)
{
    if (logging_)
        note(operation + details());
    if (std::string_view(operation) == faultyCall_ && due(callFault_))
        throw ScriptedFault{faultyCall_};
}

struct ScriptedObjects {
    using Bytes = ScriptedPlatform::Text<char>;
    using Path = ScriptedPlatform::Text<wchar_t>;
    using Guard = std::lock_guard<std::recursive_mutex>;

    /// The platform that is alive. The objects may outlive it, so locks and closing files look
    /// here.
    static constinit std::atomic<ScriptedPlatform*> active;

    static void enter(const char* operation)
    {
        if (ScriptedPlatform* platform = active)
            platform->enter(operation);
    }
    static std::string narrow(const LightweightString<char>& text)
    {
        return std::string(text.c_str(), text.length());
    }

    struct File final : iFile {
        File(ScriptedPlatform& platform, Path path) : platform(platform), path(std::move(path)) {}
        ~File() override { ScriptedObjects::enter("close"); }

        unsigned int size() override
        {
            platform.enter("size");
            const Guard guard(platform.mutex_);
            return platform.fileFault() ? 0 : static_cast<unsigned int>(content().size());
        }
        bool read(void* buffer, unsigned int count) override
        {
            platform.enter("read");
            const Guard guard(platform.mutex_);
            if (platform.fileFault() || position + count > content().size())
                return false;
            std::memcpy(buffer, content().data() + position, count);
            position += count;
            return true;
        }
        bool write(const void* bytes, unsigned int count) override
        {
            platform.enter(count != 0 ? "write" : "commit");
            const Guard guard(platform.mutex_);
            if (platform.fileFault())
                return false;
            if (count == 0)
                return true;
            content().append(static_cast<const char*>(bytes), count);
            platform.writes_.push_back(count);
            return true;
        }
        Bytes& content() { return platform.files_[path]; }

        ScriptedPlatform& platform;
        Path path;
        std::size_t position = 0;
        unsigned int refCount = 0;
    };

    struct Lock final : iLock {
        explicit Lock(Vx::Ptr<iLock> real) : real(std::move(real)) {}
        void lock() override
        {
            ScriptedObjects::enter("lock");
            real->lock();
        }
        bool tryLock() override
        {
            ScriptedObjects::enter("tryLock");
            return real->tryLock();
        }
        void unlock() override
        {
            ScriptedObjects::enter("unlock");
            real->unlock();
        }

        Vx::Ptr<iLock> real;
        unsigned int refCount = 0;
    };

    struct Settings final : iSettings {
        Settings(ScriptedPlatform& platform, int scope) : platform(platform), scope(scope) {}
        static std::string name(const LightweightString<char>& section,
                                const LightweightString<char>& key)
        {
            return narrow(section) + "/" + narrow(key);
        }
        std::string scopeText() const { return "(" + std::to_string(scope) + ","; }

        void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                      const LightweightString<char>& section) override
        {
            platform.enter("setValue", [&] {
                return scopeText() + name(section, key) + "=" + narrow(value) + ")";
            });
            platform.setSetting(scope, narrow(section), narrow(key), narrow(value));
        }
        LightweightString<char> getValue(const LightweightString<char>& key,
                                         const LightweightString<char>& defaultValue,
                                         const LightweightString<char>& section) override
        {
            platform.enter("getValue", [&] {
                return scopeText() + name(section, key) + "," + narrow(defaultValue) + ")";
            });
            const Guard guard(platform.mutex_);
            const auto found = platform.settings_.find(
                ScriptedPlatform::settingKey(scope, narrow(section), narrow(key)));
            return found != platform.settings_.end()
                       ? LightweightString<char>(std::string_view(found->second))
                       : defaultValue;
        }
        void save() override
        {
            platform.enter("save", [&] { return "(" + std::to_string(scope) + ")"; });
        }

        ScriptedPlatform& platform;
        int scope;
        unsigned int refCount = 0;
    };
};
