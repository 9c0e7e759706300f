// Environment variables, private to the library.
//
// Programs that run with more rights than their caller has (set-user-id ones, for example) must not
// use them where the caller points. What the program itself has put into its environment is its
// own.
#ifndef VX_ENVIRONMENT_H
#define VX_ENVIRONMENT_H

#include <mutex>

namespace vx {

// Held while the library reads or changes the environment: its own threads do either at any time.
std::mutex& EnvironmentLock();

// The value of a variable, or null. It stays as it is whatever the library sets later.
const char* Variable(const char* name);

// The value of a variable of the library that names a file, folder, address, port or module. Null
// when it is not set, and always in a program with raised rights.
const char* PlaceVariable(const char* name);

// The value of a variable that may be of any meaning. Null when it is not set, and in a program
// with raised rights when it comes from the caller.
const char* TrustedVariable(const char* name);

} // namespace vx

#endif
