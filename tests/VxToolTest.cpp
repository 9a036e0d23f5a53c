// The tool as its users run it: a process with arguments, files, output and an exit status.
#include <ScratchFolder.h>
#include <fcntl.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Json = nlohmann::json;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string quoted(std::string word)
{
    for (std::size_t at = 0; (at = word.find('\'', at)) != word.npos; at += 4)
        word.replace(at, 1, "'\\''");
    return " '" + word + "'";
}

/// A folder of its own for each test, which is also the home of the tool.
class VxTool : public testing::Test, protected ScratchFolder {
protected:
    VxTool() { fs::create_directory(path("home")); }

    std::string write(const std::string& name, const std::string& content) const
    {
        put(name, content);
        return path(name);
    }

    Outcome run(const std::string& program, const Words& arguments, const std::string& output) const
    {
        std::string command = "env -i PATH=\"$PATH\" HOME=" + path("home");
        for (const std::string& variable : variables_)
            command += quoted(variable);
        command += quoted(program);
        for (const std::string& word : arguments)
            command += quoted(word);
        command += " </dev/null >" + output + " 2>" + path("err");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                output == path("out") ? get("out") : "", get("err")};
    }
    Outcome vx(const Words& arguments) const { return run(VX_TOOL, arguments, path("out")); }

    /// Runs the tool and compares: exit status, output, and a part of the complaint, if any.
    void expect(const Words& arguments, int status, const std::string& out,
                const std::string& complaint = "") const
    {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const Outcome done = vx(arguments);
        EXPECT_EQ(done.status, status);
        EXPECT_EQ(done.out, out);
        EXPECT_NE(done.err.find(complaint), std::string::npos) << done.err;
        EXPECT_EQ(done.err.empty(), complaint.empty()) << done.err;
    }

    Json json(Words arguments) const
    {
        arguments.push_back("--json");
        return Json::parse(vx(arguments).out, nullptr, false);
    }

    /// What the tool writes to a terminal.
    std::string onTerminal(const Words& arguments) const
    {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        EXPECT_EQ(grantpt(terminal), 0);
        EXPECT_EQ(unlockpt(terminal), 0);
        const std::string other = ptsname(terminal);
        EXPECT_EQ(run(VX_TOOL, arguments, other).status, 0);
        // Nobody holds the other side any more: reading ends when all has been read.
        std::string written;
        char part[4096];
        for (ssize_t n; (n = ::read(terminal, part, sizeof part)) > 0;)
            written.append(part, static_cast<std::size_t>(n));
        close(terminal);
        return written;
    }

    /// The findings of a check as "line:column code", one behind the other.
    std::string findings(const std::string& content)
    {
        const Outcome checked = vx({"ini", "check", write("checked.ini", content), "--json"});
        const Json report = Json::parse(checked.out, nullptr, false);
        if (report.is_discarded())
            return "no JSON: " + checked.err;
        std::string list;
        int warnings = 0;
        for (const Json& finding : report["findings"]) {
            const std::string code = finding["code"];
            codes_.insert(code);
            warnings += finding["kind"] == "warning";
            list += (list.empty() ? "" : ", ") + finding["line"].dump() + ":" +
                    finding["column"].dump() + " " + code;
        }
        EXPECT_EQ(checked.status, warnings != 0 ? 1 : 0) << list;
        EXPECT_EQ(report["warnings"], warnings);
        return list;
    }

    Words variables_;
    std::set<std::string> codes_; ///< of all findings so far
};

TEST_F(VxTool, CheckPointsAtWhatLoadsDifferently)
{
    const struct {
        const char* name;
        std::string content;
        const char* expected;
    } rows[] = {
        {"nothing to say", "[A]\r\nx=1\r\n; note\r\ny=a b\r\n", ""},
        {"mark before a header", "\xEF\xBB\xBF[A]\nx=1\n",
         "1:1 byte-order-mark, 1:1 top-lines, 1:1 stray-line, 2:1 top-name"},
        {"mark before a name", "\xEF\xBB\xBFx=1\n",
         "1:1 byte-order-mark, 1:1 top-lines, 1:1 top-name"},
        {"lost at the end", "[A]\nn=caf\xC3\xA9\r\n", "2:6 lost-ending"},
        {"lost at the beginning", "[A]\n\xC3\xA9t=1\n", "2:1 lost-beginning"},
        {"kept at the beginning of the file", "\xC3\xA9t=1\n", "1:1 top-lines, 1:1 top-name"},
        {"lost altogether", "[A]\n\xC3\xA9\nx=1\n", "2:1 lost-ending"},
        {"kept in the middle", "[A]\nn=M\xC3\xBCller\n", ""},
        {"header without an end", "[A]\nx=1\n[B\ny=2\n", "3:1 unclosed-header"},
        {"blanks in a header", "[ A ]\nx=1\n", "1:2 blanks-around-section"},
        {"blanks around a name", "[A]\nk = v\n", "2:1 blanks-around-name"},
        {"blanks before a value", "[A]\nk= v\n", "2:3 blanks-before-value"},
        {"name twice", "[A]\nk=1\nk=2\n[B]\nk=3\n", "3:1 duplicate-name"},
        {"name in another case", "[A]\nk=1\nK=2\n", ""},
        {"section twice", "[A]\nk=1\n[B]\nx=1\n[a]\nk=2\n",
         "5:1 duplicate-section, 6:1 duplicate-name"},
        {"names on top", "x=1\ny=2\n[A]\nz=1\n", "1:1 top-lines, 1:1 top-name, 2:1 top-name"},
        {"section without lines", "[A]\n[B]\nx=1\n[C]\n", "1:1 empty-section, 4:1 empty-section"},
        {"reserved name", "[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n", "1:1 reserved-name"},
        {"value without a name", "[A]\n=1\n", "2:1 no-name"},
        {"neither", "[A]\nword\n", "2:1 stray-line"},
        {"zero byte", std::string("[A]\nx=1\0y\n", 10), "2:4 zero-byte"},
        {"control character", "[A]\nx=a\x1b!\n", "2:4 control-character"},
        {"line ends of another time", "[A]\rx=1\r",
         "1:1 top-lines, 1:1 unclosed-header, 1:4 carriage-return"},
        {"empty", "", "1:1 empty-file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(findings(row.content), row.expected);
    }
    EXPECT_EQ(findings(std::string("\xFF\xFE[\0A\0]\0", 8)).find("utf-16"), 4u);

    std::ifstream page(VX_SOURCES "/vx.1");
    const std::string manual(std::istreambuf_iterator<char>(page), {});
    for (std::string code : codes_) {
        for (std::size_t at = 0; (at = code.find('-', at)) != std::string::npos; at += 2)
            code.insert(at, "\\");
        EXPECT_NE(manual.find(code), std::string::npos) << code << " is not in the man page";
    }
    EXPECT_EQ(codes_.size(), 20u);
}

TEST_F(VxTool, CheckPrintsAsCompilersDo)
{
    const std::string file = write("a.ini", "[A]\nname=Ren\xC3\xA9\nk=1\nk=2\x1b\n");
    expect({"ini", "check", file}, 1,
           file +
               ":2:9: warning: '\xC3\xA9' at the end of the line is lost: it loads as 'name=Ren'"
               " [lost-ending]\n" +
               file +
               ":4:1: warning: 'k' stands in line 3 already: that one is found, this one"
               " never is [duplicate-name]\n");
}

TEST_F(VxTool, SetChangesOneLineOrSaysWhyNot)
{
    const char* const one = "[A]\nx=1\n";
    const struct {
        const char* name;
        const char *before, *section, *entry, *value, *after, *complaint = "";
    } rows[] = {
        {"changes", "; top\r\n[A]\r\n  x=1 \r\n\r\n; end", "A", "x", "2",
         "; top\r\n[A]\r\n  x=2\r\n\r\n; end"},
        {"first of two", "[A]\nx=1\nx=2\n", "A", "x", "7", "[A]\nx=7\nx=2\n"},
        {"same value, same bytes", "[A]\nx=1 \t\n", "A", "x", "1", "[A]\nx=1\n"},
        {"any case of the section", "[Video]\nx=1\n", "VIDEO", "x", "2", "[Video]\nx=2\n"},
        {"case of the name counts", one, "A", "X", "2", "[A]\nx=1\nX=2\n"},
        {"adds behind the last pair", "[A]\nx=1\n\n; about B\n[B]\ny=1\n", "A", "z", "2",
         "[A]\nx=1\nz=2\n\n; about B\n[B]\ny=1\n"},
        {"adds behind a bare header", "[A]\n; nothing\n[B]\ny=1\n", "A", "z", "2",
         "[A]\nz=2\n; nothing\n[B]\ny=1\n"},
        {"no end, added", "[A]\nx=1", "A", "y", "2", "[A]\nx=1\ny=2\n"},
        {"no end, changed", "[A]\nx=1", "A", "x", "2", "[A]\nx=2"},
        {"a new section", "[A]\r\nx=1\r\n", "B", "y", "2", "[A]\r\nx=1\r\n\r\n[B]\r\ny=2\r\n"},
        {"the second block", "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\n", "A", "n", "2",
         "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\nn=2\n"},
        {"on top", "; first\n\n[A]\nx=1\n", "-", "n", "2", "; first\nn=2\n\n[A]\nx=1\n"},
        {"on top of headers only", "[A]\nx=1\n", "-", "n", "2", "n=2\n[A]\nx=1\n"},
        {"lost letters go with the value", "[A]\nx=caf\xC3\xA9\r\ny=1\n", "A", "x", "tea",
         "[A]\nx=tea\r\ny=1\n"},
        {"blanks in the name", "[A]\nx = 1\n", "A", "x ", "2", "[A]\nx =2\n"},
        {"brackets", one, "A", "x", "[a,b]", "[A]\nx=[a,b]\n"},
        {"empty value", one, "A", "x", "", "[A]\nx=\n"},
        {"lost letter", one, "A", "x", "caf\xC3\xA9", one,
         "it would load as the name 'x' with the value 'caf'"},
        {"blank at the end", one, "A", "x", "1 ", one, "with the value '1'"},
        {"two lines", one, "A", "x", "1\n2", one, "a line break cannot stand inside a line"},
        {"a header", one, "A", "[x", "1]", one, "the line would be a section header"},
        {"name with =", one, "A", "x=y", "1", one,
         "it would load as the name 'x' with the value 'y=1'"},
        {"blank before the name", one, "A", " x", "1", one, "it would load as the name 'x'"},
        {"section in two lines", one, "B\nC", "x", "1", one, "a line break"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expect({"ini", "set", write("a.ini", row.before), row.section, row.entry, row.value},
               *row.complaint != 0 ? 3 : 0, "", row.complaint);
        EXPECT_EQ(get("a.ini"), row.after);
    }
}

TEST_F(VxTool, SetMakesAFileOnlyWhenAsked)
{
    const std::string file = path("new.ini");
    expect({"ini", "set", file, "A", "x", "1"}, 3, "", "new.ini");
    EXPECT_FALSE(fs::exists(file));
    expect({"ini", "set", file, "A", "x", "1", "--create"}, 0, "");
    expect({"ini", "set", "-n", file, "A", "x", "--", "-3.5"}, 0, "[A]\r\nx=-3.5\r\n");
    EXPECT_EQ(get("new.ini"), "[A]\r\nx=1\r\n");
}

TEST_F(VxTool, UnsetRemovesTheNameEverywhereInItsSection)
{
    const std::string file = write("a.ini", "; x=0\n[A]\nx=1\n; kept\nx=2\n[B]\nx=3\n[a]\nx=4");
    expect({"ini", "unset", file, "A", "x"}, 0, "");
    EXPECT_EQ(get("a.ini"), "; x=0\n[A]\n; kept\n[B]\nx=3\n[a]\n");
    expect({"ini", "unset", file, "A", "x"}, 1, "", "vx: there is no 'x' in [A]\n");
}

/// Whatever the file: the tool agrees with the library on its lines, an edit reads back, and
/// touches no other line.
TEST_F(VxTool, EditsOfRandomFilesTouchOneLine)
{
    Seeded random;
    Words pieces{std::string(1, '\0'), "\n", "\n", "\n", "\r\n", "[B]\n", "x=1\n"};
    for (const char* piece : {"[", "]", "[A]", "=", " ", "\t", "\xC3\xA9", "\xEF\xBB\xBF", "x", ";",
                              "\x01", "A", "\xFF"})
        pieces.push_back(piece);
    const auto linesOf = [](std::string text) {
        std::replace(text.begin(), text.end(), '\r', '\n');
        std::multiset<std::string> lines;
        std::istringstream all(text);
        for (std::string line; std::getline(all, line);)
            lines.insert(line);
        lines.erase("");
        return lines;
    };
    int edits = 0;
    for (int round = 0; round < 60; ++round) {
        std::string before;
        for (auto i = random() % 25 + 1; i != 0; --i)
            before += pieces[random() % std::size(pieces)];
        SCOPED_TRACE(testing::PrintToString(before));
        const std::string file = write("a.ini", before);
        const std::string section = random() % 3 == 0 ? "-" : random() % 2 == 0 ? "A" : "B";
        expect({"ini", "set", file, section, "x", "42"}, 0, "");
        expect({"ini", "get", file, section, "x"}, 0, "42\n");
        const auto old = linesOf(before), now = linesOf(get("a.ini"));
        Words gone, came;
        std::set_difference(old.begin(), old.end(), now.begin(), now.end(),
                            std::back_inserter(gone));
        std::set_difference(now.begin(), now.end(), old.begin(), old.end(),
                            std::back_inserter(came));
        EXPECT_LE(gone.size(), 1u);                    // the old value
        EXPECT_LE(came.size(), gone.empty() ? 2 : 1u); // a header and a line, or the new value
        edits += get("a.ini") != before;
    }
    EXPECT_GT(edits, 30);
}

TEST_F(VxTool, ShowsADocumentAsItLoads)
{
    const std::string file =
        write("a.ini", "; top\n[Video]\nrate=25\nlonger=\x1b[31m\nrate=30\n[audio]\n; note\n");
    expect({"ini", "show", file}, 0,
           "(above the first header)\n  ; top\n\n[audio]\n  ; note\n\n[Video]\n"
           "  rate   = 25\n  longer = \\x1b[31m\n"
           "  rate   = 30   (never found: the name stands above)\n");
    EXPECT_EQ(json({"ini", "show", file, "VIDEO"})["sections"].dump(),
              R"([{"items":[{"name":"rate","value":"25"},{"name":"longer","value":"\u001b[31m"},)"
              R"({"name":"rate","value":"30"}],"section":"Video"}])");
    expect({"ini", "show", file, "Nothing"}, 1, "", "Nothing");
    expect({"ini", "show", "-c", file, "VIDEO"}, 1, "", "has no section [VIDEO]");
    expect({"ini", "show", write("b.ini", "[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n")}, 0,
           "(above the first header)\n  x = 1\n");
}

TEST_F(VxTool, GetsTheValueThatIsFound)
{
    const std::string file = write("a.ini", "v=1\n[A]\nx=1\nx=2\nk = v\ne=\n");
    expect({"ini", "get", file, "A", "x"}, 0, "1\n");
    expect({"ini", "get", file, "a", "x", "--all"}, 0, "1\n2\n");
    expect({"ini", "get", file, "A", "x", "--all", "--json"}, 0, "[\n  \"1\",\n  \"2\"\n]\n");
    expect({"ini", "get", file, "A", "e"}, 0, "\n");
    expect({"ini", "get", file, "-", "v"}, 0, "1\n");
    expect({"ini", "get", file, "A", "k "}, 0, " v\n");
    expect({"ini", "get", file, "A", "k"}, 1, "", "there is no 'k' in [A], but there is 'k '\n");
    expect({"ini", "get", file, "A", "X"}, 1, "", "there is no 'X' in [A], but there is 'x'\n");
    expect({"ini", "get", file, "-c", "a", "x"}, 1, "",
           "vx: there is no section [a], but there is [A]\n");
}

TEST_F(VxTool, ComparesByMeaning)
{
    const std::string a = write("a.ini", "; one\r\n[A]\r\nx=1\r\ny=2\r\n[B]\r\nz=1\r\n");
    const std::string b = write("b.ini", "[b]\nz=1\n\n[A]\ny=2\nx=1\n# two\n");
    const std::string c = write("c.ini", "[A]\nx=1\nx=5\n[C]\nn=1\n");
    expect({"ini", "diff", a, b}, 0, "");
    expect({"ini", "diff", a, c}, 1, "[A]\n- x=1\n+ x=1\n+ x=5\n- y=2\n[B]\n- z=1\n[C]\n+ n=1\n");
    expect({"ini", "diff", "-c", a, b}, 1, "[B]\n- z=1\n[b]\n+ z=1\n");
    EXPECT_EQ(json({"ini", "diff", b, c})["differences"].size(), 4u);
}

TEST_F(VxTool, MakesAndReadsUuids)
{
    std::set<std::string> all;
    std::istringstream made(vx({"uuid", "new", "-n", "50"}).out + vx({"uuid"}).out);
    for (std::string line; std::getline(made, line);)
        all.insert(line);
    EXPECT_EQ(all.size(), 51u);
    EXPECT_EQ(all.begin()->size(), 36u);
    expect({"uuid", "show", "{0123ABCD-4567-49EF-8123-456789ABCDEF}"}, 0,
           "0123abcd-4567-49ef-8123-456789abcdef\n"
           "  stored bytes  cd ab 23 01 67 45 ef 49 81 23 45 67 89 ab cd ef\n"
           "  version       4 (RFC 4122)\n");
    expect({"uuid", "show", "0123abcd-4567-89ef-0123-456789abcde"}, 1, "", "35 bytes");
    expect({"uuid", "show", "{0123abcd-4567-89ef-0123-456789abcdef)"}, 1, "", "braces");
    expect({"uuid", "show", "0123abcd-4567-89ef-0123-456789abcdxy"}, 1, "", "hexadecimal");
    expect({"uuid", "show", "00000000-0000-0000-0000-000000000000"}, 1, "", "all zero");
    expect({"uuid", "show", std::string(36, '0')}, 1, "", "hexadecimal");
}

TEST_F(VxTool, TranslatesPlayoutCodesBothWays)
{
    expect({"fcc", "mjpa"}, 0, "mjpa (0x61706a6d) plays out as MJPG (0x47504a4d)\n");
    expect({"fcc", "MJPG"}, 0,
           "MJPG (0x47504a4d) is not translated\nwhat plays out as MJPG: mjpa\n");
    expect({"fcc", "dvc"}, 0, "'dvc ' (0x20637664) plays out as dvsd (0x64737664)\n");
    expect({"fcc", "1235"}, 0, "1235 (0x000004d3) plays out as AVdx (0x78645641)\n");
    expect({"fcc", "--code", "1235"}, 0, "1235 (0x35333231) is not translated\n");
    expect({"fcc", "AVdr"}, 0,
           "AVdr (0x72645641) is not translated\nwhat plays out as AVdr: 1256 1270 1271 1272"
           " 1273 1274 AVdh\n");
    expect({"fcc", "abcde"}, 2, "", "abcde");
    expect({"fcc", "4294967296"}, 2, "", "4294967296");
    EXPECT_EQ(json({"fcc"}).size(), 16u);
}

TEST_F(VxTool, ExplainsMetadataTexts)
{
    const struct {
        const char* text;
        int status;
        const char* reason;
        const char* fields; // name=value of each, and ! where there is a note
    } rows[] = {
        {"Metadata::VideoSequence,1,25,1,", 0, "", "frameRate=25 set=true "},
        {"Metadata::Core,1,1920,1080,-1,3,8,24,1,", 0, "",
         "width=1920 height=1080 dataFormat=-1 layout=0! bitsPerComponent=8 bitsPerPixel=24 "
         "set=true "},
        {"Metadata::BufferFormat,1,0,-5,7,2,", 0, "",
         "orientation=0 stride=4294967291! (constant)=! set=true! "},
        {"Metadata::Video,1,1,2,abc,0", 0, "",
         "scanMode=1 aspectRatio=2 videoFormatUID=abc set=false "},
        {"Metadata::VideoSample,1,,2x,3,1,", 0, "",
         "polarity=0! colorimetry=2! gamutScaling=3 set=true "},
        {"Metadata::VideoSequence,2,25,1,", 1, "version '2' reads as 2; only 1 is known",
         "frameRate= set= "},
        {"Metadata::VideoSequence,1,25,1,extra,", 1, "5 pieces; a Metadata::VideoSequence has 4",
         "frameRate= set= (too many)= "},
        {"metadata::VideoSequence,1,25,1,", 1,
         "no record is called 'metadata::VideoSequence'; 'Metadata::VideoSequence' is, and case"
         " counts",
         "frameRate= set= "},
        {"", 1, "1 piece between commas; every record has more than 2", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(vx({"meta", row.text}).status, row.status);
        const Json explained = json({"meta", row.text});
        EXPECT_EQ(explained["reason"], row.reason);
        std::string fields;
        for (const Json& field : explained["fields"])
            fields += std::string(field["field"]) + "=" + std::string(field["value"]) +
                      (field["note"] == "" ? " " : "! ");
        EXPECT_EQ(fields, row.fields);
    }
    expect({"meta", "Metadata::VideoSequence,1,25,1,"}, 0,
           "Metadata::VideoSequence: accepted\nPIECE  FIELD      TEXT  VALUE  NOTE\n"
           "    2  frameRate  25    25\n    3  set        1     true\n");
}

const char kPoolLog[] =
    "\n----------------------------------------------------------- Thu Jan  8 10:00:00 2026\n\n"
    "Frames: maxInUse 12 Peak Demand 250.00 allocs/sec @ 81234.50 Thu Jan  8 09:59:00 2026\n"
    "A: maxInUse 3 <b>: maxInUse 4 Peak Demand 0.00 allocs/sec @ 0.00 Thu Jan  1 00:00:00 1970\n"
    "\n----------------------------------------------------------- Fri Jan  9 11:00:00 2026\n\n"
    "Frames: maxInUse 20 Peak Demand 500,25 allocs/sec @ 91234.50 Fri Jan  9 10:59:00 2026\n"
    "torn line\n";

TEST_F(VxTool, ShowsThePoolLog)
{
    const std::string log = write("pool.log", kPoolLog);
    expect({"pools", log}, 0,
           "RUN  WRITTEN                   POOL               MOST IN USE  PEAK/S  PEAK AT\n"
           "  1  Thu Jan  8 10:00:00 2026  Frames                      12  250.00  "
           "Thu Jan  8 09:59:00 2026\n"
           "  1  Thu Jan  8 10:00:00 2026  A: maxInUse 3 <b>            4    0.00  -\n"
           "  2  Fri Jan  9 11:00:00 2026  Frames                      20  500.25  "
           "Fri Jan  9 10:59:00 2026\n",
           "vx: " + log + ":10: no line of a pool log, left out\n");
    EXPECT_EQ(json({"pools", log})[1]["pools"][0]["peakPerSecond"], 500.25);
    expect({"pools", log, "--pool", "Nobody"}, 1, "", "Nobody");
    expect({"pools", write("empty.log", "")}, 1, "", "empty.log");
}

TEST_F(VxTool, DrawsThePoolLog)
{
    write("pool.log", kPoolLog);
    EXPECT_EQ(vx({"pools", "--plot", "--pool", "Frames", path("pool.log")}).out,
              "Peak demand, allocations a second\n\nFrames\n"
              "  Thu Jan  8 10:00:00 2026      250.00  ####################\n"
              "  Fri Jan  9 11:00:00 2026      500.25  ########################################\n");
    ASSERT_EQ(vx({"pools", "--plot", "-o", path("peaks.svg"), path("pool.log")}).status, 0);
    const std::string svg = get("peaks.svg");
    EXPECT_EQ(svg.substr(0, 4), "<svg");
    EXPECT_NE(svg.find("A: maxInUse 3 &lt;b&gt;"), std::string::npos);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_NE(svg.find("Frames: 500.25, Fri Jan  9 11:00:00 2026"), std::string::npos);
    EXPECT_EQ(vx({"pools", "-o", path("x.svg"), path("pool.log")}).status, 2);
}

TEST_F(VxTool, AnswersScriptsByItsExitStatus)
{
    write("a.ini", "[A]\nx=1\n");
    fs::create_directory(path("folder"));
    const struct {
        Words words;
        int status;
    } rows[] = {
        {{}, 2},
        {{"ini"}, 2},
        {{"ini", "get", path("a.ini"), "A"}, 2},
        {{"ini", "show", path("a.ini"), "--nothing"}, 2},
        {{"--color", "pink", "version"}, 2},
        {{"--help"}, 0},
        {{"--version"}, 0},
        {{"ini", "show", path("missing.ini")}, 3},
        {{"ini", "show", path("folder")}, 3},
        {{"ini", "set", path("folder"), "A", "x", "1", "--create"}, 3},
        {{"ini", "set", path("none/a.ini"), "A", "x", "1", "--create"}, 3},
        {{"pools", path("missing.log")}, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const Outcome done = vx(row.words);
        EXPECT_EQ(done.status, row.status);
        EXPECT_EQ(done.err.empty(), row.status == 0) << done.err;
    }
    const Outcome full = run(VX_TOOL, {"ini", "show", path("a.ini")}, "/dev/full");
    EXPECT_EQ(full.status, 3);
    EXPECT_EQ(full.err, "vx: standard output could not be written\n");
}

TEST_F(VxTool, ColoursOnlyWhereItMay)
{
    const Words show{"ini", "show", write("a.ini", "[A]\nx=1\n")};
    variables_ = {"TERM=xterm"};
    expect(show, 0, "[A]\n  x = 1\n");
    EXPECT_NE(vx({"--color", "always", "ini", "show", show[2]}).out.find('\x1b'),
              std::string::npos);
    EXPECT_NE(onTerminal(show).find('\x1b'), std::string::npos);
    variables_.push_back("NO_COLOR=1");
    EXPECT_EQ(onTerminal(show), "[A]\r\n  x = 1\r\n");
}

TEST_F(VxTool, SaysWhichVersionItIsAndLeavesNothingBehind)
{
    const Json told = json({"version"});
    const std::string version = told["library"], label = told["label"];
    expect({"--version"}, 0, version + "\n");
    EXPECT_EQ(version.substr(0, 3), "17.");
    EXPECT_EQ(told["release"], "2025");
    EXPECT_EQ(label.substr(0, 6), "vx 17.");
    for (const auto& entry : fs::recursive_directory_iterator(path("home")))
        EXPECT_FALSE(entry.is_regular_file()) << "it leaves its hosts' settings alone";
}

/// What completion offers is what the tool takes, command by command.
TEST_F(VxTool, CompletesWhatItTakes)
{
    using Set = std::set<std::string>;
    const auto offered = [&](const Words& line) {
        std::string script = "source " VX_SOURCES "/vx.bash; COMP_WORDS=(vx";
        for (const std::string& word : line)
            script += quoted(word);
        script += "); COMP_CWORD=" + std::to_string(line.size()) +
                  "; _vx; printf '%s\\n' \"${COMPREPLY[@]}\"";
        Set words;
        std::istringstream all(run("bash", {"-c", script}, path("out")).out);
        for (std::string word; std::getline(all, word);)
            words.insert(word);
        words.erase("");
        return words;
    };
    const auto optionsIn = [](const std::string& help) {
        Set options;
        std::istringstream all(help.substr(0, help.find("\nExample")));
        for (std::string line; std::getline(all, line);) {
            const std::size_t at = line.find("--");
            if (line.compare(0, 3, "  -") == 0 && at < 8)
                options.insert(line.substr(at, line.find_first_of(" ,", at) - at));
        }
        return options;
    };
    const Set ini = {"check", "diff", "get", "set", "show", "unset"};
    EXPECT_EQ(offered({""}), (Set{"fcc", "ini", "meta", "pools", "uuid", "version"}));
    EXPECT_EQ(offered({"ini", ""}), ini);
    EXPECT_EQ(offered({"uuid", ""}), (Set{"new", "show"}));

    std::vector<Words> lines{{},       {"uuid", "new"}, {"uuid", "show"}, {"fcc"},
                             {"meta"}, {"pools"},       {"version"}};
    for (const std::string& command : ini)
        lines.push_back({"ini", command});
    for (Words line : lines) {
        SCOPED_TRACE(testing::PrintToString(line));
        line.push_back("--help");
        const Outcome help = vx(line);
        EXPECT_EQ(help.status, 0);
        line.back() = "--";
        EXPECT_EQ(offered(line), optionsIn(help.out));
    }

    const std::string file = write("a.ini", "[Video In]\nrate=1\n; no=1\n[Audio]\nx=1\n");
    EXPECT_EQ(offered({"ini", "get", file, ""}), (Set{"Audio", "Video\\ In"}));
    EXPECT_EQ(offered({"ini", "get", file, "Video In", ""}), Set{"rate"});
}

} // namespace
