// Messages.h - Every message of vx, with what to do about it.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace tool {

enum class MessageKind {
    remark,  ///< the command goes on
    answer,  ///< no: not found, not valid, different; exit status 1
    usage,   ///< the command line is wrong; exit status 2
    failure, ///< exit status 3
    warning, ///< a finding of `vx ini check`
    note,    ///< a finding that concerns the application's programmers only
};

/// A row of the table. {0}, {1} and so on stand for what the message is about.
struct Message {
    MessageKind kind;
    std::string_view code;             ///< stable, for scripts
    std::string_view text;             ///< what is wrong
    std::string_view remedy;           ///< what to do about it, in whole sentences
    std::string_view programmers = {}; ///< what the application's programmers need to know
};

// clang-format off
inline constexpr Message kMessages[] = {
    // The command line and the process.
    {MessageKind::usage, "command-line", "{0}", "See '{1} --help'."},
    {MessageKind::usage, "not-utf-8-argument", "argument {0} is not valid UTF-8",
     "Rename the file, or convert the text with iconv."},
    {MessageKind::usage, "stdin-twice", "standard input can be read only once",
     "Save one of the inputs in a file, or use the shell's <(...)."},
    {MessageKind::failure, "output-failed", "cannot write to standard output",
     "Free space on the disk, or check the program that reads the output."},
    {MessageKind::failure, "out-of-memory", "out of memory",
     "Close other programs, or raise the limit on memory (ulimit -v)."},
    {MessageKind::failure, "internal", "internal error: {0}",
     "Report this, with the command and its files."},

    // Files.
    {MessageKind::failure, "missing-file", "{0} does not exist",
     "Check the name, and the folder that it is relative to."},
    {MessageKind::failure, "folder", "{0} is a folder", "Name a file in it."},
    {MessageKind::failure, "unreadable-file", "{0} cannot be opened for reading: {1}",
     "Check the permissions of the file and its folders."},
    {MessageKind::failure, "read-failed", "{0} cannot be read: {1}",
     "Check the disk or the program that writes the pipe; copy the file and try the copy."},
    {MessageKind::failure, "too-large", "{0} is larger than 256 MiB",
     "Save the data in a file if that is what you meant to read."},
    {MessageKind::failure, "unwritable-file", "{0} cannot be opened for writing",
     "Check that its folder exists, and the permissions of both."},
    {MessageKind::failure, "write-failed", "{0} cannot be written; it is unchanged",
     "Free space on the disk, and check that it is not read-only."},
    {MessageKind::failure, "output-file-failed", "{0} cannot be written: {1}",
     "Free space on the disk, or check the program that reads the pipe."},
    {MessageKind::failure, "changed", "{0} has changed since it was read; nothing was written",
     "Quit the program that changes the file, and try again."},

    // INI files.
    {MessageKind::failure, "no-lines", "{0} is empty; the library does not load empty files",
     "Restore the file from a backup, or delete it so that the application makes a new one."},
    {MessageKind::failure, "not-read-back", "{0} would not read back: {1}",
     "Choose a value on one line, without blanks or accented letters at its ends."},
    {MessageKind::answer, "missing-section", "{0} has no section {1}",
     "List the sections with 'vx ini show'."},
    {MessageKind::answer, "near-section", "{0} has no section {1}; did you mean {2}?",
     "Repeat the command with that name; without -c the case of the name does not count."},
    {MessageKind::answer, "missing-top-lines", "{0} has no lines before the first section",
     "Name a section; 'vx ini show' lists them."},
    {MessageKind::answer, "missing-key", "{0} has no key {1} {2}",
     "List the keys with 'vx ini show'. Case and blanks count."},
    {MessageKind::answer, "near-key", "{0} has no key {1} {2}; did you mean {3}?",
     "Repeat the command with that key. Case and blanks count, also a blank before '='."},
    {MessageKind::failure, "utf-16-file", "{0} is UTF-16; INI files are read as bytes",
     "Convert it: iconv -f UTF-16 -t UTF-8."},
    {MessageKind::failure, "binary-file", "{0} is not an INI file: it contains NUL bytes",
     "Run 'vx ini check' on it, and remove the bytes or restore the file."},
    {MessageKind::answer, "conflicts", "{0} in {1}: {2}",
     "Edit the lines between '<<<<<<<' and '>>>>>>>'; 'vx ini check' finds marks that are left."},
    {MessageKind::failure, "unresolved", "{0} contains the marks of an unresolved conflict in line {1}",
     "Resolve it and remove the marks first."},
    {MessageKind::answer, "not-formatted", "{0} is not formatted",
     "Run 'vx ini fmt' without --check."},
    {MessageKind::usage, "no-such-code", "no finding has the code {0}",
     "'vx ini check' prints the code in brackets; the man page lists all of them."},

    // Identifiers.
    {MessageKind::answer, "invalid-uuid", "{0} is not a valid UUID: {1}",
     "Copy all of it: 8-4-4-4-12 hexadecimal digits, with or without braces."},
    {MessageKind::remark, "lenient-uuid",
     "{0} is malformed; the library accepts it, other programs may not",
     "Store the form that the first line shows."},
    {MessageKind::usage, "bad-code",
     "{0} is neither a code of up to four characters nor a 32-bit number",
     "'vx fcc' lists the codes."},

    // Pool logs.
    {MessageKind::remark, "stray-log-line", "{0}:{1}: not a pool log line, ignored{2}",
     "A program may have died while it wrote the line; the others are complete."},
    {MessageKind::answer, "no-pools", "{0} contains no pools",
     "Check that this is a PooledObjects.log. Programs write it when they exit."},
    {MessageKind::answer, "no-such-pool", "{0} does not contain pool {1}",
     "List the pools with 'vx pools'. Case counts."},

    // Settings.
    {MessageKind::failure, "no-home", "HOME does not name a folder",
     "Set HOME or XDG_CONFIG_HOME to the folder of the user whose settings you mean."},
    {MessageKind::answer, "no-settings", "no settings in {0}",
     "Run as the user whose settings you mean; XDG_CONFIG_HOME may name another folder."},
    {MessageKind::usage, "empty-program", "the name of the program is empty",
     "List the programs with 'vx settings'; '-' means the settings that all programs share."},
    {MessageKind::answer, "no-program", "no settings for {0} in {1}",
     "List the programs with 'vx settings'; case counts. 'vx settings set --create' makes a store."},
    {MessageKind::answer, "no-setting", "no setting {0} in section {1} in {2}",
     "List the settings with 'vx settings show'. Case and blanks count."},
    {MessageKind::failure, "setting-not-stored", "{0} did not store the setting",
     "See the line above; check the permissions of the file and its folder."},

    // Processes.
    {MessageKind::answer, "cannot-inspect", "{0}", "{1}"},
    {MessageKind::answer, "no-process", "no process that may be read has libVx.so loaded",
     "Start the application, or run vx as its user or as root."},
    {MessageKind::answer, "inspect-output-failed", "cannot write to standard output",
     "Free space on the disk, or check the program that reads the output."},
    {MessageKind::usage, "inspect-usage", "{0} is neither a process identifier nor a section",
     "Sections: {1}."},
    {MessageKind::usage, "inspect-what", "expected a process identifier or --core FILE, one of them",
     "'vx inspect' lists the processes."},

    // Findings of `vx ini check`.
    {MessageKind::warning, "utf-16", "the file is UTF-16; INI files are read as bytes",
     "Convert it: iconv -f UTF-16 -t UTF-8."},
    {MessageKind::warning, "empty-file", "the file is empty and does not load",
     "Restore it from a backup, or delete it so that the application makes a new one.",
     "VxIniFile::load() returns false for an empty file and leaves the document as it was."},
    {MessageKind::warning, "byte-order-mark",
     "byte-order mark: it becomes part of the first line{0}",
     "Save the file as UTF-8 without a byte-order mark (BOM)."},
    {MessageKind::warning, "zero-byte",
     "NUL byte: keys, values and section names end there for most purposes",
     "Remove it; the file may be damaged.",
     "VxIniFile keeps the byte, but compares names only up to it."},
    {MessageKind::warning, "carriage-return",
     "carriage return inside the line: only line feeds end lines",
     "Save the file with Windows or Unix line endings."},
    {MessageKind::warning, "control-character", "control character inside the line",
     "Remove it; it may have been pasted from a terminal."},
    {MessageKind::warning, "not-utf-8", "invalid UTF-8: the application shows U+FFFD instead",
     "Convert the file to UTF-8, for example: iconv -f ISO-8859-1 -t UTF-8.",
     "toUTF8() and fromUTF8() replace each invalid byte by U+FFFD; the document keeps the bytes."},
    {MessageKind::warning, "invisible-character",
     "{0} is invisible in most editors or changes the text direction",
     "Remove it; it may have been pasted from a web page."},
    {MessageKind::warning, "lost-start", "{0} at the start of the line is lost: {1}",
     "Start the line with an ASCII character.",
     "load() drops leading bytes that isprint() rejects; the value's first letter follows '='."},
    {MessageKind::warning, "lost-end", "{0} at the end of the line is lost: {1}",
     "End the value with an ASCII character, for example a full stop.",
     "load() drops trailing bytes that isprint() rejects. Store such texts with an end mark."},
    {MessageKind::warning, "nested-brackets", "double brackets: the section is called {0}",
     "Write single brackets, unless the application asks for this name."},
    {MessageKind::warning, "nameless-section", "the section has an empty name",
     "Write a name between the brackets.",
     "The name is \"\", which differs from the lines before the first section."},
    {MessageKind::warning, "unclosed-header", "{0} ']': loads as a line {1}, not as a header",
     "End the header with ']' and nothing after it; put comments on lines of their own."},
    {MessageKind::warning, "blanks-around-section", "the section name includes the blanks: {0}",
     "Remove the blanks inside the brackets."},
    {MessageKind::warning, "reserved-name",
     "reserved section name: its lines join those before the first section",
     "Choose another name.", "The name is VxIniFile::kAnonymousSection()."},
    {MessageKind::warning, "duplicate-section", "duplicate section {0} (merged with {1}line {2})",
     "Move the lines together under one header."},
    {MessageKind::warning, "top-key", "key {0} before the first section",
     "Move it below the header of its section.",
     "It is in the section VxIniFile::kAnonymousSection(). See also top-lines."},
    {MessageKind::warning, "no-key", "value without a key", "Write a key before '='."},
    {MessageKind::warning, "stray-line", "neither key=value nor a comment",
     "Write '=' after the key, or ';' in front of a comment."},
    {MessageKind::warning, "conflict-mark", "mark of an unresolved merge conflict",
     "Keep the lines that are right, and remove the marks."},
    {MessageKind::warning, "blanks-around-key", "the blanks count: the key is {0}, the value {1}",
     "Remove the blanks around '=' and around the key."},
    {MessageKind::warning, "blanks-before-value", "the value includes the blanks: {0}",
     "Remove the blanks after '='."},
    {MessageKind::warning, "quoted-value", "the quotes are part of the value: {0}",
     "Remove the quotes, unless the application asks for them."},
    {MessageKind::warning, "trailing-comment", "{0} is part of the value: {1}",
     "Put the comment on a line of its own, above this one."},
    {MessageKind::warning, "trailing-backslash",
     "the backslash is part of the value; the next line does not continue this one",
     "Write the whole value on one line, or remove the backslash."},
    {MessageKind::warning, "duplicate-key", "duplicate key {0} (line {1} wins)",
     "Remove the line that is not meant.",
     "getValue() finds the first; the others are pairs of the section all the same."},
    {MessageKind::note, "top-lines", "lines before the first section",
     "Nothing, unless you write the application.",
     "Save such a document with saveAll(): save() never returns for it."},
    {MessageKind::note, "empty-section", "empty section: it does not exist after loading",
     "Nothing, unless you write the application.",
     "sectionExists() returns false, and saving the document drops the header."},
};
// clang-format on

/// A row of the table, named by its code; an unknown code does not compile.
class MessageRef {
public:
    template <std::size_t Size>
    consteval MessageRef(const char (&code)[Size]) : row_(find(std::string_view(code, Size - 1)))
    {}
    const Message& operator*() const { return *row_; }
    const Message* operator->() const { return row_; }

private:
    static consteval const Message* find(std::string_view code)
    {
        for (const Message& row : kMessages)
            if (row.code == code)
                return &row;
        throw "no such message";
    }
    const Message* row_;
};

/// What fills {0}, {1} and so on.
using MessageParts = std::initializer_list<std::string>;

std::string filled(std::string_view text, MessageParts parts);

} // namespace tool
