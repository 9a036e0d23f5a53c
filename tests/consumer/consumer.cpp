// Uses a string, a document and an exception.
#include <Vx/LightweightString.h>
#include <Vx/VxException.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxVersion.h>
#include <cstdio>

int main()
{
    LightweightString<char> name("clip");
    const LightweightString<char> copy(name);
    name += ".mov";

    VxIniFile document(true);
    document.getSection("Video").push_back(Vx::AttribValuePair("rate", "25", '='));

    bool caught = false;
    try {
        VxIniFile::SectionIterator().name();
    } catch (const Vx::Exception::RuntimeError& error) {
        caught = error.line > 0;
    }
    std::printf("%s %s %s %u %d\n", vxDllVersionStr(), copy.c_str(), name.c_str(),
                document.getNumSections(), caught);
    return 0;
}
