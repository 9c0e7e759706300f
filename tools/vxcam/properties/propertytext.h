// What the program tells about properties, and reads of them.
#ifndef PROPERTYTEXT_H
#define PROPERTYTEXT_H

#include <vxcamkit/property.h>

#include <nlohmann/json_fwd.hpp>

#include <string>

// How the value of a property is written: "TIME", "on|off", "HEX|@FILE".
std::string SyntaxText(const vxcam::Property& property);

// The list for the help of get and set.
std::string PropertyHelp();

// Whether what its value is may also be in a file.
bool TakesFile(const vxcam::Property& property);

// The value that a word stands for; @FILE stands for what is in a file, where the property takes
// bytes. Throws vxcam::Error, and tcFailure with eExitFile for a file that cannot be read.
vxcam::Value ParseValue(const vxcam::PropertyName& named, const std::string& text);

nlohmann::ordered_json ValueJson(const vxcam::Value& value);

#endif
