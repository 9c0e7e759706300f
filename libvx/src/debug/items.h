// The debug items' inner parts, private to the library.
#ifndef VX_ITEMS_H
#define VX_ITEMS_H

#include <mutex>
#include <string>

namespace vx {

// Guards the registry of tcDbgItem; never destroyed.
std::recursive_mutex& ItemsLock();

// Does what a request asks for; what is to be sent back, with its zero bytes. Changes the request.
std::string AnswerOfItems(char* request);

} // namespace vx

#endif
