// Shell.h - the user's folders and settings.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>

class Shell final : public iShell {
public:
    LightweightString<wchar_t> getFolder(int kind) override;
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override;
    Vx::Ptr<iSettings> getSettings(int scope) override;
};
