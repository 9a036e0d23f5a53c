// platform/iSystemInfo.h - Facts about the machine.
#pragma once

/// Facts about the machine.
///
/// Thread safety: every operation may be called from any thread at any time.
class iSystemInfo {
public:
    /// Returns the number of logical processors that this process may use, never negative. The
    /// library keeps the answer, except 0, which means "not known yet".
    virtual int numProcessors() = 0;

protected:
    ~iSystemInfo() = default;
};
