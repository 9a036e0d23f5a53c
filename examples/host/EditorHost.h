// EditorHost.h - The application object of the example.
#pragma once

#include "FramePool.h"

#include <Vx/VxApplication.h>
#include <Vx/VxIniFile.h>

/// A host application derives from Vx::Application. The constructor finds the folders and
/// whether the previous run ended cleanly; start() does everything else.
class EditorHost : public Vx::Application {
public:
    /// \param ini the loaded configuration
    /// \param crash whether run() kills the process at its end, as a crash would
    EditorHost(VxIniFile ini, bool crash);

    /// Does the host's work. start() calls it, and shuts down when it returns.
    void run() override;

    bool succeeded() const { return succeeded_; }

private:
    void greet();
    void arrangeTheEnd();
    void publishTheConfiguration();
    void editTheConfiguration();
    void playAFewFrames();

    VxIniFile ini_;
    bool crash_;
    FramePool frames_;
    bool succeeded_ = false;
};
