// Document.h - what the example does with a configuration file.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxIniFile.h>

/// Why the file at \p path could not be loaded, in words for a person.
LightweightString<char> whyNotLoaded(const LightweightString<wchar_t>& path);

/// Prints sections and values to standard output.
void print(const VxIniFile& ini);

/// The value of the first pair of that name in the section; empty without one.
LightweightString<char> valueOf(const VxIniFile& ini, const LightweightString<char>& section,
                                const LightweightString<char>& name);

/// Gives the first pair of that name in the section a new value, or adds the pair.
void setValue(VxIniFile& ini, const LightweightString<char>& section,
              const LightweightString<char>& name, const LightweightString<char>& value);

/// The lines of the document that are no pairs: comments, mostly.
unsigned int countComments(const VxIniFile& ini);
