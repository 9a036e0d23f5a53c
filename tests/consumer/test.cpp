// A document that cannot be opened, without a disk.
#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>

int main()
{
    ScriptedPlatform platform;
    platform.failCall("openFile", 1);
    platform.setClock(7);
    VxIniFile document(true);
    bool failed = false;
    try {
        document.load(L"/a.ini", '\n');
    } catch (const ScriptedFault&) {
        failed = true;
    }
    return failed && OS()->systemUtils()->msecsNow() == 7 ? 0 : 1;
}
