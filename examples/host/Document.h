// Document.h - Operations on the configuration file of the example.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxIniFile.h>

/// Returns a message that says why the file at \p path could not be loaded.
LightweightString<char> whyNotLoaded(const LightweightString<wchar_t>& path);

/// Prints sections and values to standard output.
void print(const VxIniFile& ini);

/// Returns the value of the first pair of that name in the section, or an empty string.
LightweightString<char> valueOf(const VxIniFile& ini, const LightweightString<char>& section,
                                const LightweightString<char>& name);

/// Sets the value of the first pair of that name in the section, or appends a pair.
void setValue(VxIniFile& ini, const LightweightString<char>& section,
              const LightweightString<char>& name, const LightweightString<char>& value);

/// Counts the lines without a name and a value, mostly comments.
unsigned int countComments(const VxIniFile& ini);
