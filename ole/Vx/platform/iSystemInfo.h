// platform/iSystemInfo.h - facts about the machine.
#pragma once

/// Facts about the machine.
///
/// Threads: any.
class iSystemInfo {
public:
    /// Logical processors that this process may use. 0 means "not known yet": the
    /// library asks again.
    virtual int numProcessors() = 0;

protected:
    ~iSystemInfo() = default;
};
