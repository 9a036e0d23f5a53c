// Completion.h - What the shells offer on the Tab key. `vx __complete` prints it, so that bash, zsh
// and fish offer the same.
#pragma once

#include "Tool.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace tool {

struct Candidate {
    std::string word;
    std::string what = {};  ///< a few words for shells that show them
    bool inAnyCase = false; ///< whether the word may be typed in any case
};

/// What fits at one place of the command line.
struct Offer {
    enum Kind { words, files, folders };
    Kind kind = words;
    std::vector<Candidate> candidates = {};
};

/// The arguments and options before the word to complete, by their names as they are declared:
/// "FILE", "--core". A flag has an empty value.
using Given = std::map<std::string, std::string>;

/// The argument or option \p name, or an empty string.
std::string valueOf(const Given& given, const std::string& name);

/// Finds what fits. An exception means that nothing does.
using Completer = std::function<Offer(const Given&)>;
using Completers = std::map<const CLI::Option*, Completer>;

/// For arguments that are files but are not called FILE.
Offer fileNames(const Given& given);

/// \throws Failure unless \p path is a file that can be read at once: neither a pipe, which waits
///   and is then empty for the command, nor larger than 16 MiB
const std::string& smallFile(const std::string& path);

/// Prints what fits at the end of a command line, one word per line. The form of the line:
///   plain WORD...  the unquoted words after vx; prints a tab and a description after each word
///   bash LINE      the line as typed; prints words that are quoted as its end needs
/// \returns 0, or kOfferFiles or kOfferFolders: the shell completes those itself
int complete(const CLI::App& app, const Completers& completers, int argc, const char* const* argv);

constexpr int kOfferFiles = 100;
constexpr int kOfferFolders = 101;

} // namespace tool
