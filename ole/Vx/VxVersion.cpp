#include <Vx/VxVersion.h>

#include <Vx/VxApplication.h>
#include <Vx/VxStringUtils.h>
#include <string_view>

namespace {

// The build defines the three constants.
constexpr std::string_view kVersion = VX_LIBRARY_VERSION;
constexpr std::string_view kBuildNumber = VX_BUILD_NUMBER;
constexpr std::string_view kBuildDate = VX_BUILD_DATE;

static_assert(kVersion.substr(kVersion.rfind('.') + 1) == kBuildNumber,
              "the build number is the last field of the version");
static_assert(kBuildDate.size() == 11 && kBuildDate[3] == ' ' && kBuildDate[6] == ' ',
              "the build date has the form of __DATE__: month, padded day, year");

// Deliberate: without 2021 and 2024, in which no release appeared.
constexpr struct {
    const char* major;
    const wchar_t* year;
} kYears[] = {{"14", L"2020"}, {"15", L"2022"}, {"16", L"2023"}, {"17", L"2025"}};

} // namespace

const char* vxDllVersionStr() { return kVersion.data(); }

LightweightString<wchar_t> Vx::getVersionLabel()
{
    const Application& application = *Application::instance();
    LightweightString<wchar_t> label = application.getName();
    label += L' ';
    label += application.getVersion();
    label += L" (";
    label += WStringFromAscii(kBuildNumber.data());
    label += L") - ";
    label += LightweightString<char>(kBuildDate);
    return label;
}

LightweightString<wchar_t> Vx::getVersionDisplayString(const LightweightString<char>& majorVersion)
{
    for (const auto& row : kYears)
        if (majorVersion == row.major)
            return LightweightString<wchar_t>(row.year);
    return {};
}
