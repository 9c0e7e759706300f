// From a C function to the camera's operation.
#ifndef FORWARD_H
#define FORWARD_H

#include "guarded.h"
#include "tcVXCamera.h"

// Calls one operation of the camera with that handle; the lookup and its -3 exist only here.
template <class... Parameters, class... Arguments>
int Forward(int handle, int (tcVXCamera::*operation)(Parameters...), Arguments... arguments)
{
    return Guarded([&] {
        const tcVXCamera::tcHold camera(handle);
        return camera ? ((*camera).*operation)(arguments...) : eVXNoCamera;
    });
}

#endif
