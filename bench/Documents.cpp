// Loading and saving INI documents of 4 MB: 1,000 sections of 100 pairs. QSettings is not a peer
// because it caches files for the life of the process.
#include "Documents.h"
#include "Floors.h"
#include "Table.h"

#include <Vx/VxIniFile.h>
#include <map>

#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_BOOST
#include <boost/property_tree/ini_parser.hpp>
#endif
#if BENCH_SIMPLEINI
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>
#endif
#if BENCH_INIH
#include <ini.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

constexpr std::size_t kSections = 1000;
constexpr std::size_t kPairs = 100;
constexpr const char* kProbeSection = "Section00500";
constexpr const char* kProbeName = "property0050";

// The file, and a value that every reader must find in it.
struct Sample {
    Sample() : text(bench::iniText(kSections, kPairs)), path(folder.file("sample.ini"))
    {
        bench::writeFile(path, text);
        const std::size_t section = text.find(std::string("[") + kProbeSection);
        const std::size_t value = text.find('=', text.find(kProbeName, section)) + 1;
        probe = text.substr(value, text.find('\n', value) - value);
    }

    bench::Folder folder;
    std::string text;
    std::string path;
    std::string probe;
};

const Sample& sample()
{
    static const Sample only;
    return only;
}

bool holdsSample(const VxIniFile& document)
{
    return document.getNumSections() == kSections &&
           Vx::AttribValuePair::getValue(LightweightString<char>(kProbeName), [&] {
               LightweightVector<Vx::AttribValuePair> pairs;
               for (const auto& pair : document.getSection(kProbeSection))
                   pairs.push_back(pair);
               return pairs;
           }()) == sample().probe.c_str();
}

// Checking loads and drops a document before the measurement starts, for Vx and the peers alike.
// The memory it leaves need not be mapped and cleared again, which can take longer than loading.
bool oursIsRight() { return holdsSample(VxIniFile(bench::widePath(sample().path), true, true)); }

void loadOurs(State& state)
{
    const auto path = bench::widePath(sample().path);
    const bool right = oursIsRight();
    bench::runBytes(state, sample().text.size(), right, [&] {
        const VxIniFile document(path, true, true);
        keep(document.sections.size());
    });
}

void loadOursKept(State& state)
{
    const auto path = bench::widePath(sample().path);
    if (!oursIsRight())
        return state.SkipWithError("the answer is wrong");
    bench::cleanVectorRegisters();
    for (auto _ : state) {
        auto* const document = new VxIniFile(path, true, true);
        keep(document->sections.size());
        state.PauseTiming();
        delete document;
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(sample().text.size()) * state.iterations());
}

// The block sizes of all strings, in the order of the file.
std::vector<std::size_t> blocksOfStrings()
{
    std::vector<std::size_t> sizes;
    const VxIniFile document(bench::widePath(sample().path), true, true);
    for (const auto& [name, pairs] : document.sections) {
        sizes.push_back(bench::blockSize(name));
        for (const auto& pair : pairs)
            for (const auto* text : {&pair.text, &pair.name, &pair.value})
                sizes.push_back(bench::blockSize(*text));
    }
    return sizes;
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Writes to /dev/null go straight to the system, so no disk is involved.
const std::string kNowhere = "/dev/null";

template <class Save> void saveOurs(State& state, const std::string& path, Save save)
{
    VxIniFile document(bench::widePath(sample().path), true, true);
    const std::string copy = sample().folder.file("saved-by-us.ini");
    const bool right = save(document, bench::widePath(copy)) &&
                       holdsSample(VxIniFile(bench::widePath(copy), true, true));
    const auto target = bench::widePath(path.empty() ? copy : path);
    bench::runBytes(state, contentOf(copy).size(), right, [&] { keep(save(document, target)); });
}

const auto plainSave = [](VxIniFile& document, const LightweightString<wchar_t>& path) {
    return document.save(path);
};
const auto saveWithAnonymous = [](VxIniFile& document, const LightweightString<wchar_t>& path) {
    document.getSection(VxIniFile::kAnonymousSection()).resize(0, Vx::AttribValuePair("", '='));
    return document.saveAll(path);
};

#if BENCH_INIH
struct Counter {
    std::size_t pairs = 0;
    bool probeFound = false;
};

int countPair(void* context, const char* section, const char* name, const char* value)
{
    Counter& counter = *static_cast<Counter*>(context);
    ++counter.pairs;
    if (std::strcmp(section, kProbeSection) == 0 && std::strcmp(name, kProbeName) == 0)
        counter.probeFound = value == sample().probe;
    return 1;
}

void parseByInih(State& state)
{
    Counter first;
    const bool right = ini_parse(sample().path.c_str(), countPair, &first) == 0 &&
                       first.probeFound && first.pairs == kSections * kPairs;
    bench::runBytes(state, sample().text.size(), right, [] {
        Counter counter;
        ini_parse(sample().path.c_str(), countPair, &counter);
        keep(counter.pairs);
    });
}
#endif

void addLoad()
{
    const std::string keepers = "GKeyFile|SimpleIni|property_tree";
    Row row("documents", "load 4 MB and drop it", {1.0 / 3, keepers});
    row.ours(loadOurs);
    row.floor("a block for each text",
              [](State& state) { bench::blocks(blocksOfStrings())(state); });
    Row kept("documents", "load 4 MB, not dropped in the time");
    kept.ours(loadOursKept);
#if BENCH_GLIB
    row.peer("GKeyFile", [](State& state) {
        const auto load = [] {
            GKeyFile* const file = g_key_file_new();
            g_key_file_load_from_file(file, sample().path.c_str(), G_KEY_FILE_NONE, nullptr);
            return file;
        };
        GKeyFile* const first = load();
        char* const value = g_key_file_get_string(first, kProbeSection, kProbeName, nullptr);
        const bool right = value != nullptr && value == sample().probe;
        g_free(value);
        g_key_file_free(first);
        bench::runBytes(state, sample().text.size(), right, [&] { g_key_file_free(load()); });
    });
#endif
#if BENCH_SIMPLEINI
    row.peer("SimpleIni", [](State& state) {
        const bool right = [] {
            CSimpleIniCaseA first;
            first.LoadFile(sample().path.c_str());
            return first.GetValue(kProbeSection, kProbeName, "") == sample().probe;
        }();
        bench::runBytes(state, sample().text.size(), right, [] {
            CSimpleIniCaseA file;
            keep(file.LoadFile(sample().path.c_str()));
        });
    });
#endif
#if BENCH_BOOST
    row.peer("property_tree", [](State& state) {
        const bool right = [] {
            boost::property_tree::ptree first;
            boost::property_tree::read_ini(sample().path, first);
            return first.get<std::string>(std::string(kProbeSection) + "." + kProbeName) ==
                   sample().probe;
        }();
        bench::runBytes(state, sample().text.size(), right, [] {
            boost::property_tree::ptree tree;
            boost::property_tree::read_ini(sample().path, tree);
            keep(tree.size());
        });
    });
#endif
#if BENCH_INIH
    row.peer("inih, no document", parseByInih);
#endif
}

// The names of sections and pairs to look up: 1,000 at random places of the sample.
std::vector<std::pair<std::string, std::string>> probes()
{
    bench::Numbers numbers(42);
    std::vector<std::pair<std::string, std::string>> found;
    for (int i = 0; i < 1000; ++i) {
        char section[32];
        char name[32];
        std::snprintf(section, sizeof section, "Section%05u", numbers.below(kSections));
        std::snprintf(name, sizeof name, "property%04u", numbers.below(kPairs));
        found.emplace_back(section, name);
    }
    return found;
}

// Finds the sections, and walks each to the pair in question without comparing its name.
void readLengths(State& state)
{
    const VxIniFile document(bench::widePath(sample().path), true, true);
    std::vector<std::pair<LightweightString<char>, std::size_t>> wanted;
    for (const auto& [section, name] : probes())
        wanted.emplace_back(bench::narrow(section), std::stoul(name.substr(8)));
    bench::run(state, true, [&] {
        for (const auto& [section, last] : wanted) {
            const VxIniFile::Pairs& pairs = document.getSection(section);
            for (std::size_t i = 0; i <= last; ++i)
                keep(pairs[i].name.length());
        }
    });
}

// Each value becomes a string of its own, as the caller keeps it.
void addLookUp()
{
    Row row("documents", "look up 1,000 values in 4 MB");
    row.ours([](State& state) {
        const VxIniFile document(bench::widePath(sample().path), true, true);
        std::vector<std::pair<LightweightString<char>, LightweightString<char>>> wanted;
        for (const auto& [section, name] : probes())
            wanted.emplace_back(bench::narrow(section), bench::narrow(name));
        const auto valueOf = [&](const auto& section, const auto& name) {
            for (const Vx::AttribValuePair& pair : document.getSection(section))
                if (pair.name == name)
                    return pair.value;
            return LightweightString<char>();
        };
        bench::run(state, valueOf(kProbeSection, kProbeName) == sample().probe.c_str(), [&] {
            for (const auto& [section, name] : wanted)
                keep(valueOf(section, name).c_str());
        });
    });
    row.floor("read the length of each name", readLengths);
#if BENCH_GLIB
    row.peer("GKeyFile", [](State& state) {
        GKeyFile* const file = g_key_file_new();
        g_key_file_load_from_file(file, sample().path.c_str(), G_KEY_FILE_NONE, nullptr);
        const auto wanted = probes();
        const auto valueOf = [&](const char* section, const char* name) {
            return g_key_file_get_value(file, section, name, nullptr);
        };
        char* const first = valueOf(kProbeSection, kProbeName);
        const bool right = first != nullptr && first == sample().probe;
        g_free(first);
        bench::run(state, right, [&] {
            for (const auto& [section, name] : wanted)
                g_free(valueOf(section.c_str(), name.c_str()));
        });
        g_key_file_free(file);
    });
#endif
#if BENCH_SIMPLEINI
    row.peer("SimpleIni", [](State& state) {
        CSimpleIniCaseA file;
        file.LoadFile(sample().path.c_str());
        const auto wanted = probes();
        bench::run(state, file.GetValue(kProbeSection, kProbeName, "") == sample().probe, [&] {
            for (const auto& [section, name] : wanted)
                keep(std::string(file.GetValue(section.c_str(), name.c_str(), "")).data());
        });
    });
#endif
}

// Loads 100,000 sections of one pair, and drops them.
void addRandomOrder()
{
    constexpr std::size_t kMany = 100000;
    const auto load = [](bench::Order order) {
        return [order](State& state) {
            const bench::Folder folder;
            const std::string path = folder.file("sections.ini");
            bench::writeFile(path, bench::iniText(kMany, 1, order));
            const auto wide = bench::widePath(path);
            const bool right = VxIniFile(wide, true, true).getNumSections() == kMany;
            bench::run(state, right, [&] { keep(VxIniFile(wide, true, true).sections.size()); });
        };
    };
    Row row("documents", "load 100,000 sections in random order", {3.0, "Vx, sorted"});
    row.ours(load(bench::Order::kRandom)).peer("Vx, sorted", load(bench::Order::kByName));
#if BENCH_GLIB
    row.peer("GKeyFile", [](State& state) {
        const bench::Folder folder;
        const std::string path = folder.file("sections.ini");
        bench::writeFile(path, bench::iniText(kMany, 1, bench::Order::kRandom));
        const auto load = [&] {
            GKeyFile* const file = g_key_file_new();
            g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
            const bool right = g_key_file_has_group(file, "Section99999") != FALSE;
            g_key_file_free(file);
            return right;
        };
        bench::run(state, load(), [&] { keep(load()); });
    });
#endif
}

#if BENCH_GLIB
void saveDurablyByGKeyFile(State& state)
{
    GKeyFile* const file = g_key_file_new();
    g_key_file_load_from_file(file, sample().path.c_str(), G_KEY_FILE_NONE, nullptr);
    const std::string copy = sample().folder.file("saved-by-glib.ini");
    const bool right = g_key_file_save_to_file(file, copy.c_str(), nullptr) != FALSE;
    bench::runBytes(state, contentOf(copy).size(), right,
                    [&] { keep(g_key_file_save_to_file(file, copy.c_str(), nullptr)); });
    g_key_file_free(file);
}
#endif

// save() makes one write per line. A file collects them, a device gets each one, so the peers
// write files as well. Only Vx makes its files durable.
void addSave()
{
    Row row("documents", "save 4 MB, in a folder in memory", {0.5});
    row.ours([](State& state) { saveOurs(state, {}, plainSave); });
    Row all("documents", "save 4 MB with an anonymous section, no disk", {0.5});
    all.ours([](State& state) { saveOurs(state, kNowhere, saveWithAnonymous); });
    Row durable("documents", "save 4 MB, durably, in a folder in memory");
    durable.ours([](State& state) { saveOurs(state, {}, saveWithAnonymous); });
    const std::string saved = sample().folder.file("saved-by-peer.ini");
    for (const auto& [target, path] : {std::pair(&row, saved), std::pair(&all, kNowhere)}) {
#if BENCH_GLIB
        target->peer("GKeyFile", [path = path](State& state) {
            GKeyFile* const file = g_key_file_new();
            g_key_file_load_from_file(file, sample().path.c_str(), G_KEY_FILE_NONE, nullptr);
            const auto save = [&] {
                std::size_t length = 0;
                char* const text = g_key_file_to_data(file, &length, nullptr);
                std::FILE* const out = std::fopen(path.c_str(), "w");
                std::fwrite(text, 1, length, out);
                std::fclose(out);
                g_free(text);
                return length;
            };
            const std::size_t length = save();
            bench::runBytes(state, length, length > sample().text.size() / 2, save);
            g_key_file_free(file);
        });
#endif
#if BENCH_BOOST
        target->peer("property_tree", [path = path](State& state) {
            boost::property_tree::ptree tree;
            boost::property_tree::read_ini(sample().path, tree);
            const std::string copy = sample().folder.file("saved-by-property-tree.ini");
            boost::property_tree::write_ini(copy, tree);
            const std::size_t length = contentOf(copy).size();
            bench::runBytes(state, length, length > sample().text.size() / 2,
                            [&] { boost::property_tree::write_ini(path, tree); });
        });
#endif
#if BENCH_SIMPLEINI
        target->peer("SimpleIni", [path = path](State& state) {
            CSimpleIniCaseA file;
            file.LoadFile(sample().path.c_str());
            std::string saved;
            file.Save(saved);
            bench::runBytes(state, saved.size(), saved.size() > sample().text.size() / 2,
                            [&] { keep(file.SaveFile(path.c_str())); });
        });
#endif
    }
#if BENCH_GLIB
    durable.peer("GKeyFile", saveDurablyByGKeyFile);
#endif
}

} // namespace

void bench::addDocuments()
{
    addLoad();
    addLookUp();
    addRandomOrder();
    addSave();
}
