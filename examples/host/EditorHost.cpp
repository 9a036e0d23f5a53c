#include "EditorHost.h"

#include "Clip.h"
#include "Document.h"

#include <Vx/VxNamedObjects.h>
#include <Vx/VxStringUtils.h>
#include <Vx/VxVersion.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace {

Vx::NamedObjectsNamespace& globalNames()
{
    return *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
}

// The name by which the modules of this host find the configuration.
constexpr const char* kConfiguration = "configuration";

} // namespace

EditorHost::EditorHost(VxIniFile ini, bool crash)
    // The name is also the name of our folder in the user's data folder.
    : Application(L"Example Editor", L"1.0"),
      ini_(std::move(ini)),
      crash_(crash),
      frames_("Frames of the example")
{}

void EditorHost::run()
{
    greet();
    arrangeTheEnd();
    publishTheConfiguration();
    showClip(ini_);
    editTheConfiguration();
    playAFewFrames();
    if (crash_) {
        std::cout << "run: dying now, as a crash would\n" << std::flush;
        std::raise(SIGKILL);
    }
    std::cout << "run: done\n";
}

void EditorHost::greet()
{
    std::cout << "start: " << toUTF8(Vx::getVersionLabel()) << ", library " << vxDllVersionStr()
              << '\n';

    // The platform stores settings; those of scope 0 belong to this program.
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(0);
    const int runs = std::atoi(settings->getValue("Runs", "0", "Example").c_str());
    settings->setValue("Runs", std::to_string(runs + 1).c_str(), "Example");
    if (runs == 0)
        std::cout << "start: this is the first run\n";
    else
        std::cout << "start: the previous run "
                  << (previousExitWasNormal() ? "ended cleanly\n" : "did NOT end cleanly\n");
    // The constructor has already removed the marker of a clean exit, and a setting outlives the
    // process: if this run dies from here on, the next one says so.
}

void EditorHost::arrangeTheEnd()
{
    // Callbacks run in order of priority, lowest first, not in the order of their addition.
    // Priorities up to 200 belong to the first pass. What those callbacks may still need is
    // released in the second.
    const auto withdraw = [] {
        globalNames().remove<VxIniFile>(kConfiguration);
        std::cout << "stop: 250, the second pass: the configuration is withdrawn\n";
    };
    const auto emptyCaches = [] { std::cout << "stop: 150, the first pass: caches are emptied\n"; };
    const auto closeDevices = [](Shutdown::eExitType type) {
        std::cout << "stop: 10, the first pass: devices are closed, exit type " << type << '\n';
    };
    atShutdown(withdraw, 250);
    atShutdown(emptyCaches, 150);
    atShutdown(closeDevices, 10);
}

void EditorHost::publishTheConfiguration()
{
    // From here on every module of the process finds the document by its type and this name.
    // The registry does not own it: the publisher keeps the object alive.
    globalNames().create<VxIniFile>(kConfiguration, &ini_);
    std::cout << "run: the configuration is published, " << ini_.getNumSections() << " sections:\n";
    print(ini_);
}

void EditorHost::editTheConfiguration()
{
    // This is how another module, which knows only the name, edits the document. A document may
    // be used by one thread at a time; the lock of the name keeps the others out.
    const Vx::NamedObjectsNamespace::ScopedLock<VxIniFile> hold(globalNames(), kConfiguration);
    VxIniFile& ini = *globalNames().find<VxIniFile>(kConfiguration);

    // The document ignores case in section names: "playback" finds the section "Playback".
    std::cout << "run: the volume is " << valueOf(ini, "playback", "volume") << '\n';
    setValue(ini, "Playback", "volume", "0.60");

    // Not save(): a file that begins with comments has an anonymous section, and save() never
    // returns from that.
    LightweightString<wchar_t> copy = getUserDataPath();
    copy += L"editor.ini";
    if (!ini.saveAll(copy)) {
        std::cerr << "host: cannot save " << toUTF8(copy) << '\n';
        return;
    }
    const VxIniFile again(copy, /*loadNow=*/true, /*sectionNameCaseSensitive=*/false);
    std::cout << "run: set it to " << valueOf(again, "Playback", "volume") << " and saved a copy, "
              << countComments(again) << " of " << countComments(ini) << " comments in it\n";
    succeeded_ = true;
}

void EditorHost::playAFewFrames()
{
    // The pool counts every pop and push, and logs the demand at shutdown with priority 100:
    // after the devices are closed, before the caches are emptied.
    for (int i = 0; i < 10; ++i) {
        Frame* const shown = frames_.pop();
        Frame* const next = frames_.pop();
        frames_.push(shown);
        frames_.push(next);
    }
    std::cout << "run: played 20 frames from a pool of " << frames_.size() << '\n';
}
