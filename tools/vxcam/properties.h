// The properties of a camera: every value of the C interface that a user can read or set. The one
// table behind `vxcam get`, `vxcam set`, their help, the manual page and the completion.
#ifndef PROPERTIES_H
#define PROPERTIES_H

#include "values.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class tcSession;

struct tsProperty {
    const char* name;
    const char* summary;
    tsShape shape;
    // Both return a result of the C interface; null where the interface has no such function.
    // `key` is what follows the name's colon. Some throw tcFailure.
    int (*read)(tcSession& session, uint32_t key, tsSetting* setting);
    int (*write)(tcSession& session, uint32_t key, const tsSetting& setting);

    const char* key = nullptr; // what it is called, of properties that come in numbers: "ID"
    uint32_t mostKey = 0;
    bool isListed = true; // among those that are read when none is named; not those with a key
    // Why this sensor cannot take the value; empty when it can.
    std::string (*check)(tcSession& session, const tsSetting& setting) = nullptr;
};

// A property as a user names it: NAME or NAME:KEY.
struct tsNamed {
    const tsProperty* property = nullptr;
    uint32_t key = 0;
    std::string text;
};

// All of them, in the order in which they are shown.
const std::vector<tsProperty>& Properties();

// Throws tcFailure with eExitUsage, whose text lists names that are near.
tsNamed FindProperty(const std::string& text);

// What the camera says. Throws tcFailure when it does not answer or reports an error.
tsSetting ReadProperty(tcSession& session, const tsNamed& named);

// The same, for one of many: nothing, and why in `*why`, when the camera reports an error or does
// not answer to this, but goes on answering to other things.
std::optional<tsSetting> TryProperty(tcSession& session, const tsNamed& named, std::string* why);

// Has the camera take the value and waits until it has; then what it says, or the value itself
// where it cannot be asked. Throws tcFailure when it answers with an error.
tsSetting WriteProperty(tcSession& session, const tsNamed& named, const tsSetting& setting);

// The name with its key: "register:ADDRESS".
std::string NameText(const tsProperty& property);

// "read and set", "read only", "set only".
const char* AccessText(const tsProperty& property);

// The list for the help of get and set.
std::string PropertyHelp();

// The table's parts.
std::vector<tsProperty> ImageProperties();
std::vector<tsProperty> BinningProperties();
std::vector<tsProperty> ControlProperties();
std::vector<tsProperty> BlockProperties();

#endif
