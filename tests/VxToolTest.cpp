// vx as its users run it: a process with arguments, files, output and an exit status.
#include <Messages.h>
#include <ScratchFolder.h>
#include <nlohmann/json.hpp>
#include <regex>

namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

/// Each test works in a folder of its own, with an empty home folder in it.
class VxTool : public testing::Test, protected ScratchFolder {
protected:
    VxTool() { fs::create_directory(path("home")); }
    ~VxTool() override { EXPECT_TRUE(fs::is_empty(path("home"))) << "vx created files"; }

    /// Runs \p program with \p arguments as the shell reads them.
    Outcome run(const std::string& program, const std::string& arguments) const
    {
        const std::string command = "cd '" + path() +
                                    "' && env -i PATH=\"$PATH\" HOME=\"$PWD/home\" " + program +
                                    " </dev/null >out 2>err " + arguments;
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, get("out"), get("err")};
    }
    Outcome vx(const std::string& arguments) const { return run("'" VX_TOOL "'", arguments); }

    /// Runs vx and checks its exit status, its output and a part of its error message.
    void expect(const std::string& arguments, int status, const std::string& out,
                const std::string& complaint = "") const
    {
        SCOPED_TRACE(arguments);
        const Outcome done = vx(arguments);
        EXPECT_EQ(done.status, status);
        EXPECT_EQ(done.out, out);
        EXPECT_NE(done.err.find(complaint), std::string::npos) << done.err;
        EXPECT_EQ(done.err.empty(), complaint.empty()) << done.err;
    }

    Json json(const std::string& arguments) const
    {
        return Json::parse(vx(arguments + " --json").out, nullptr, false);
    }

    /// The findings of `vx ini check` as a list of "line:column code".
    std::string findings(const std::string& content)
    {
        put("checked.ini", content);
        const Outcome checked = vx("ini check --for-programmers checked.ini --json");
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

    using Set = std::set<std::string>;

    /// What the shells offer after some words.
    Set offered(const std::string& words) const
    {
        const Outcome done = vx("__complete plain " + words);
        EXPECT_EQ(done.err, "") << words;
        Set found;
        std::istringstream all(done.out);
        for (std::string line; std::getline(all, line);)
            found.insert(line.substr(0, line.find('\t')));
        return done.status == 0 ? found : Set{"status " + std::to_string(done.status)};
    }

    std::set<std::string> codes_; ///< of all findings so far
};

TEST_F(VxTool, CheckFindsLinesThatLoadDifferently)
{
    const struct {
        std::string content;
        const char* expected;
    } rows[] = {
        {"[A]\r\nx=1\r\n; note\r\ny=a b\r\nX=1\nn=M\xC3\xBCller\n", ""},
        {"", "1:1 empty-file"},
        {"\xEF\xBB\xBF[A]\nx=1\n",
         "1:1 byte-order-mark, 1:1 top-lines, 1:1 stray-line, 2:1 top-key"},
        {"\xC3\xA9t=1\n", "1:1 top-lines, 1:1 top-key"},
        {"[A]\nn=caf\xC3\xA9\r\n\xC3\xA9t=1\n\xC3\xA9\nx=1\n",
         "2:6 lost-end, 3:1 lost-start, 4:1 lost-end"},
        {"[A]\nx=a\xFFz\ny=a\xE2\x80\x8Bz\n", "2:4 not-utf-8, 3:4 invisible-character"},
        {"[ A ]\nk = v\nl= v\n[B\n", "1:2 blanks-around-section, 2:1 blanks-around-key, "
                                     "3:3 blanks-before-value, 4:1 unclosed-header"},
        {"[A]\nk=1\nk=2\n[B]\nk=3\n[a]\nk=2\n",
         "3:1 duplicate-key, 6:1 duplicate-section, 7:1 duplicate-key"},
        {"x=1\ny=2\n[A]\nz=1\n", "1:1 top-lines, 1:1 top-key, 2:1 top-key"},
        {"[A]\n[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n[C]\n",
         "1:1 empty-section, 2:1 reserved-name, 4:1 empty-section"},
        {"[A]\n=1\nword\nx=1\0y\nz=a\x1b!\n"s,
         "2:1 no-key, 3:1 stray-line, 4:4 zero-byte, 5:4 control-character"},
        {"[[A]]\nx=\"1\"\ny='1\nz=1 ; PAL\nv=C:\\a\\\n[]\nx= '1'\ny=No. #1\n",
         "1:2 nested-brackets, 2:3 quoted-value, 4:5 trailing-comment, 5:7 trailing-backslash, "
         "6:2 nameless-section, 7:3 blanks-before-value, 7:4 quoted-value"},
        {"[A]\n<<<<<<< ours\n=======\n>>>>>>> theirs\n",
         "2:1 conflict-mark, 3:1 conflict-mark, 4:1 conflict-mark"},
        {"\xFF\xFE[\0A\0]\0\n\0x\0"s, "1:1 utf-16"},
        {"\0[\0A\0]\0\n\0x"s, "1:1 utf-16"},
        {"[A]\nx=1\0\n\0\0"s, "2:4 zero-byte, 3:1 zero-byte"},
        {"[A]\rx=1\r", "1:1 top-lines, 1:1 unclosed-header, 1:4 carriage-return"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(findings(row.content), row.expected) << row.content;

    std::ifstream page(VX_SOURCES "/vx.1");
    const std::string manual(std::istreambuf_iterator<char>(page), {});
    for (std::string code : codes_) {
        for (std::size_t at = 0; (at = code.find('-', at)) != std::string::npos; at += 2)
            code.insert(at, "\\");
        EXPECT_NE(manual.find(code), std::string::npos) << code << " is not in the man page";
    }
    for (const tool::Message& row : tool::kMessages)
        EXPECT_EQ(codes_.count(std::string(row.code)), row.kind >= tool::MessageKind::warning)
            << row.code;
}

TEST_F(VxTool, SetChangesOneLineOrSaysWhyNot)
{
    const char* const one = "[A]\nx=1\n";
    const struct {
        const char* name;
        const char *before, *arguments, *after, *complaint = "";
    } rows[] = {
        {"changes", "; top\r\n[A]\r\n  x=1 \r\n\r\n; end", "A x 2",
         "; top\r\n[A]\r\n  x=2\r\n\r\n; end"},
        {"first of two", "[A]\nx=1\nx=2\n", "A x 7", "[A]\nx=7\nx=2\n"},
        {"same value, same bytes", "[A]\nx=1 \t\n", "A x 1", "[A]\nx=1\n"},
        {"any case of the section", "[Video]\nx=1\n", "VIDEO x 2", "[Video]\nx=2\n"},
        {"case of the key counts", one, "A X 2", "[A]\nx=1\nX=2\n"},
        {"adds after the last pair", "[A]\nx=1\n\n; about B\n[B]\ny=1\n", "A z 2",
         "[A]\nx=1\nz=2\n\n; about B\n[B]\ny=1\n"},
        {"adds after an empty header", "[A]\n; nothing\n[B]\ny=1\n", "A z 2",
         "[A]\nz=2\n; nothing\n[B]\ny=1\n"},
        {"no line ending, added", "[A]\nx=1", "A y 2", "[A]\nx=1\ny=2\n"},
        {"no line ending, changed", "[A]\nx=1", "A x 2", "[A]\nx=2"},
        {"a new section", "[A]\r\nx=1\r\n", "B y 2", "[A]\r\nx=1\r\n\r\n[B]\r\ny=2\r\n"},
        {"the second block", "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\n", "A n 2",
         "[A]\nx=1\n[B]\ny=1\n[A]\nz=1\nn=2\n"},
        {"before the first section", "; first\n\n[A]\nx=1\n", "- n 2",
         "; first\nn=2\n\n[A]\nx=1\n"},
        {"before the first header", one, "- n 2", "n=2\n[A]\nx=1\n"},
        {"lost letters go with the value", "[A]\nx=caf\xC3\xA9\r\ny=1\n", "A x tea",
         "[A]\nx=tea\r\ny=1\n"},
        {"blanks in the key", "[A]\nx = 1\n", "A 'x ' 2", "[A]\nx =2\n"},
        {"brackets", one, "A x [a,b]", "[A]\nx=[a,b]\n"},
        {"empty value", one, "A x ''", "[A]\nx=\n"},
        {"lost letter", one, "A x caf\xC3\xA9", one, "would load as key 'x' with value 'caf'"},
        {"blank at the end", one, "A x '1 '", one, "with value '1'"},
        {"two lines", one, "A x '1\n2'", one, "a line cannot contain a line break"},
        {"a header", one, "A [x 1]", one, "the line would load as a section header"},
        {"key with =", one, "A x=y 1", one, "would load as key 'x' with value 'y=1'"},
        {"blank before the key", one, "A ' x' 1", one, "would load as key 'x'"},
        {"line break in the section", one, "'B\nC' x 1", one, "a line break"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        put("a.ini", row.before);
        expect("ini set a.ini "s + row.arguments, *row.complaint != 0 ? 3 : 0, "", row.complaint);
        EXPECT_EQ(get("a.ini"), row.after);
    }
}

TEST_F(VxTool, WritesOnlyWhatWasAskedFor)
{
    expect("ini set new.ini A x 1", 3, "", "'new.ini' does not exist");
    EXPECT_FALSE(fs::exists(path("new.ini")));
    expect("ini set new.ini A x 1 --create", 0, "");
    expect("ini set -n new.ini A x -- -3.5", 0, "[A]\r\nx=-3.5\r\n");
    EXPECT_EQ(get("new.ini"), "[A]\r\nx=1\r\n");
    put("new.ini", "; x=0\n[A]\nx=1\n; kept\nx=2\n[B]\nx=3\n[a]\nx=4");
    expect("ini unset new.ini A x", 0, "");
    EXPECT_EQ(get("new.ini"), "; x=0\n[A]\n; kept\n[B]\nx=3\n[a]\n");
    expect("ini set - A x 1 <new.ini", 0, "; x=0\n[A]\nx=1\n; kept\n[B]\nx=3\n[a]\n");
}

TEST_F(VxTool, MergesBySectionAndKey)
{
    const struct {
        const char *name, *base, *ours, *theirs, *merged;
    } rows[] = {
        {"both sides' changes", "[A]\nx=1\ny=1\nz=1\n", "[A]\ny=2\nx=1\n", "[A]\nx=3\ny=1\nz=1\n",
         "[A]\ny=2\nx=3\n"},
        {"the same change", "[A]\nx=1\n", "[a]\nx=2", "[A]\nx=2\n", "[a]\nx=2"},
        {"additions after their predecessors", "[A]\nx=1\n[B]\nx=1\n", "[A]\nx=1\nq=1\n[B]\nx=1",
         "[N]\nn=1\n[A]\nx=1\ny=1\n\n; C\n[C]\nx=1\n[B]\nx=1\n; end\n",
         "[N]\nn=1\n[A]\nx=1\ny=1\nq=1\n\n; C\n[C]\nx=1\n[B]\nx=1\n; end\n"},
        {"removals with their comments", "; about A\n[A]\n; x\nx=1\n[B]\n; y\ny=1\nz=1\n",
         "; about A\n[A]\n; x\nx=1\n[B]\n; y\n; why\ny=1\nz=1\n", "[B]\nz=1\n",
         "[B]\n; why\nz=1\n"},
        {"comments of both", "; x\nx=1\n", "; x\n; ours\nx=1\n", "; theirs\nx=2\n",
         "; x\n; ours\n; theirs\nx=2\n"},
        {"line endings of ours", "[A]\r\nx=1\r\n", "[A]\r\nx=1\r\n", "[A]\nx=2\ny=1\n",
         "[A]\r\nx=2\r\ny=1\r\n"},
        {"duplicate keys by position", "[A]\nx=1\nx=2\n", "[A]\nx=1\nx=3\n", "[A]\nx=4\nx=2\n",
         "[A]\nx=4\nx=3\n"},
        {"conflict: changed", "[A]\nx=1\n", "[A]\nx=2", "[A]\nx=3\n",
         "[A]\n<<<<<<< ours\nx=2\n=======\nx=3\n>>>>>>> theirs\n"},
        {"conflict: removed", "[A]\nx=1\n", "", "[A]\nx=3\n",
         "[A]\n<<<<<<< ours\n=======\nx=3\n>>>>>>> theirs\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        put("base", row.base), put("ours", row.ours), put("theirs", row.theirs);
        const bool conflict = std::strstr(row.merged, "<<<<<<<") != nullptr;
        expect("ini merge base ours theirs", conflict, "", conflict ? "1 conflict in 'ours'" : "");
        EXPECT_EQ(get("ours"), row.merged);
        expect("ini merge -n base theirs base", 0, row.theirs);
        expect("ini merge base base theirs && '" VX_TOOL "' ini diff base theirs", 0, "");
    }
}

// A merge driver of git: a clean merge is committed, a conflict is left in the file.
TEST_F(VxTool, MergesInARepository)
{
    put("all", R"(git() { command git -c user.name=n -c user.email=e "$@"; }
        commit() { printf "$1" >e.ini; git commit -qam "$1"; }
        git init -q . && git config merge.vx-ini.driver "')" VX_TOOL R"(' ini merge %O %A %B"
        echo '*.ini merge=vx-ini' >.gitattributes; touch e.ini; git add e.ini && git commit -qm 0
        commit '[A]\nx=1\ny=1\n'; git checkout -qb side
        commit '[A]\nx=2\ny=1\n'; git checkout -q -
        commit '[A]\nx=1\ny=2\n'; git merge -q side -m m >/dev/null && cat e.ini; git checkout -q side
        commit '[A]\nx=2\ny=3\n'; git checkout -q -; git merge side >/dev/null
        git status --short e.ini; cat e.ini)");
    EXPECT_EQ(run("bash", "./all").out,
              "[A]\nx=2\ny=2\n"
              "UU e.ini\n[A]\nx=2\n<<<<<<< ours\ny=2\n=======\ny=3\n>>>>>>> theirs\n");
}

TEST_F(VxTool, FormatsWithoutChangingTheMeaning)
{
    put("a.ini",
        "\r\n\n[A] \t\r\n\tx = 1 \n\n\n\ny=caf\xC3\xA9\n; B\n[B]\n\n; d\n\n; e\n\n[C]\nz=1\n\n"
        "[D]\n[E]");
    put("before.ini", get("a.ini"));
    const char* const formatted = "[A]\r\nx = 1\r\n\r\ny=caf\xC3\xA9\r\n\r\n; B\r\n[B]\r\n\r\n"
                                  "; d\r\n\r\n; e\r\n\r\n[C]\r\nz=1\r\n\r\n[D]\r\n\r\n[E]\r\n";
    expect("ini fmt - <a.ini", 0, formatted);
    expect("ini fmt a.ini", 0, "");
    EXPECT_EQ(get("a.ini"), formatted);
    expect("ini fmt --check a.ini", 0, "");
    expect("ini diff a.ini before.ini", 0, "");

    put("blank.ini", "\n\n"); // an empty file would not load
    expect("ini fmt none.ini blank.ini before.ini", 3, "", "'none.ini' does not exist");
    EXPECT_EQ(get("blank.ini"), "\n");
    EXPECT_EQ(get("before.ini"), formatted);
}

TEST_F(VxTool, AnswersAboutIniFiles)
{
    put("a.ini", "v=1\n[A]\nx=1\nlonger=\x1b[31m\nx=2\nk = v\n[b]\n; note\n");
    expect("ini show a.ini", 0,
           "(before the first section)\n  v = 1\n\n[A]\n  x      = 1\n  longer = \\x1b[31m\n"
           "  x      = 2   (duplicate: the first one wins)\n  k      =  v\n\n[b]\n  ; note\n");
    expect("ini show a.ini Nothing", 1, "", "has no section [Nothing]");
    expect("ini show -c a.ini B", 1, "", "has no section [B]");
    EXPECT_EQ(json("ini show a.ini A")["sections"].dump(),
              R"([{"items":[{"name":"x","value":"1"},{"name":"longer","value":"\u001b[31m"},)"
              R"({"name":"x","value":"2"},{"name":"k ","value":" v"}],"section":"A"}])");
    expect("ini get a.ini A x", 0, "1\n");
    expect("ini get a.ini a x --all", 0, "1\n2\n");
    expect("ini get a.ini A x --all --json", 0, "[\n  \"1\",\n  \"2\"\n]\n");
    expect("ini get a.ini - v", 0, "1\n");
    expect("ini get a.ini A 'k '", 0, " v\n");
    expect("ini get a.ini A k", 1, "", "did you mean 'k '?\n");
    expect("ini get a.ini - X", 1, "", "no key 'X' before the first section\n");
    expect("ini get a.ini -c a x", 1, "", "did you mean [A]?\n");

    put("reserved.ini", "[@@@Anonymous_Section_Reserved_Name@@@]\nx=1\n");
    expect("ini show reserved.ini", 0, "(before the first section)\n  x = 1\n");

    put("one.ini", "; one\r\n[A]\r\nx=1\r\ny=2\r\n[B]\r\nz=1\r\n");
    put("same.ini", "[b]\nz=1\n\n[A]\ny=2\nx=1\n# two\n");
    put("other.ini", "[A]\nx=1\nx=5\n[C]\nn=1\n");
    expect("ini diff one.ini same.ini", 0, "");
    expect("ini diff one.ini other.ini", 1,
           "[A]\n- x=1\n+ x=1\n+ x=5\n- y=2\n[B]\n- z=1\n[C]\n+ n=1\n");
    expect("ini diff -c one.ini same.ini", 1, "[B]\n- z=1\n[b]\n+ z=1\n");
    EXPECT_EQ(json("ini diff same.ini other.ini")["differences"].size(), 4u);

    put("faulty.ini", "[A]\nname=Ren\xC3\xA9\nk=1\nk=2\x1b\n");
    expect("ini check faulty.ini", 1,
           "faulty.ini:2:9: warning: '\xC3\xA9' at the end of the line is lost: the line loads as"
           " 'name=Ren' [lost-end]\n"
           "    End the value with an ASCII character, for example a full stop.\n"
           "faulty.ini:4:1: warning: duplicate key 'k' (line 3 wins) [duplicate-key]\n"
           "    Remove the line that is not meant.\n");
}

TEST_F(VxTool, AnswersAboutIdentifiers)
{
    expect("uuid show {0123ABCD-4567-49EF-8123-456789ABCDEF}", 0,
           "0123abcd-4567-49ef-8123-456789abcdef\n"
           "  stored bytes  cd ab 23 01 67 45 ef 49 81 23 45 67 89 ab cd ef\n"
           "  version       4 (RFC 4122)\n");
    expect("uuid show 0123abcd-4567-89ef-0123-456789abcde", 1, "", "35 bytes");
    expect("uuid show '{0123abcd-4567-89ef-0123-456789abcdef)'", 1, "", "braces");
    expect("uuid show 0123abcd-4567-89ef-0123-456789abcdxy", 1, "", "hexadecimal");
    expect("uuid show 00000000-0000-0000-0000-000000000000", 1, "", "all zeros");
    expect("uuid show 000000000000000000000000000000000000", 1, "", "hexadecimal");
    const std::string ids = vx("uuid new -n 2").out + vx("uuid").out;
    EXPECT_EQ(ids.size(), 3 * 37u);
    EXPECT_NE(ids.substr(0, 37), ids.substr(37, 37));

    expect("fcc mjpa", 0, "mjpa (0x61706a6d) plays out as MJPG (0x47504a4d)\n");
    expect("fcc dvc", 0, "'dvc ' (0x20637664) plays out as dvsd (0x64737664)\n");
    expect("fcc 1235", 0, "1235 (0x000004d3) plays out as AVdx (0x78645641)\n");
    expect("fcc --code 1235", 0, "1235 (0x35333231) is not translated\n");
    expect("fcc AVdr", 0,
           "AVdr (0x72645641) is not translated\n"
           "codes that play out as AVdr: 1256 1270 1271 1272 1273 1274 AVdh\n");
    expect("fcc abcde", 2, "", "abcde");
    expect("fcc 4294967296", 2, "", "4294967296");
    EXPECT_EQ(json("fcc").size(), 16u);
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
        EXPECT_EQ(vx("meta '" + std::string(row.text) + "'").status, row.status);
        const Json explained = json("meta '" + std::string(row.text) + "'");
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
    put("pool.log", kPoolLog);
    expect("pools pool.log", 0,
           "RUN  WRITTEN                   POOL               MOST IN USE  PEAK/S  PEAK AT\n"
           "  1  Thu Jan  8 10:00:00 2026  Frames                      12  250.00  "
           "Thu Jan  8 09:59:00 2026\n"
           "  1  Thu Jan  8 10:00:00 2026  A: maxInUse 3 <b>            4    0.00  -\n"
           "  2  Fri Jan  9 11:00:00 2026  Frames                      20  500.25  "
           "Fri Jan  9 10:59:00 2026\n",
           "vx: pool.log:10: not a pool log line, ignored\n");
    EXPECT_EQ(json("pools pool.log")[1]["pools"][0]["peakPerSecond"], 500.25);
    EXPECT_EQ(vx("pools --plot --pool Frames pool.log").out,
              "Peak demand, allocations per second\nEach pool has its own scale.\n\nFrames\n"
              "  Thu Jan  8 10:00:00 2026  250.00  " +
                  std::string(22, '#') + "\n  Fri Jan  9 11:00:00 2026  500.25  " +
                  std::string(44, '#') + "\n");
    ASSERT_EQ(vx("pools --plot -o peaks.svg pool.log").status, 0);
    const std::string svg = get("peaks.svg");
    EXPECT_EQ(svg.substr(0, 4), "<svg");
    EXPECT_NE(svg.find("A: maxInUse 3 &lt;b&gt;"), std::string::npos);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_NE(svg.find("Frames: 500.25, Fri Jan  9 11:00:00 2026"), std::string::npos);
    EXPECT_EQ(svg.find("<path class=\"band\""), std::string::npos);
}

// Small pools stay visible beside large ones, names are whole, and many runs become a band.
TEST_F(VxTool, DrawsPoolsOfAnyDemandAndManyRuns)
{
    const std::string name(150, 'n');
    std::string log;
    for (int run = 0; run < 400; ++run)
        log.append(59, '-')
            .append(" D\n" + name + ": maxInUse 1 Peak Demand 0.")
            .append(std::to_string(10 + run % 17) + " allocs/sec @ 1 D\n")
            .append("Big: maxInUse 1 Peak Demand 900000 allocs/sec @ 1 D\n");
    put("pool.log", log);
    const std::string terminal = vx("pools --plot pool.log").out;
    EXPECT_NE(terminal.find("\n" + name + "\n  runs 1-17     0.10 - 0.26  ####"), std::string::npos)
        << terminal;
    EXPECT_EQ(std::count(terminal.begin(), terminal.end(), '\n'), 2 + 2 * 2 + 2 * 24);
    const std::string svg = vx("pools --plot -o - pool.log").out;
    EXPECT_NE(svg.find("<path class=\"band\""), std::string::npos);
    EXPECT_NE(svg.find(">" + std::string(96, 'n') + "<"), std::string::npos);
    EXPECT_NE(svg.find(">" + std::string(54, 'n') + "<"), std::string::npos);
    EXPECT_NE(svg.find(">0.3<"), std::string::npos) << "the small pool's own scale";
}

TEST_F(VxTool, ListsTheSettingsOfEveryProgramAndCreatesNothing)
{
    const std::string store = "home/.config/Vx/", programs = store + "programs/";
    fs::create_directories(path(programs));
    put(programs + "%2Equiet 100%25.ini", "[Configuration]\nvolume=1\n");
    put(programs + "Editor.ini", "[Configuration]\nNormal Exit=true\n");
    put(programs + "Player.ini", "[Configuration]\nNormal Exit=false\n");
    put(store + "machine.ini", "");
    const auto count = [&] {
        const fs::recursive_directory_iterator all(path("home"));
        return std::distance(begin(all), end(all));
    };
    const auto before = count();
    const std::string below = path(programs);
    std::string table = "PROGRAM         LAST EXIT            STORE\n";
    table += ".quiet 100%     unknown              " + below + "%2Equiet 100%25.ini\n";
    table += "Editor          clean                " + below + "Editor.ini\n";
    table += "Player          crashed, or running  " + below + "Player.ini\n";
    table += "(all programs)                       " + path(store) + "machine.ini\n";
    expect("settings", 0, table);
    const Json listed = json("settings")["programs"];
    EXPECT_TRUE(listed[1]["normalExit"] == true && listed[2]["normalExit"] == false) << listed;
    const std::string editor = below + "Editor.ini";
    expect("settings show Editor", 0, editor + "\n\n[Configuration]\n  Normal Exit = true\n");
    expect("settings get Editor Configuration 'Normal Exit'", 0, "true\n");
    EXPECT_EQ(json("settings get Editor Configuration 'Normal Exit'")["file"], editor);
    EXPECT_EQ(count(), before);
    expect("settings set Editor Playback 'a=b' ' 1\n2 '", 0,
           editor + ": [Playback] a=b= 1\\x0a2 \n");
    expect("settings get Editor Playback a=b", 0, " 1\n2 \n");
    EXPECT_EQ(json("settings show Editor")["settings"][1]["key"], "a=b");
    expect("settings set New.er A x 1 --create", 0, below + "New.er.ini: [A] x=1\n");
    expect("settings get New.er A x", 0, "1\n");

    // The store that all programs share: the machine's if this user may write to its folder.
    fs::create_directories(path("machine/Vx"));
    const auto shared = [&](const std::string& arguments) {
        return run("env XDG_CONFIG_DIRS=\"$PWD/machine\" '" VX_TOOL "'", arguments).out;
    };
    const std::string machine = path("machine/Vx/machine.ini");
    EXPECT_EQ(shared("settings set - A x 2 --create"), machine + ": [A] x=2\n");
    EXPECT_EQ(shared("settings show -"), machine + "\n\n[A]\n  x = 2\n");
    EXPECT_EQ(shared("settings get - A x"), "2\n");
    fs::remove_all(path("home/.config"));
}

const struct {
    std::string code, arguments, program = "'" VX_TOOL "'";
} kComplaints[] = {
    {"command-line", ""},
    {"command-line", "ini"},
    {"command-line", "nothing"},
    {"command-line", "ini get a.ini A"},
    {"command-line", "ini show a.ini --nothing"},
    {"command-line", "ini check"},
    {"command-line", "--color pink version"},
    {"command-line", "pools -o x.svg a.ini"},
    {"not-utf-8-argument", "ini show \xE9.ini"},
    {"not-utf-8-argument", "pools bad.log --plot -o \xE9.svg"},
    {"stdin-twice", "ini diff - /dev/stdin <a.ini"},
    {"output-failed", "ini show a.ini >/dev/full"},
    {"output-failed", "ini get --help >/dev/full"},
    {"output-failed", "--version >/dev/full"},
    {"output-failed", "uuid -n 9999 >/dev/full"}, // more than a buffer
    {"output-failed", "ini show a.ini >&-"},
    {"missing-file", "ini show missing.ini"},
    {"missing-file", "pools missing.log"},
    {"folder", "ini show folder"},
    {"folder", "ini set folder A x 1 --create"},
    {"unreadable-file", "ini check " + std::string(300, 'n')},
    {"read-failed", "ini check /proc/self/mem"},
    {"too-large", "ini check /dev/zero"},
    {"unwritable-file", "ini set none/a.ini A x 1 --create"},
    {"write-failed", "./set", "bash"},
    {"output-file-failed", "pools bad.log --plot -o /dev/full"},
    {"changed", "ini set /proc/sys/kernel/random/uuid A x 1"},
    {"no-lines", "ini show empty"},
    {"no-lines", "ini show -"},
    {"not-read-back", "ini set a.ini A x 'a '"},
    {"missing-section", "ini get a.ini B x"},
    {"near-section", "ini show a.ini -c a"},
    {"missing-top-lines", "ini show a.ini -"},
    {"missing-key", "ini get a.ini A y"},
    {"near-key", "ini unset a.ini A X"},
    {"cannot-inspect", "inspect 4194304"},
    {"inspect-output-failed", "inspect --json >/dev/full"},
    {"inspect-usage", "inspect nothing"},
    {"inspect-what", "inspect locks"},
    {"utf-16-file", "ini set utf16.ini A x 1"},
    {"utf-16-file", "ini get utf16.ini A x"},
    {"binary-file", "ini fmt nul.ini"},
    {"conflicts", "ini merge empty a.ini other.ini -n"},
    {"unresolved", "ini merge a.ini a.ini marked.ini"},
    {"not-formatted", "ini fmt --check bad.log"},
    {"no-such-code", "ini check --explain output-failed"},
    {"invalid-uuid", "uuid show 1"},
    {"lenient-uuid", "uuid show 0x23abcd-4567-89ef-0123-456789abcdef"},
    {"bad-code", "fcc abcde"},
    {"stray-log-line", "pools bad.log"},
    {"no-pools", "pools a.ini"},
    {"no-such-pool", "pools bad.log --pool Nobody"},
    {"no-home", "settings", "env -u HOME '" VX_TOOL "'"},
    {"no-settings", "settings"},
    {"unreadable-file", "settings get loop A x",
     "env XDG_CONFIG_HOME=\"$PWD/config\" '" VX_TOOL "'"},
    {"empty-program", "settings set '' A x 1 --create"},
    {"no-program", "settings show -"},
    {"no-program", "settings set Nobody A x 1"},
    {"no-setting", "settings get E A x", "env XDG_CONFIG_HOME=\"$PWD/config\" '" VX_TOOL "'"},
    {"setting-not-stored", "settings set E A x 1 --create",
     "env XDG_CONFIG_HOME=\"$PWD/closed\" '" VX_TOOL "'"},
};

// Each message appears with its remedy and its exit status.
TEST_F(VxTool, SaysWhatIsWrongAndWhatToDo)
{
    put("a.ini", "[A]\nx=1\n");
    put("empty", "");
    fs::create_directories(path("closed"));
    fs::create_directories(path("config/Vx/programs"));
    put("closed/Vx", "");
    put("config/Vx/programs/E.ini", "");
    fs::create_symlink("loop.ini", path("config/Vx/programs/loop.ini"));
    put("utf16.ini", "\xFF\xFE[\0A\0]\0\n\0"s);
    put("nul.ini", "[A]\nx=\0\n"s);
    put("other.ini", "[A]\nx=2\n");
    put("marked.ini", "[A]\n=======\n");
    put("bad.log", std::string(kPoolLog) + "torn\n");
    put("set", "trap '' XFSZ; ulimit -f 1; '" VX_TOOL "' ini set a.ini A x $(seq -s. 9999)");
    fs::create_directory(path("folder"));
    // A failure of vx itself, and one that sanitizers do not survive.
    std::set<std::string_view> seen{"internal", "out-of-memory", "no-process"};
    for (const auto& row : kComplaints) {
        const auto* const message =
            std::find_if(std::begin(tool::kMessages), std::end(tool::kMessages),
                         [&](const tool::Message& m) { return m.code == row.code; });
        ASSERT_NE(message, std::end(tool::kMessages)) << row.code;
        seen.insert(message->code);
        const auto pattern = [](std::string text) {
            text = std::regex_replace(text, std::regex(R"([.?()|*+\[\]])"), "\\$&");
            return std::regex_replace(text, std::regex(R"(\{\d\})"), "[^\n]*");
        };
        const Outcome done = run(row.program, row.arguments);
        EXPECT_TRUE(std::regex_search(
            done.err, std::regex("vx: " + pattern(std::string(message->text)) + "\n    " +
                                 pattern(std::string(message->remedy)) + "\n")))
            << row.arguments << "\n"
            << done.err;
        const int statuses[] = {0, 1, 2, 3};
        EXPECT_EQ(done.status, statuses[static_cast<int>(message->kind)]) << row.arguments;
    }
    EXPECT_EQ(get("a.ini"), "[A]\nx=1\n");
    for (const tool::Message& row : tool::kMessages)
        EXPECT_TRUE(row.kind >= tool::MessageKind::warning || seen.count(row.code)) << row.code;

    const std::string explained = vx("ini check --explain lost-end").out;
    EXPECT_EQ(explained.substr(0, 19), "lost-end (warning)\n");
    EXPECT_NE(explained.find("For programmers: "), std::string::npos);
    EXPECT_EQ(std::string(json("version")["library"]) + "\n", vx("--version").out);
}

// Input comes from pipes, standard input and files without a size; charts can go to a pipe.
TEST_F(VxTool, ReadsAndWritesPipes)
{
    put("a.ini", "[A]\nx=1\n");
    put("pool.log", kPoolLog);
    put("all", R"(vx() { cat "$file" | ')" VX_TOOL R"(' "$@"; }; file=a.ini
        for name in - /dev/stdin /dev/fd/0; do vx ini get $name A x; done
        vx ini check - && vx ini diff <(cat a.ini) - && vx ini show /proc/self/mounts | wc -l
        file=pool.log; vx pools --plot -o - - | head -c 4; vx pools --plot -o >(head -c 4) -
        wait $!)");
    const Outcome done = run("bash", "./all 2>/dev/null");
    EXPECT_TRUE(std::regex_match(done.out, std::regex("1\n1\n1\n[1-9]\\d*\n<svg<svg"))) << done.out;
}

TEST_F(VxTool, CompletionOffersWhatIsAccepted)
{
    const auto listed = [&](const std::string& line, const std::regex& pattern) {
        const std::string help = vx(line + " --help").out;
        Set words;
        for (std::sregex_iterator it(help.begin(), help.end(), pattern), end; it != end; ++it)
            words.insert((*it)[1]);
        return words;
    };
    const std::regex command("\n  ([a-z]+)  "), option("\n  (?:-[a-z], ?)?(--[a-z-]+)");
    std::vector<std::string> lines{""};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string line = lines[i];
        SCOPED_TRACE(line);
        const Set commands = listed(line, command);
        EXPECT_TRUE(commands.empty() || offered(line + " ''") == commands);
        EXPECT_EQ(offered(line + " --"), listed(line, option));
        for (const std::string& name : commands)
            lines.push_back(line + " " + name);
    }
    EXPECT_EQ(lines.size(), 22u);
}

TEST_F(VxTool, CompletionOffersWhatTheLineIsAbout)
{
    put("a.ini", "top=1\n[Video In]\nrate=1\n; no=1\n-n=1\n[Audio]\nx=1\n[bad\xFF]\ny=1\n");
    put("b.ini", "[Video]\nrate=1\nsize=2\n[VIDEO]\nsize=1\n");
    put("pool.log", kPoolLog);
    fs::create_directories(path("home/.config/Vx/programs"));
    put("home/.config/Vx/programs/My %25.ini", "[A]\nx=1\nX=2\n[B]\ny=1\n");
    const Set files{"status 100"}, folders{"status 101"}, none;
    const struct {
        const char* words;
        Set expected;
    } rows[] = {
        {"ini show ''", files},
        {"ini merge a b ''", files},
        {"ini fmt a b ''", files},
        {"ini diff a b ''", none},
        {"pools --plot -o ''", files},
        {"pools -ox.svg --plot ''", files},
        {"inspect --core=c --sysroot ''", folders},
        {"--color ''", {"always", "auto", "never"}},
        {"--color never ini g", {"get"}},
        {"uuid -n 3 ''", {"new", "show"}},
        {"ini get a.ini ''", {"-", "Audio", "Video In"}},
        {"ini get a.ini -", {"--all", "--case-sensitive", "--help", "--json"}},
        {"ini get a.ini 'Video In' ''", {"rate"}},
        {"ini get a.ini -- 'video in' ''", {"rate", "-n"}},
        {"ini get a.ini - ''", {"top"}},
        {"ini get a.ini 'Video In' rate ''", none},
        {"ini get b.ini vi", {"Video"}},
        {"ini get b.ini video ''", {"rate", "size"}},
        {"ini get b.ini Video R", none},
        {"ini get -c b.ini VI", {"VIDEO"}},
        {"ini get -ac b.ini VIDEO ''", {"size"}},
        {"ini set b.ini video size ''", {"2"}},
        {"ini get /dev/zero ''", none},
        {"ini get - ''", none},
        {"ini check --explain utf", {"utf-16"}},
        {"ini check --explain output", none},
        {"pools pool.log --pool ''", {"A: maxInUse 3 <b>", "Frames"}},
        {"pools --pool ''", none},
        {"settings get ''", {"-", "My %"}},
        {"settings show M", {"My %"}},
        {"settings get 'My %' ''", {"A", "B"}},
        {"settings set 'My %' A ''", {"X", "x"}},
        {"inspect lo", {"locks"}},
        {"nothing ''", none},
    };
    for (const auto& row : rows)
        EXPECT_EQ(offered(row.words), row.expected) << row.words;
    fs::remove_all(path("home/.config"));
}

} // namespace
