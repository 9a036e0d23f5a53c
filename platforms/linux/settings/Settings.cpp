#include "settings/Settings.h"

#include "settings/SettingsStore.h"

#include <Vx/LightweightString.h>
#include <pthread.h>
#include <type_traits>

namespace {

constinit SettingsStore stores[] = {SettingsStore(0), SettingsStore(1)};
static_assert(std::is_trivially_destructible_v<SettingsStore>,
              "settings can be used after every destructor has run");

SettingsKey keyOf(const LightweightString<char>& section, const LightweightString<char>& key)
{
    return {std::string(section.data(), section.length()), std::string(key.data(), key.length())};
}

class Settings final : public iSettings {
public:
    explicit Settings(SettingsStore& store) : store_(store) {}

    void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                  const LightweightString<char>& section) override
    {
        store_.set(keyOf(section, key), value);
    }

    LightweightString<char> getValue(const LightweightString<char>& key,
                                     const LightweightString<char>& defaultValue,
                                     const LightweightString<char>& section) override
    {
        std::string value;
        if (!store_.get(keyOf(section, key), value))
            return defaultValue;
        return LightweightString<char>(std::string_view(value));
    }

    void save() override { store_.save(); }

    unsigned int refCount = 0; // holders, counted by Vx::Ptr

private:
    SettingsStore& store_;
};

void prepareFork()
{
    for (SettingsStore& store : stores)
        store.beforeFork();
}

void parentAfterFork()
{
    for (SettingsStore& store : stores)
        store.afterForkInParent();
}

void childAfterFork()
{
    for (SettingsStore& store : stores)
        store.afterForkInChild();
}

} // namespace

Vx::Ptr<iSettings> makeSettings(int scope)
{
    [[maybe_unused]] static const int registered =
        pthread_atfork(prepareFork, parentAfterFork, childAfterFork);
    if (scope != 0 && scope != 1)
        return {};
    Settings* settings = new Settings(stores[scope]);
    return Vx::Ptr<iSettings>(&settings->refCount, settings);
}
