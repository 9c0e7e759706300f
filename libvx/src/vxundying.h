// Objects that are never destroyed, private to the library.
#ifndef VX_UNDYING_H
#define VX_UNDYING_H

#include <new>

namespace vx {

// Room for an object that threads may use until the process is gone. It takes no memory of the heap
// and has no destructor; the object is made where it is first used:
//   static tcUndying<tcThing> room;
//   static tcThing& thing = room.Make();
template <typename tObject>
class tcUndying
{
public:
    tObject& Make() { return *new (maRoom) tObject; }

private:
    alignas(tObject) char maRoom[sizeof(tObject)];
};

} // namespace vx

#endif
