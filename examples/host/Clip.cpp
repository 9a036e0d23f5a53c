#include "Clip.h"

#include "Document.h"

#include <Vx/Image/Core.h>
#include <Vx/Image/PlayoutFCC.h>
#include <Vx/Image/UUID.h>
#include <Vx/Image/VideoSequence.h>
#include <algorithm>
#include <cstring>
#include <iostream>

namespace {

using Text = LightweightString<char>;

// A four-character code is a number whose lowest byte is the first character.
unsigned int codeOf(const Text& text)
{
    unsigned int code = 0;
    std::memcpy(&code, text.c_str(), std::min(text.length(), 4u));
    return code;
}

Text textOf(unsigned int code)
{
    char characters[4];
    std::memcpy(characters, &code, 4);
    return Text(characters, 4);
}

} // namespace

void showClip(const VxIniFile& ini)
{
    // The parsers never throw: an invalid string yields a value that reports itself invalid.
    const Vx::UUID id(valueOf(ini, "Clip", "id"));
    if (!id.valid()) {
        std::cout << "run: no clip in the configuration\n";
        return;
    }
    std::cout << "run: clip " << valueOf(ini, "Clip", "name") << ", " << id << '\n';

    const Vx::Image::Core::Data image(valueOf(ini, "Clip", "image"));
    if (image.getCoreDataSet())
        std::cout << "     " << image.getWidth() << " x " << image.getHeight() << " pixels, "
                  << image.getBitsPerComponent() << " bits a component\n";

    const Vx::Image::VideoSequence::Data sequence(valueOf(ini, "Clip", "sequence"));
    if (sequence.getVideoSequenceDataSet())
        std::cout << "     frame rate code " << static_cast<int>(sequence.getFrameRate()) << '\n';

    const Text essence = valueOf(ini, "Clip", "essence");
    std::cout << "     stored as " << essence << ", played out as "
              << textOf(Vx::lookupPlayoutFCC(codeOf(essence))) << '\n';
}
