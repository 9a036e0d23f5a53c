// The Linux platform's files: what is read, what is replaced, and what faults leave behind.
#include <FileSystem.h>
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/platform/OS.h>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Vx::Ptr<iFile> openToRead(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, 1, 0, 1, 0);
}

Vx::Ptr<iFile> openToWrite(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, 2, 3, 0, 0);
}

bool write(const Vx::Ptr<iFile>& file, const std::string& text)
{
    return file->write(text.data(), static_cast<unsigned int>(text.size()));
}

/// Saves \p text under \p path in one write; false when something could be seen to fail.
bool save(const LightweightString<wchar_t>& path, const std::string& text)
{
    const Vx::Ptr<iFile> file = openToWrite(path);
    return file && write(file, text);
}

mode_t modeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

const std::string kOld = "old content\n";
const std::string kNew(200000, 'n'); // more than one buffer

} // namespace

TEST(ReadFile, GivesSizeAndBytes)
{
    const ScratchFolder folder;
    folder.put("a", std::string("ab\0cdef", 7));
    const Vx::Ptr<iFile> file = openToRead(folder.wide("a"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 7u);
    char bytes[8] = "xxxxxxx";
    EXPECT_TRUE(file->read(bytes, 3));
    EXPECT_TRUE(file->read(bytes + 3, 4));
    EXPECT_EQ(std::string(bytes, 7), std::string("ab\0cdef", 7));
    EXPECT_EQ(file->size(), 7u);
    EXPECT_TRUE(file->read(bytes, 0));
    EXPECT_FALSE(file->read(bytes, 1)) << "nothing is left";
    EXPECT_FALSE(file->write("x", 1));
    EXPECT_EQ(folder.get("a"), std::string("ab\0cdef", 7));
}

TEST(FileSystem, OpensNothingElse)
{
    const ScratchFolder folder;
    folder.put("file", kOld);
    std::filesystem::create_directory(folder.path("folder"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
    folder.put("large", "");
    ASSERT_EQ(truncate(folder.path("large").c_str(), off_t(1) << 32), 0);
    folder.put("largest", "");
    ASSERT_EQ(truncate(folder.path("largest").c_str(), (off_t(1) << 32) - 1), 0);

    LightweightString<wchar_t> withZero = folder.wide("file");
    withZero = LightweightString<wchar_t>((std::wstring(withZero.c_str()) + L'\0' + L"x").data(),
                                          withZero.length() + 2);
    const struct {
        const char* name;
        LightweightString<wchar_t> path;
        bool reads;
        bool writes;
    } rows[] = {
        {"empty path", {}, false, false},
        {"missing", folder.wide("missing"), false, true},
        {"missing folder", folder.wide("missing2/file"), false, false},
        {"file as folder", folder.wide("file/file"), false, false},
        {"folder", folder.wide("folder"), false, false},
        {"folder with slash", folder.wide("folder/"), false, false},
        {"file with slash", folder.wide("file/"), false, false},
        {"parent", folder.wide("folder/.."), false, false},
        {"fifo, without blocking", folder.wide("fifo"), false, false},
        {"link to itself", folder.wide("loop"), false, false},
        {"4 GiB", folder.wide("large"), false, true},
        {"4 GiB - 1", folder.wide("largest"), true, true},
        {"zero in the path", withZero, false, false},
        {"name too long", folder.wide(std::string(256, 'n')), false, false},
        {"path too long", folder.wide(std::string(5000, '/') + "file"), false, false},
        {"null device", L"/dev/null", false, true},
        {"file", folder.wide("file"), true, true},
    };
    const int descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(bool(openToRead(row.path)), row.reads);
        const Vx::Ptr<iFile> file = openToWrite(row.path);
        EXPECT_EQ(bool(file), row.writes);
        char byte;
        EXPECT_FALSE(file && file->read(&byte, 1)) << "for writing only";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(modeOf("/dev/null") & 0222, 0222u);

    folder.put("file", kOld);
    for (const auto& [access, disposition, flags, reserved] : {std::tuple(0, 0, 1, 0),
                                                               {1, 1, 1, 0},
                                                               {1, 0, 0, 0},
                                                               {1, 0, 1, 1},
                                                               {2, 0, 0, 0},
                                                               {2, 3, 1, 0},
                                                               {2, 3, 0, 1},
                                                               {3, 3, 0, 0}})
        EXPECT_FALSE(OS()->fileSystem()->openFile(folder.wide("file"), access, disposition, flags,
                                                  reserved));
    EXPECT_EQ(folder.get("file"), kOld);
}

TEST(ReplacedFile, IsSeenWholeWhenTheLastHolderLetsGo)
{
    for (const std::string& before : {std::string("(none)"), kOld}) {
        SCOPED_TRACE(before);
        const ScratchFolder folder;
        if (before == kOld)
            folder.put("a", kOld);
        const std::string names = folder.names();
        Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        ASSERT_TRUE(file);
        std::string expected;
        for (int line = 0; line < 20000; ++line) {
            const std::string text = "line " + std::to_string(line) + "\r\n";
            expected += text;
            ASSERT_TRUE(write(file, text));
        }
        ASSERT_TRUE(write(file, kNew)) << "behind a part of a buffer";
        ASSERT_TRUE(write(file, "end"));
        expected += kNew + "end";
        EXPECT_EQ(file->size(), expected.size());
        EXPECT_TRUE(file->write(nullptr, 0));
        Vx::Ptr<iFile> second = file;
        file.reset();
        EXPECT_EQ(folder.get("a"), before);
        EXPECT_EQ(folder.names(), names) << "unnamed while it is written";
        second.reset();
        EXPECT_EQ(folder.get("a"), expected);
        EXPECT_EQ(folder.names(), "a ");
    }
}

TEST(ReplacedFile, NothingWrittenMakesAnEmptyFile)
{
    const ScratchFolder folder;
    folder.put("a", kOld);
    EXPECT_TRUE(openToWrite(folder.wide("a")));
    EXPECT_EQ(folder.get("a"), "");
}

TEST(ReplacedFile, FollowsLinksAndKeepsPermissions)
{
    const ScratchFolder folder;
    std::filesystem::create_directory(folder.path("real"));
    const std::string longName(255, 'n');
    for (const char* name : {"real/direct", "real/target"})
        folder.put(name, kOld);
    folder.put(longName, kOld);
    ASSERT_EQ(chmod(folder.path("real/direct").c_str(), 0640), 0);
    ASSERT_EQ(chmod(folder.path("real/target").c_str(), 0751), 0);
    ASSERT_EQ(symlink("real/target", folder.path("one").c_str()), 0);
    ASSERT_EQ(symlink(folder.path("one").c_str(), folder.path("two").c_str()), 0);
    ASSERT_EQ(symlink("real/new", folder.path("dangling").c_str()), 0);
    const mode_t mask = umask(027);
    const struct {
        const char* name;
        std::string path;
        std::string target;
        mode_t mode;
    } rows[] = {
        {"plain file", "real/direct", "real/direct", 0640},
        {"relative link", "one", "real/target", 0751},
        {"absolute link to a link", "two", "real/target", 0751},
        {"link to nothing yet", "dangling", "real/new", 0640},
        {"new file", "fresh", "fresh", 0640},
        {"longest name", longName, longName, 0644},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const bool linked = std::filesystem::is_symlink(folder.path(row.path));
        EXPECT_TRUE(save(folder.wide(row.path), row.name));
        EXPECT_EQ(folder.get(row.target), row.name);
        EXPECT_EQ(modeOf(folder.path(row.target)), row.mode);
        EXPECT_EQ(std::filesystem::is_symlink(folder.path(row.path)), linked);
    }
    umask(mask);
    EXPECT_EQ(folder.names(), "dangling fresh " + longName + " one real two ");
}
