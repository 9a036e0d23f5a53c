// EditorHost.h - the example's application object: the whole life of a host.
#pragma once

#include "FramePool.h"

#include <Vx/VxApplication.h>
#include <Vx/VxIniFile.h>

/// A host application is a descendant of Vx::Application. Constructing it settles the folders
/// and tells whether the run before ended cleanly; start() is everything else.
class EditorHost : public Vx::Application {
public:
    /// \param ini the loaded configuration, which becomes the host's own
    /// \param crash whether to die in the middle, as if something had gone wrong
    EditorHost(VxIniFile ini, bool crash);

    /// The host's work. start() calls it, and shuts down when it returns.
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
