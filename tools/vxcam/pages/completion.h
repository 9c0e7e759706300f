// What may follow what on the command line, for the completions of all shells.
#ifndef COMPLETION_H
#define COMPLETION_H

#include "tcCommandLine.h"

#include <vxcamkit/property.h>

#include <string>
#include <utility>
#include <vector>

using tpWords = std::vector<std::string>;

// Of one verb.
struct tsVerbWords {
    std::string name, summary;
    std::vector<tsOptionText> options; // those of actions, too
    std::vector<std::pair<std::string, std::string>> actions;
    tpWords offered; // for operands
    bool takesFile = false;
};

std::vector<tsVerbWords> AllVerbs();

// Of the options: the long ones; or all names of those that take a file, or that take something
// else.
tpWords NamesOf(const tsVerbWords& verb);
tpWords Taking(const tsVerbWords& verb, bool file);

// With a colon behind those that need a key, and behind the others that are to be set a "=".
tpWords PropertyWords(bool settable);

// What each field of the value may be, where that is a matter of words, with blanks between them.
tpWords FieldWords(const vxcam::Property& property);

// For bash and zsh: "trigger-mode) fields=('off start frame exposure' '' '') ;;", a line each.
std::string FieldCases();

std::string Joined(const tpWords& words, const char* separator = " ");

// In single quotes; `quote` stands for one inside.
std::string Quoted(const std::string& text, const char* quote = "'\\''");

#endif
