#include "Completion.h"

#include "ShellWords.h"
#include "Strings.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <strings.h>

namespace tool {
namespace {

namespace fs = std::filesystem;

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

/// "FILE" or "--core".
std::string nameOf(const CLI::Option& option)
{
    return option.nonpositional() ? "--" + option.get_lnames().front()
                                  : option.get_name(/*positional=*/true);
}

/// Follows a command line up to the word to complete.
class Walk {
public:
    Walk(const CLI::App& top, const Completers& completers) : app_(&top), completers_(completers) {}

    void take(const std::string& word)
    {
        if (pending_ != nullptr) {
            give(*std::exchange(pending_, nullptr), word);
        } else if (optionsEnded_ || word.size() < 2 || word.front() != '-') {
            takeArgument(word);
        } else if (word == "--") {
            optionsEnded_ = true;
        } else if (word[1] == '-') {
            const std::size_t end = std::min(word.find('='), word.size());
            const CLI::Option* const option = app_->get_option_no_throw(word.substr(0, end));
            if (option != nullptr && takesValue(*option) && end == word.size())
                pending_ = option;
            else if (option != nullptr)
                give(*option, end == word.size() ? "" : word.substr(end + 1));
        } else {
            takeLetters(word);
        }
    }

    /// \param prefix receives the part of the word that the candidates do not have: "--core="
    Offer offer(const std::string& word, std::string& prefix) const
    {
        if (pending_ != nullptr)
            return valuesOf(*pending_);
        if (!optionsEnded_ && !word.empty() && word.front() == '-') {
            const std::size_t end = word.find('=');
            if (end == word.npos || word.substr(0, 2) != "--")
                return options();
            const CLI::Option* const option = app_->get_option_no_throw(word.substr(0, end));
            prefix = word.substr(0, end + 1);
            return option != nullptr && takesValue(*option) ? valuesOf(*option) : Offer();
        }
        Offer found;
        if (taken_ == 0)
            for (const CLI::App* command :
                 app_->get_subcommands([](const CLI::App*) { return true; }))
                found.candidates.push_back({command->get_name(), command->get_description()});
        if (const CLI::Option* const argument = nextArgument())
            found = valuesOf(*argument);
        return found;
    }

    bool optionsEnded() const { return optionsEnded_; }

private:
    void give(const CLI::Option& option, std::string value)
    {
        if (const char* const home = std::getenv("HOME"); home && value.substr(0, 2) == "~/")
            value.replace(0, 1, home); // shells pass it as typed
        given_[nameOf(option)] = std::move(value);
    }

    /// Takes "-c", "-cn", "-o x.svg" or "-ox.svg".
    void takeLetters(const std::string& word)
    {
        for (std::size_t i = 1; i < word.size(); ++i) {
            const CLI::Option* const option = app_->get_option_no_throw(std::string{'-', word[i]});
            if (option == nullptr)
                return;
            if (!takesValue(*option))
                give(*option, "");
            else if (i + 1 == word.size())
                pending_ = option;
            else
                return give(*option, word.substr(i + 1));
        }
    }

    void takeArgument(const std::string& word)
    {
        for (const CLI::App* command :
             app_->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == word; }))
            if (taken_ == 0) {
                app_ = command;
                return;
            }
        if (const CLI::Option* const argument = nextArgument())
            give(*argument, word);
        ++taken_;
    }

    const CLI::Option* nextArgument() const
    {
        const auto arguments =
            app_->get_options([](const CLI::Option* option) { return !option->nonpositional(); });
        if (taken_ < arguments.size())
            return arguments[taken_];
        const bool repeats = !arguments.empty() && arguments.back()->get_items_expected_max() > 1;
        return repeats ? arguments.back() : nullptr;
    }

    Offer options() const
    {
        Offer found;
        for (const CLI::Option* option :
             app_->get_options([](const CLI::Option* any) { return any->nonpositional(); }))
            found.candidates.push_back({nameOf(*option), option->get_description()});
        return found;
    }

    Offer valuesOf(const CLI::Option& option) const
    {
        const auto completer = completers_.find(&option);
        if (completer != completers_.end())
            return completer->second(given_);
        const std::string kind = option.nonpositional() ? option.get_type_name() : nameOf(option);
        if (kind.substr(0, 4) == "FILE")
            return {Offer::files};
        return {kind == "FOLDER" ? Offer::folders : Offer::words};
    }

    const CLI::App* app_;
    const Completers& completers_;
    Given given_;
    const CLI::Option* pending_ = nullptr; // its value is the next word
    bool optionsEnded_ = false;
    std::size_t taken_ = 0; // arguments
};

/// Whether \p word begins with what was typed and could be typed to the end.
bool fits(const Candidate& candidate, const std::string& typed)
{
    const std::string& word = candidate.word;
    const bool begins = candidate.inAnyCase
                            ? strncasecmp(word.c_str(), typed.c_str(), typed.size()) == 0
                            : word.compare(0, typed.size(), typed) == 0;
    const bool plain = std::none_of(word.begin(), word.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    });
    return begins && plain && view(toUtf8(fromUtf8(word))) == word;
}

} // namespace

std::string valueOf(const Given& given, const std::string& name)
{
    const auto found = given.find(name);
    return found != given.end() ? found->second : std::string();
}

Offer fileNames(const Given&) { return {Offer::files}; }

const std::string& smallFile(const std::string& path)
{
    if (!fs::is_regular_file(path) || fs::file_size(path) > (std::uintmax_t(16) << 20))
        throw Failure("read-failed", {path, "it is large or not a file"});
    return path;
}

int complete(const CLI::App& app, const Completers& completers, int argc, const char* const* argv)
{
    const bool bash = std::string_view(argv[0]) == "bash";
    ShellWords line{std::vector<std::string>(argv + 1, argv + argc)};
    if (bash)
        line = splitAsBash(argv[1]);
    const std::string typed = line.words.back();
    line.words.pop_back();
    Walk walk(app, completers);
    for (const std::string& word : line.words)
        walk.take(word);
    std::string prefix;
    Offer offer = walk.offer(typed, prefix);
    if (offer.kind != Offer::words)
        return offer.kind == Offer::files ? kOfferFiles : kOfferFolders;

    std::vector<Candidate> found;
    for (Candidate& candidate : offer.candidates) {
        // A word that begins with '-' is an option, except for "-" itself.
        const bool dash = candidate.word.size() > 1 && candidate.word.front() == '-';
        const bool wanted = dash && !walk.optionsEnded() ? typed.substr(0, 1) == "-" : true;
        candidate.word.insert(0, prefix);
        if (wanted && !candidate.word.empty() && fits(candidate, typed))
            found.push_back(std::move(candidate));
    }
    for (const Candidate& candidate : found) {
        // bash replaces what was typed by what the words have in common, so of several it must be
        // what was typed.
        const std::string word =
            found.size() == 1 ? candidate.word : typed + candidate.word.substr(typed.size());
        if (bash)
            fmt::print("{}\n", line.quoted(word));
        else
            fmt::print("{}\t{}\n", candidate.word, candidate.what);
    }
    return 0;
}

} // namespace tool
