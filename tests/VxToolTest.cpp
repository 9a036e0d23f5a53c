// vx as its users run it: a process with arguments, files, output and an exit status.
#include <ScratchFolder.h>
#include <nlohmann/json.hpp>
#include <regex>

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

/// Each test has a folder of its own, with an empty home folder in it.
class VxTool : public testing::Test, protected ScratchFolder {
protected:
    VxTool() { fs::create_directory(path("home")); }
    ~VxTool() override { EXPECT_TRUE(fs::is_empty(path("home"))) << "vx created files"; }

    std::string write(const std::string& name, const std::string& content) const
    {
        put(name, content);
        return path(name);
    }

    Outcome run(const std::string& program, const Words& arguments, const std::string& output) const
    {
        std::string command = "env -i PATH=\"$PATH\" HOME=" + path("home");
        command += quoted(program);
        for (const std::string& word : arguments)
            command += quoted(word);
        command += " </dev/null >" + output + " 2>" + path("err");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                output == path("out") ? get("out") : "", get("err")};
    }
    Outcome vx(const Words& arguments) const { return run(VX_TOOL, arguments, path("out")); }

    /// Runs vx and checks its exit status, its output and a part of its error message.
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

    /// The findings of `vx ini check` as a list of "line:column code".
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

    std::set<std::string> codes_; ///< of all findings so far
};

TEST_F(VxTool, CheckFindsLinesThatLoadDifferently)
{
    const struct {
        const char* name;
        std::string content;
        const char* expected;
    } rows[] = {
        {"no findings", "[A]\r\nx=1\r\n; note\r\ny=a b\r\n", ""},
        {"mark before a header", "\xEF\xBB\xBF[A]\nx=1\n",
         "1:1 byte-order-mark, 1:1 top-lines, 1:1 stray-line, 2:1 top-key"},
        {"mark before a key", "\xEF\xBB\xBFx=1\n",
         "1:1 byte-order-mark, 1:1 top-lines, 1:1 top-key"},
        {"lost at the end", "[A]\nn=caf\xC3\xA9\r\n", "2:6 lost-end"},
        {"lost at the start", "[A]\n\xC3\xA9t=1\n", "2:1 lost-start"},
        {"kept at the start of the file", "\xC3\xA9t=1\n", "1:1 top-lines, 1:1 top-key"},
        {"lost completely", "[A]\n\xC3\xA9\nx=1\n", "2:1 lost-end"},
        {"kept in the middle", "[A]\nn=M\xC3\xBCller\n", ""},
        {"header without an end", "[A]\nx=1\n[B\ny=2\n", "3:1 unclosed-header"},
        {"blanks in a header", "[ A ]\nx=1\n", "1:2 blanks-around-section"},
        {"blanks around a key", "[A]\nk = v\n", "2:1 blanks-around-key"},
        {"blanks before a value", "[A]\nk= v\n", "2:3 blanks-before-value"},
        {"key twice", "[A]\nk=1\nk=2\n[B]\nk=3\n", "3:1 duplicate-key"},
        {"key in another case", "[A]\nk=1\nK=2\n", ""},
        {"section twice", "[A]\nk=1\n[B]\nx=1\n[a]\nk=2\n",
         "5:1 duplicate-section, 6:1 duplicate-key"},
        {"keys before the first section", "x=1\ny=2\n[A]\nz=1\n",
         "1:1 top-lines, 1:1 top-key, 2:1 top-key"},
        {"section without lines", "[A]\n[B]\nx=1\n[C]\n", "1:1 empty-section, 4:1 empty-section"},
        {"reserved name", "[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n", "1:1 reserved-name"},
        {"value without a key", "[A]\n=1\n", "2:1 no-key"},
        {"neither", "[A]\nword\n", "2:1 stray-line"},
        {"zero byte", std::string("[A]\nx=1\0y\n", 10), "2:4 zero-byte"},
        {"control character", "[A]\nx=a\x1b!\n", "2:4 control-character"},
        {"carriage returns only", "[A]\rx=1\r",
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
        {"case of the key counts", one, "A", "X", "2", "[A]\nx=1\nX=2\n"},
        {"adds after the last pair", "[A]\nx=1\n\n; about B\n[B]\ny=1\n", "A", "z", "2",
         "[A]\nx=1\nz=2\n\n; about B\n[B]\ny=1\n"},
        {"adds after an empty header", "[A]\n; nothing\n[B]\ny=1\n", "A", "z", "2",
         "[A]\nz=2\n; nothing\n[B]\ny=1\n"},
        {"no line ending, added", "[A]\nx=1", "A", "y", "2", "[A]\nx=1\ny=2\n"},
        {"no line ending, changed", "[A]\nx=1", "A", "x", "2", "[A]\nx=2"},
        {"a new section", "[A]\r\nx=1\r\n", "B", "y", "2", "[A]\r\nx=1\r\n\r\n[B]\r\ny=2\r\n"},
        {"the second block", "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\n", "A", "n", "2",
         "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\nn=2\n"},
        {"before the first section", "; first\n\n[A]\nx=1\n", "-", "n", "2",
         "; first\nn=2\n\n[A]\nx=1\n"},
        {"before the first header", "[A]\nx=1\n", "-", "n", "2", "n=2\n[A]\nx=1\n"},
        {"lost letters go with the value", "[A]\nx=caf\xC3\xA9\r\ny=1\n", "A", "x", "tea",
         "[A]\nx=tea\r\ny=1\n"},
        {"blanks in the key", "[A]\nx = 1\n", "A", "x ", "2", "[A]\nx =2\n"},
        {"brackets", one, "A", "x", "[a,b]", "[A]\nx=[a,b]\n"},
        {"empty value", one, "A", "x", "", "[A]\nx=\n"},
        {"lost letter", one, "A", "x", "caf\xC3\xA9", one,
         "would load as key 'x' with value 'caf'"},
        {"blank at the end", one, "A", "x", "1 ", one, "with value '1'"},
        {"two lines", one, "A", "x", "1\n2", one, "a line cannot contain a line break"},
        {"a header", one, "A", "[x", "1]", one, "the line would load as a section header"},
        {"key with =", one, "A", "x=y", "1", one, "would load as key 'x' with value 'y=1'"},
        {"blank before the key", one, "A", " x", "1", one, "would load as key 'x'"},
        {"line break in the section", one, "B\nC", "x", "1", one, "a line break"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expect({"ini", "set", write("a.ini", row.before), row.section, row.entry, row.value},
               *row.complaint != 0 ? 3 : 0, "", row.complaint);
        EXPECT_EQ(get("a.ini"), row.after);
    }
}

TEST_F(VxTool, WritesOnlyWhatWasAskedFor)
{
    const std::string file = path("new.ini");
    expect({"ini", "set", file, "A", "x", "1"}, 3, "", "new.ini' does not exist");
    EXPECT_FALSE(fs::exists(file));
    expect({"ini", "set", file, "A", "x", "1", "--create"}, 0, "");
    expect({"ini", "set", "-n", file, "A", "x", "--", "-3.5"}, 0, "[A]\r\nx=-3.5\r\n");
    EXPECT_EQ(get("new.ini"), "[A]\r\nx=1\r\n");
    write("new.ini", "; x=0\n[A]\nx=1\n; kept\nx=2\n[B]\nx=3\n[a]\nx=4");
    expect({"ini", "unset", file, "A", "x"}, 0, "");
    EXPECT_EQ(get("new.ini"), "; x=0\n[A]\n; kept\n[B]\nx=3\n[a]\n");
    expect({"ini", "unset", file, "A", "x"}, 1, "", "vx: no key 'x' in [A]\n");
}

struct Answer {
    Words words;
    int status;
    std::string out;
    std::string complaint = "";
};

TEST_F(VxTool, AnswersAboutIniFiles)
{
    const std::string file =
        write("a.ini", "v=1\n[A]\nx=1\nlonger=\x1b[31m\nx=2\nk = v\n[b]\n; note\n");
    const std::string reserved = write("r.ini", "[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n");
    const std::string one = write("1.ini", "; one\r\n[A]\r\nx=1\r\ny=2\r\n[B]\r\nz=1\r\n");
    const std::string same = write("2.ini", "[b]\nz=1\n\n[A]\ny=2\nx=1\n# two\n");
    const std::string other = write("3.ini", "[A]\nx=1\nx=5\n[C]\nn=1\n");
    for (const auto& [words, status, out, complaint] : std::vector<Answer>{
             {{"ini", "show", file},
              0,
              "(before the first section)\n  v = 1\n\n[A]\n  x      = 1\n  longer = \\x1b[31m\n"
              "  x      = 2   (duplicate: the first one wins)\n  k      =  v\n\n[b]\n  ; note\n"},
             {{"ini", "show", file, "Nothing"}, 1, "", "has no section [Nothing]"},
             {{"ini", "show", "-c", file, "B"}, 1, "", "has no section [B]"},
             {{"ini", "show", reserved}, 0, "(before the first section)\n  x = 1\n"},
             {{"ini", "get", file, "A", "x"}, 0, "1\n"},
             {{"ini", "get", file, "a", "x", "--all"}, 0, "1\n2\n"},
             {{"ini", "get", file, "A", "x", "--all", "--json"}, 0, "[\n  \"1\",\n  \"2\"\n]\n"},
             {{"ini", "get", file, "-", "v"}, 0, "1\n"},
             {{"ini", "get", file, "A", "k "}, 0, " v\n"},
             {{"ini", "get", file, "A", "k"}, 1, "", "no key 'k' in [A]; did you mean 'k '?\n"},
             {{"ini", "get", file, "-", "X"}, 1, "", "no key 'X' before the first section\n"},
             {{"ini", "get", file, "-c", "a", "x"}, 1, "", "no section [a]; did you mean [A]?\n"},
             {{"ini", "diff", one, same}, 0, ""},
             {{"ini", "diff", one, other},
              1,
              "[A]\n- x=1\n+ x=1\n+ x=5\n- y=2\n[B]\n- z=1\n[C]\n+ n=1\n"},
             {{"ini", "diff", "-c", one, same}, 1, "[B]\n- z=1\n[b]\n+ z=1\n"},
         })
        expect(words, status, out, complaint);
    const std::string faulty = write("4.ini", "[A]\nname=Ren\xC3\xA9\nk=1\nk=2\x1b\n");
    expect({"ini", "check", faulty}, 1,
           faulty +
               ":2:9: warning: '\xC3\xA9' at the end of the line is lost: the line loads as"
               " 'name=Ren' [lost-end]\n" +
               faulty + ":4:1: warning: duplicate key 'k' (line 3 wins) [duplicate-key]\n");
    EXPECT_EQ(json({"ini", "diff", same, other})["differences"].size(), 4u);
    EXPECT_EQ(json({"ini", "show", file, "A"})["sections"].dump(),
              R"([{"items":[{"name":"x","value":"1"},{"name":"longer","value":"\u001b[31m"},)"
              R"({"name":"x","value":"2"},{"name":"k ","value":" v"}],"section":"A"}])");
}

TEST_F(VxTool, AnswersAboutIdentifiers)
{
    for (const auto& [words, status, out, complaint] : std::vector<Answer>{
             {{"uuid", "show", "{0123ABCD-4567-49EF-8123-456789ABCDEF}"},
              0,
              "0123abcd-4567-49ef-8123-456789abcdef\n"
              "  stored bytes  cd ab 23 01 67 45 ef 49 81 23 45 67 89 ab cd ef\n"
              "  version       4 (RFC 4122)\n"},
             {{"uuid", "show", "0123abcd-4567-89ef-0123-456789abcde"}, 1, "", "35 bytes"},
             {{"uuid", "show", "{0123abcd-4567-89ef-0123-456789abcdef)"}, 1, "", "braces"},
             {{"uuid", "show", "0123abcd-4567-89ef-0123-456789abcdxy"}, 1, "", "hexadecimal"},
             {{"uuid", "show", "00000000-0000-0000-0000-000000000000"}, 1, "", "all zeros"},
             {{"uuid", "show", std::string(36, '0')}, 1, "", "hexadecimal"},
             {{"fcc", "mjpa"}, 0, "mjpa (0x61706a6d) plays out as MJPG (0x47504a4d)\n"},
             {{"fcc", "dvc"}, 0, "'dvc ' (0x20637664) plays out as dvsd (0x64737664)\n"},
             {{"fcc", "1235"}, 0, "1235 (0x000004d3) plays out as AVdx (0x78645641)\n"},
             {{"fcc", "--code", "1235"}, 0, "1235 (0x35333231) is not translated\n"},
             {{"fcc", "AVdr"},
              0,
              "AVdr (0x72645641) is not translated\ncodes that play out as AVdr: 1256 1270 1271 "
              "1272"
              " 1273 1274 AVdh\n"},
             {{"fcc", "abcde"}, 2, "", "abcde"},
             {{"fcc", "4294967296"}, 2, "", "4294967296"},
         })
        expect(words, status, out, complaint);
    const std::string ids = vx({"uuid", "new", "-n", "2"}).out + vx({"uuid"}).out;
    EXPECT_EQ(ids.size(), 3 * 37u);
    EXPECT_NE(ids.substr(0, 37), ids.substr(37, 37));
    EXPECT_EQ(json({"fcc"}).size(), 16u);
}

TEST_F(VxTool, ExplainsMetadataTexts)
{
    const struct {
        const char* text;
        int status;
        const char* reason;
        const char* fields; // name=value of each, with ! for a note
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
        {"Metadata::VideoSequence,2,25,1,", 1, "version '2' parses as 2; only 1 is supported",
         "frameRate= set= "},
        {"Metadata::VideoSequence,1,25,1,extra,", 1, "5 pieces; Metadata::VideoSequence has 4",
         "frameRate= set= (too many)= "},
        {"metadata::VideoSequence,1,25,1,", 1,
         "unknown record 'metadata::VideoSequence'; did you mean 'Metadata::VideoSequence'?",
         "frameRate= set= "},
        {"", 1, "1 piece; every record has more than 2", ""},
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
}

const char kPoolLog[] =
    "\n----------------------------------------------------------- Thu Jan  8 10:00:00 2026\n\n"
    "Frames: maxInUse 12 Peak Demand 250.00 allocs/sec @ 81234.50 Thu Jan  8 09:59:00 2026\n"
    "A: maxInUse 3 <b>: maxInUse 4 Peak Demand 0.00 allocs/sec @ 0.00 Thu Jan  1 00:00:00 1970\n"
    "\n----------------------------------------------------------- Fri Jan  9 11:00:00 2026\n\n"
    "Frames: maxInUse 20 Peak Demand 500,25 allocs/sec @ 91234.50 Fri Jan  9 10:59:00 2026\n"
    "torn line\n";

TEST_F(VxTool, ReadsAndDrawsThePoolLog)
{
    const std::string log = write("pool.log", kPoolLog);
    expect({"pools", log}, 0,
           "RUN  WRITTEN                   POOL               MOST IN USE  PEAK/S  PEAK AT\n"
           "  1  Thu Jan  8 10:00:00 2026  Frames                      12  250.00  "
           "Thu Jan  8 09:59:00 2026\n"
           "  1  Thu Jan  8 10:00:00 2026  A: maxInUse 3 <b>            4    0.00  -\n"
           "  2  Fri Jan  9 11:00:00 2026  Frames                      20  500.25  "
           "Fri Jan  9 10:59:00 2026\n",
           "vx: " + log + ":10: not a pool log line, ignored\n");
    EXPECT_EQ(json({"pools", log})[1]["pools"][0]["peakPerSecond"], 500.25);
    expect({"pools", log, "--pool", "Nobody"}, 1, "", "does not contain pool 'Nobody'");
    expect({"pools", write("empty.log", "")}, 1, "", "empty.log' contains no pools");
    EXPECT_EQ(vx({"pools", "--plot", "--pool", "Frames", log}).out,
              "Peak demand, allocations per second\n\nFrames\n"
              "  Thu Jan  8 10:00:00 2026      250.00  ####################\n"
              "  Fri Jan  9 11:00:00 2026      500.25  ########################################\n");
    ASSERT_EQ(vx({"pools", "--plot", "-o", path("peaks.svg"), log}).status, 0);
    const std::string svg = get("peaks.svg");
    EXPECT_EQ(svg.substr(0, 4), "<svg");
    EXPECT_NE(svg.find("A: maxInUse 3 &lt;b&gt;"), std::string::npos);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_NE(svg.find("Frames: 500.25, Fri Jan  9 11:00:00 2026"), std::string::npos);
}

TEST_F(VxTool, ListsTheSettingsOfEveryProgramAndCreatesNothing)
{
    const std::string programs = path("home/.config/Vx/programs/");
    expect({"settings"}, 1, "", "no settings in '" + path("home/.config/Vx/programs'"));
    fs::create_directories(programs);
    const auto store = [&](const std::string& name, const std::string& line) {
        return write("home/.config/Vx/programs/" + name, "[Configuration]\n" + line);
    };
    const std::string quiet = store("%2Equiet 100%25.ini", "volume=1\n"),
                      editor = store("Editor.ini", "Normal Exit=true\n"),
                      player = store("Player.ini", "Normal Exit=false\n"),
                      shared = write("home/.config/Vx/machine.ini", "");
    const auto count = [&] {
        const fs::recursive_directory_iterator all(path("home"));
        return std::distance(begin(all), end(all));
    };
    const auto before = count();
    // clang-format off
    expect({"settings"}, 0, "PROGRAM         LAST EXIT            STORE\n"
                            ".quiet 100%     unknown              " + quiet + "\n"
                            "Editor          clean                " + editor + "\n"
                            "Player          crashed, or running  " + player + "\n"
                            "(all programs)                       " + shared + "\n");
    // clang-format on
    const Json listed = json({"settings"})["programs"];
    EXPECT_TRUE(listed[1]["normalExit"] == true && listed[2]["normalExit"] == false) << listed;
    EXPECT_EQ(count(), before);
    fs::remove_all(path("home/.config"));
}

TEST_F(VxTool, ReportsFailuresByItsExitStatus)
{
    write("a.ini", "[A]\nx=1\n");
    fs::create_directory(path("folder"));
    for (const auto& [words, status] : std::vector<std::pair<Words, int>>{
             {{}, 2},
             {{"ini"}, 2},
             {{"ini", "get", path("a.ini"), "A"}, 2},
             {{"ini", "show", path("a.ini"), "--nothing"}, 2},
             {{"--color", "pink", "version"}, 2},
             {{"pools", "-o", path("x.svg"), path("a.ini")}, 2},
             {{"--help"}, 0},
             {{"version"}, 0},
             {{"ini", "show", path("missing.ini")}, 3},
             {{"ini", "show", path("folder")}, 3},
             {{"ini", "set", path("folder"), "A", "x", "1", "--create"}, 3},
             {{"ini", "set", path("none/a.ini"), "A", "x", "1", "--create"}, 3},
             {{"pools", path("missing.log")}, 3},
         }) {
        SCOPED_TRACE(testing::PrintToString(words));
        const Outcome done = vx(words);
        EXPECT_EQ(done.status, status);
        EXPECT_EQ(done.err.empty(), status == 0) << done.err;
    }
    EXPECT_EQ(std::string(json({"version"})["library"]) + "\n", vx({"--version"}).out);
    const Outcome full = run(VX_TOOL, {"ini", "show", path("a.ini")}, "/dev/full");
    EXPECT_EQ(full.status, 3);
    EXPECT_EQ(full.err, "vx: cannot write to standard output\n");
}

TEST_F(VxTool, RefusesFileNamesThatAreNotUtf8)
{
    const std::string invalid = path("\xE9.ini");
    write("\xE9.ini", "[A]\nx=1\n");
    write("\xEF\xBF\xBD.ini", kPoolLog); // the name that a lossy conversion would make of it
    for (const Words& words : {Words{"ini", "show", invalid},
                               {"ini", "get", invalid, "A", "x"},
                               {"ini", "set", invalid, "A", "x", "2"},
                               {"ini", "set", invalid, "A", "x", "2", "--create"},
                               {"ini", "unset", invalid, "A", "x"},
                               {"ini", "check", invalid},
                               {"ini", "diff", invalid, invalid},
                               {"pools", invalid},
                               {"pools", path("\xEF\xBF\xBD.ini"), "--plot", "-o", invalid}})
        expect(words, 2, "", "is not valid UTF-8\n");
    EXPECT_EQ(get("\xE9.ini"), "[A]\nx=1\n");
    EXPECT_EQ(get("\xEF\xBF\xBD.ini"), kPoolLog);
}

// Completion offers exactly the commands, options, sections and keys that there are.
TEST_F(VxTool, CompletionOffersWhatIsAccepted)
{
    using Set = std::set<std::string>;
    const auto offered = [&](const Words& line) {
        std::string script = "source " VX_SOURCES "/vx.bash; COMP_WORDS=(vx";
        for (const std::string& word : line)
            script += quoted(word);
        script += "); COMP_CWORD=" + std::to_string(line.size()) +
                  "; _vx; printf '%s\n' \"${COMPREPLY[@]}\"";
        Set words;
        std::istringstream all(run("bash", {"-c", script}, path("out")).out);
        for (std::string word; std::getline(all, word);)
            words.insert(word);
        return words;
    };
    const auto listed = [&](Words line, const std::regex& pattern) {
        line.push_back("--help");
        const std::string help = vx(line).out;
        Set words;
        for (std::sregex_iterator it(help.begin(), help.end(), pattern), end; it != end; ++it)
            words.insert((*it)[1]);
        return words;
    };
    const std::regex command("\n  ([a-z]+)  "), option("\n  (?:-[a-z], ?)?(--[a-z-]+)");
    std::vector<Words> lines{{}};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Words line = lines[i];
        SCOPED_TRACE(testing::PrintToString(line));
        const Set commands = listed(line, command), options = listed(line, option);
        line.push_back("");
        EXPECT_TRUE(commands.empty() || offered(line) == commands);
        line.back() = "--";
        EXPECT_EQ(offered(line), options);
        for (const std::string& name : commands) {
            line.back() = name;
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines.size(), 16u);

    const std::string file = write("a.ini", "[Video In]\nrate=1\n; no=1\n[Audio]\nx=1\n");
    EXPECT_EQ(offered({"ini", "get", file, ""}), (Set{"Audio", "Video\\ In"}));
    EXPECT_EQ(offered({"ini", "get", file, "Video In", ""}), Set{"rate"});
}

} // namespace
