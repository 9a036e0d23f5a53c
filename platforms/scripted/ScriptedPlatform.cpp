#include "ScriptedObjects.h"

using Guard = std::lock_guard<std::recursive_mutex>;

constinit std::atomic<ScriptedPlatform*> ScriptedObjects::active = nullptr;

ScriptedPlatform::ScriptedPlatform() : folder_(L"/data/")
{
    if (ScriptedObjects::active.exchange(this) != nullptr)
        std::abort(); // one at a time
}

ScriptedPlatform::~ScriptedPlatform()
{
    retire();
    ScriptedObjects::active = nullptr;
}

// --- Faults and the log

void ScriptedPlatform::setOrder(Order& order, unsigned int n, Times times)
{
    order.n = 0;
    order.calls = 0;
    order.times = times;
    faultFired_ = false;
    order.n = n;
}

bool ScriptedPlatform::due(Order& order)
{
    const unsigned int n = order.n;
    if (n == 0)
        return false;
    const unsigned int call = ++order.calls;
    if (call != n && (call < n || order.times == Once))
        return false;
    faultFired_ = true;
    return true;
}

void ScriptedPlatform::failCall(const char* operation, unsigned int n, Times times)
{
    faultyCall_ = operation;
    setOrder(callFault_, n, times);
}

void ScriptedPlatform::enter(const char* operation)
{
    enter(operation, [] { return std::string(); });
}

void ScriptedPlatform::note(const std::string& word)
{
    const Guard guard(mutex_);
    if (!log_.empty())
        log_ += ' ';
    log_ += std::string_view(word);
}

std::string ScriptedPlatform::takeLog()
{
    const Guard guard(mutex_);
    std::string words(log_.data(), log_.size());
    log_.clear();
    return words;
}

// --- Reclaimable objects

void ScriptedPlatform::add(Reclaimable* object)
{
    enter("add");
    {
        const Guard guard(mutex_);
        reclaimables_.push_back(object);
    }
    PlatformProxy::add(object);
}

void ScriptedPlatform::remove(Reclaimable* object)
{
    enter("remove");
    {
        const Guard guard(mutex_);
        std::erase(reclaimables_, object);
    }
    PlatformProxy::remove(object);
}

std::vector<Reclaimable*> ScriptedPlatform::reclaimables() const
{
    const Guard guard(mutex_);
    return {reclaimables_.begin(), reclaimables_.end()};
}

// --- Text, clock, identifiers, call stacks

LightweightString<wchar_t> ScriptedPlatform::wideFromAscii(const char* text)
{
    enter("wideFromAscii");
    return PlatformProxy::wideFromAscii(text);
}

LightweightString<char> ScriptedPlatform::toUTF8(const LightweightString<wchar_t>& wide)
{
    enter("toUTF8");
    return PlatformProxy::toUTF8(wide);
}

LightweightString<wchar_t> ScriptedPlatform::fromUTF8(const char* bytes, unsigned int length)
{
    enter("fromUTF8", [=] { return std::string(length == kUpToTerminator ? "(-1)" : ""); });
    return PlatformProxy::fromUTF8(bytes, length);
}

double ScriptedPlatform::msecsNow()
{
    enter("msecsNow");
    if (!clockIsSet_)
        return PlatformProxy::msecsNow();
    if (tick_ == 0.0)
        return clock_;
    const Guard guard(mutex_);
    return std::exchange(clock_, clock_ + tick_);
}

SimpleUUID ScriptedPlatform::generateUUID()
{
    enter("generateUUID");
    return uuidIsSet_ ? uuid_ : PlatformProxy::generateUUID();
}

void ScriptedPlatform::captureCallStack(
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames)
{
    enter("captureCallStack");
    if (callStack_.empty())
        return PlatformProxy::captureCallStack(frames);
    for (const std::string& frame : callStack_)
        frames.push_back(LightweightString<char>(frame));
}

// --- Files

Vx::Ptr<iFile> ScriptedPlatform::openFile(const LightweightString<wchar_t>& path, int access,
                                          int disposition, int flags, int reserved)
{
    enter("openFile", [&] {
        return "(" + std::to_string(access) + "," + std::to_string(disposition) + "," +
               std::to_string(flags) + "," + std::to_string(reserved) + ")";
    });
    const Text<wchar_t> key(path.c_str(), path.length());
    const Guard guard(mutex_);
    const bool forWriting = access == 2;
    if (fileFault() || key.empty() || (!forWriting && files_.count(key) == 0))
        return {};
    if (forWriting)
        files_[key].clear();
    auto* file = new ScriptedObjects::File(*this, key);
    return Vx::Ptr<iFile>(&file->refCount, file);
}

wchar_t ScriptedPlatform::pathSeparator()
{
    enter("pathSeparator");
    return L'/';
}

void ScriptedPlatform::addFile(const std::wstring& path, const std::string& content)
{
    const Guard guard(mutex_);
    files_[Text<wchar_t>(path.data(), path.size())] = std::string_view(content);
}

bool ScriptedPlatform::hasFile(const std::wstring& path) const
{
    const Guard guard(mutex_);
    return files_.count(Text<wchar_t>(path.data(), path.size())) != 0;
}

template <class Books, class Key>
std::string ScriptedPlatform::find(const Books& books, const Key& key)
{
    const auto found = books.find(key);
    return found != books.end() ? std::string(std::string_view(found->second)) : std::string();
}

std::string ScriptedPlatform::file(const std::wstring& path) const
{
    const Guard guard(mutex_);
    return find(files_, Text<wchar_t>(path.data(), path.size()));
}

std::vector<unsigned int> ScriptedPlatform::writes() const
{
    const Guard guard(mutex_);
    return {writes_.begin(), writes_.end()};
}

// --- Threads and the machine

Vx::Ptr<iLock> ScriptedPlatform::createLock(unsigned int flags)
{
    enter("createLock", [&] { return "(" + std::to_string(flags) + ")"; });
    auto* lock = new ScriptedObjects::Lock(PlatformProxy::createLock(flags));
    return Vx::Ptr<iLock>(&lock->refCount, lock);
}

unsigned int ScriptedPlatform::currentThreadId()
{
    enter("currentThreadId");
    return threadId_ != 0 ? threadId_ : PlatformProxy::currentThreadId();
}

int ScriptedPlatform::numProcessors()
{
    enter("numProcessors");
    return processors_ >= 0 ? processors_ : PlatformProxy::numProcessors();
}

// --- Folders and settings

LightweightString<wchar_t> ScriptedPlatform::getFolder(int kind)
{
    enter("getFolder", [&] { return "(" + std::to_string(kind) + ")"; });
    return LightweightString<wchar_t>(std::wstring_view(folder_));
}

void ScriptedPlatform::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    enter("setOutputDiagnosticsFolder",
          [&] { return "(" + ScriptedObjects::narrow(PlatformProxy::toUTF8(folder)) + ")"; });
}

Vx::Ptr<iSettings> ScriptedPlatform::getSettings(int scope)
{
    enter("getSettings", [&] { return "(" + std::to_string(scope) + ")"; });
    auto* settings = new ScriptedObjects::Settings(*this, scope);
    return Vx::Ptr<iSettings>(&settings->refCount, settings);
}

// Different for different pairs of section and key, whatever they contain.
ScriptedPlatform::SettingKey ScriptedPlatform::settingKey(int scope, const std::string& section,
                                                          const std::string& key)
{
    return {scope,
            Text<char>(std::string_view(std::to_string(section.size()) + ':' + section + key))};
}

void ScriptedPlatform::setSetting(int scope, const std::string& section, const std::string& key,
                                  const std::string& value)
{
    const Guard guard(mutex_);
    settings_[settingKey(scope, section, key)] = std::string_view(value);
}

std::string ScriptedPlatform::setting(int scope, const std::string& section,
                                      const std::string& key) const
{
    const Guard guard(mutex_);
    return find(settings_, settingKey(scope, section, key));
}
